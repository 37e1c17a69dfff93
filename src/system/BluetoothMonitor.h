#pragma once

#include "system/BluetoothAudioDevice.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QVector>
#include <functional>
#include <memory>
#include <optional>

class QDBusServiceWatcher;

namespace mirrowisp {

// The connected Bluetooth audio devices as BlueZ lists them, with their batteries, and each new
// connection as it comes. What is connected when the monitor starts, or when BlueZ comes back, is
// listed without a greeting.
class BluetoothMonitor : public QObject {
    Q_OBJECT

public:
    explicit BluetoothMonitor(QDBusConnection systemBus, QObject* parent = nullptr);
    ~BluetoothMonitor() override;

    void start();
    const QVector<BluetoothAudioDevice>& connected() const { return connected_; }
    // The listed device of this address; the sound server writes it with "-" for ":".
    std::optional<BluetoothAudioDevice> connectedDevice(const QString& address) const;

    std::function<void(const BluetoothAudioDevice&)> onConnect;

Q_SIGNALS:
    void connectedChanged();

private Q_SLOTS:
    void interfacesChanged(const QDBusMessage& message);
    void propertiesChanged(const QDBusMessage& message);

private:
    void refresh(bool announce);
    void apply(const QVector<BluetoothAudioDevice>& devices, bool announce);

    QDBusConnection bus_;
    std::unique_ptr<QDBusServiceWatcher> watcher_;
    QVector<BluetoothAudioDevice> connected_;
    quint64 generation_ = 0;
};

} // namespace mirrowisp
