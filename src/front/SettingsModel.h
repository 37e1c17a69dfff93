#pragma once

#include "front/SettingsServices.h"

#include <QObject>
#include <QVariantList>
#include <QtQml/qqmlregistration.h>

namespace mirrowisp {

class SettingsAgentList;

// What the settings window's pages read beside the preferences themselves: the agents, today's usage
// meters, and the about page's facts and actions.
class SettingsModel : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("the settings window makes it")
    // The Preferences object; every control reads and writes its properties directly.
    Q_PROPERTY(QObject* prefs READ prefs CONSTANT)
    Q_PROPERTY(mirrowisp::SettingsAgentList* agents READ agents CONSTANT)
    // One row per agent kind: agent, name, accent, meters (label, percent, text).
    Q_PROPERTY(QVariant usageRows READ usageRows NOTIFY usageRowsChanged)
    Q_PROPERTY(QString page READ page WRITE setPage NOTIFY pageChanged)
    Q_PROPERTY(QString version READ version CONSTANT)
    Q_PROPERTY(QString build READ build CONSTANT)
    Q_PROPERTY(QString licence READ licence NOTIFY licenceChanged)

public:
    SettingsModel(SettingsServices services, SettingsAgentList& agents, QObject* parent = nullptr);

    static inline const QStringList pages = {QStringLiteral("general"), QStringLiteral("agents"),
                                             QStringLiteral("usage"), QStringLiteral("island"),
                                             QStringLiteral("about")};

    QObject* prefs() const;
    SettingsAgentList* agents() const { return &agents_; }
    QVariant usageRows() const;
    QString page() const { return page_; }
    // An unknown page keeps the one shown.
    void setPage(const QString& page);
    QString version() const;
    QString build() const;
    QString licence() const { return licence_; }

    Q_INVOKABLE void sendFeedback();
    Q_INVOKABLE void openChangelog();
    // In the order of the app's cues: session start, attention, done, low battery, connected, charging.
    Q_INVOKABLE void previewCue(int cue);

Q_SIGNALS:
    void usageRowsChanged();
    void pageChanged();
    void licenceChanged();

private:
    SettingsServices services_;
    SettingsAgentList& agents_;
    QString page_ = pages.first();
    QString licence_;
};

} // namespace mirrowisp
