#include "system/DevicesJson.h"

#include "system/BatteryMonitor.h"
#include "system/BluetoothMonitor.h"
#include "system/LockStateObserver.h"

#include <QJsonArray>

namespace mirrowisp {

QJsonObject devicesJson(const BatteryMonitor& battery, const BluetoothMonitor& bluetooth,
                        const LockStateObserver& lockState) {
    QJsonObject power{{QStringLiteral("present"), battery.hasBattery()},
                      {QStringLiteral("lowPowerMode"), battery.isLowPowerMode()}};
    if (battery.hasBattery()) {
        power.insert(QStringLiteral("level"), battery.level());
        power.insert(QStringLiteral("charging"), battery.isCharging());
        power.insert(QStringLiteral("pluggedIn"), battery.isPluggedIn());
        if (const auto minutes = battery.minutesRemaining()) {
            power.insert(QStringLiteral("minutesRemaining"), *minutes);
        }
    }
    QJsonArray devices;
    for (const BluetoothAudioDevice& device : bluetooth.connected()) {
        QJsonObject entry{{QStringLiteral("name"), device.name}, {QStringLiteral("address"), device.address}};
        if (!device.icon.isEmpty()) {
            entry.insert(QStringLiteral("icon"), device.icon);
        }
        if (device.batterySingle) {
            entry.insert(QStringLiteral("battery"), *device.batterySingle);
        }
        devices.append(entry);
    }
    return {{QStringLiteral("battery"), power},
            {QStringLiteral("bluetooth"), devices},
            {QStringLiteral("locked"), lockState.isLocked()}};
}

} // namespace mirrowisp
