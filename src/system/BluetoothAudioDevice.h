#pragma once

#include <QString>
#include <optional>

namespace mirrowisp {

// A connected Bluetooth audio device as the island greets it. Battery levels are percents.
struct BluetoothAudioDevice {
    QString name = QStringLiteral("Bluetooth device");
    QString address;
    std::optional<int> batteryLeft;
    std::optional<int> batteryRight;
    std::optional<int> batteryCase;
    std::optional<int> batterySingle;
    std::optional<int> productID;
    std::optional<int> colorID;
    std::optional<int> batteryCombined;
    // The freedesktop icon name BlueZ gives the device ("audio-headset"), or empty.
    QString icon;

    bool operator==(const BluetoothAudioDevice&) const = default;
};

} // namespace mirrowisp
