#pragma once

#include "bridge/BridgeServer.h"

#include <QObject>
#include <memory>
#include <optional>

namespace mirrowisp {

// The process-wide root: owns the bridge and routes every request that arrives on it.
class AppModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString bridgeError READ bridgeErrorText NOTIFY bridgeErrorChanged)

public:
    explicit AppModel(QObject* parent = nullptr);
    ~AppModel() override;

    void start();
    // At exit: stops the bridge, which removes its socket file.
    void stop();

    // Why the socket could not be opened; set once, never cleared.
    const std::optional<QString>& bridgeError() const { return bridgeError_; }
    QString bridgeErrorText() const { return bridgeError_.value_or(QString()); }
    BridgeServer* bridge() const { return bridge_.get(); }

    void route(const std::shared_ptr<BridgeConnection>& connection);

Q_SIGNALS:
    void bridgeErrorChanged();

private:
    void startBridge();

    std::unique_ptr<BridgeServer> bridge_;
    std::optional<QString> bridgeError_;
};

} // namespace mirrowisp
