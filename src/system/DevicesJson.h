#pragma once

#include <QJsonObject>

namespace mirrowisp {

class BatteryMonitor;
class BluetoothMonitor;
class LockStateObserver;

// The battery, the connected Bluetooth audio devices and the lock state, for `mirrowisp ctl devices`.
QJsonObject devicesJson(const BatteryMonitor& battery, const BluetoothMonitor& bluetooth,
                        const LockStateObserver& lockState);

} // namespace mirrowisp
