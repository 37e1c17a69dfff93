#pragma once

#include "front/SettingsServices.h"

#include <QObject>
#include <QtQml/qqmlregistration.h>

namespace mirrowisp {

class SettingsAgentList;

// The setup guide's state: the agents found here, the sample request of "Try it", and the end.
class SetupGuideModel : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("the setup guide window makes it")
    Q_PROPERTY(mirrowisp::SettingsAgentList* agents READ agents CONSTANT)
    // "" before "Try it", "waiting" while the sample waits in the island, "answered" after.
    Q_PROPERTY(QString sampleState READ sampleState NOTIFY sampleStateChanged)
    Q_PROPERTY(QString ctlUsage READ ctlUsage CONSTANT)

public:
    // The user default that records a finished guide.
    static inline const QString completedKey = QStringLiteral("didCompleteOnboarding");

    SetupGuideModel(SettingsServices services, SettingsAgentList& agents, QObject* parent = nullptr);

    SettingsAgentList* agents() const { return &agents_; }
    QString sampleState() const { return sampleState_; }
    QString sampleID() const { return sampleID_; }
    QString ctlUsage() const;

    // Puts a sample permission request in the island (one at a time).
    Q_INVOKABLE void tryIt();
    // Records the guide as done and closes it.
    Q_INVOKABLE void finish();

Q_SIGNALS:
    void sampleStateChanged();
    void finished();

private:
    SettingsServices services_;
    SettingsAgentList& agents_;
    QString sampleState_;
    QString sampleID_;
};

} // namespace mirrowisp
