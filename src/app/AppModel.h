#pragma once

#include "agents/AgentStore.h"
#include "bridge/BridgeServer.h"

#include <QJsonObject>
#include <QObject>
#include <memory>
#include <optional>

namespace mirrowisp {

class Clock;
class Preferences;
class UserDefaults;

// The process-wide root: owns the bridge and the agent store, and routes every request that arrives.
class AppModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString bridgeError READ bridgeErrorText NOTIFY bridgeErrorChanged)

public:
    AppModel(Preferences& prefs, UserDefaults& defaults, const Clock& clock, QObject* parent = nullptr);
    ~AppModel() override;

    void start();
    // At exit: stops the bridge, which removes its socket file.
    void stop();

    // Why the socket could not be opened; set once, never cleared.
    const std::optional<QString>& bridgeError() const { return bridgeError_; }
    QString bridgeErrorText() const { return bridgeError_.value_or(QString()); }
    BridgeServer* bridge() const { return bridge_.get(); }
    AgentStore& agents() { return agents_; }
    Preferences& prefs() { return prefs_; }
    // The newest status-line event of each agent, for the usage meters.
    const QHash<AgentKind, QJsonObject>& statusLines() const { return statusLines_; }

    void route(const std::shared_ptr<BridgeConnection>& connection);

Q_SIGNALS:
    void bridgeErrorChanged();

private:
    void startBridge();

    Preferences& prefs_;
    AgentStore agents_;
    std::unique_ptr<BridgeServer> bridge_;
    std::optional<QString> bridgeError_;
    QHash<AgentKind, QJsonObject> statusLines_;
};

} // namespace mirrowisp
