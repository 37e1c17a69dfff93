#include "app/AppModel.h"

#include "base/Log.h"

#include <QPointer>

namespace mirrowisp {

AppModel::AppModel(QObject* parent) : QObject(parent) {}

AppModel::~AppModel() = default;

void AppModel::start() { startBridge(); }

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
    // Until sessions are tracked, every request gets the empty reply: "no decision, carry on",
    // so the agent falls back on its own prompt at once.
    connection->reply();
}

} // namespace mirrowisp
