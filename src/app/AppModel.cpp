#include "app/AppModel.h"

#include "base/Log.h"

#include <QPointer>

namespace mirrowisp {

AppModel::AppModel(Preferences& prefs, UserDefaults& defaults, const Clock& clock, QObject* parent)
    : QObject(parent), prefs_(prefs), agents_(prefs, defaults, clock) {}

AppModel::~AppModel() = default;

void AppModel::start() {
    startBridge();
}

void AppModel::stop() {
    if (bridge_) {
        bridge_->stop();
    }
}

void AppModel::startBridge() {
    QPointer<AppModel> weak(this);
    bridge_ = std::make_unique<BridgeServer>([weak](const std::shared_ptr<BridgeConnection>& connection) {
        if (weak) {
            weak->route(connection);
        } else {
            connection->reply();
        }
    });
    if (auto error = bridge_->start()) {
        bridgeError_ = QStringLiteral("Could not open the agent socket: ") + error->description;
        logLine(QStringLiteral("Mirrowisp: ") + *bridgeError_);
        Q_EMIT bridgeErrorChanged();
        return;
    }
    logLine(QStringLiteral("Mirrowisp: bridge listening on ") + bridge_->socketPath());
}

void AppModel::route(const std::shared_ptr<BridgeConnection>& connection) {
    // Parsed once here, for the route and for the store.
    const std::optional<QJsonObject> event = AgentStore::parsePayload(connection->request().payload);
    if (event &&
        event->value(QLatin1StringView("hook_event_name")) == QJsonValue(QStringLiteral("StatusLine"))) {
        // Status lines feed the usage meters, not the sessions.
        statusLines_.insert(connection->request().agent, *event);
        connection->reply();
        return;
    }
    agents_.handle(connection, event);
}

} // namespace mirrowisp
