#pragma once

#include "front/SettingsServices.h"

#include <QObject>
#include <QVariantMap>
#include <QtQml/qqmlregistration.h>

namespace mirrowisp {

// Each agent's health as `ctl doctor` reports it, for the Agents page: the state of our hooks, the
// events installed of those supported, the last event and the hook round trip, with a Repair that
// does what `ctl connect` does. The doctor reads the agents' files on its own thread.
class SettingsAgentHealth : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("the settings window makes it")
    // Agent to: hooks, events, lastEvent, roundTrip, canRepair, working, message.
    Q_PROPERTY(QVariantMap byAgent READ byAgent NOTIFY changed)
    Q_PROPERTY(bool loaded READ loaded NOTIFY changed)

public:
    explicit SettingsAgentHealth(SettingsServices services, QObject* parent = nullptr);

    QVariantMap byAgent() const { return byAgent_; }
    bool loaded() const { return loaded_; }

    Q_INVOKABLE void refresh();
    // Puts the hooks back as `ctl connect` does; the agent's entry shows the outcome or the error.
    Q_INVOKABLE void repair(const QString& agent);

Q_SIGNALS:
    void changed();
    void repairFinished(const QString& agent, const QString& error);

private:
    void setEntry(const QString& agent, const QString& key, const QVariant& value);

    SettingsServices services_;
    QVariantMap byAgent_;
    QVariantMap messages_; // agent to the last repair's outcome, kept across readings
    bool loaded_ = false;
    int generation_ = 0;
};

} // namespace mirrowisp
