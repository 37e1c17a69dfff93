#pragma once

#include "system/LevelDevice.h"

#include <QDBusConnection>
#include <QObject>
#include <memory>
#include <optional>

namespace mirrowisp {

// The keyboard light through UPower's KbdBacklight. D-Bus answers arrive later, so a reading is the
// last answer, and each reading asks again; BrightnessChanged updates it at once. No UPower, or no
// keyboard light, reads nothing, and the control comes back when UPower answers again.
class UPowerKbdBacklight final : public QObject, public LevelDevice {
    Q_OBJECT

public:
    explicit UPowerKbdBacklight(QDBusConnection systemBus = QDBusConnection::systemBus());

    std::optional<double> read() override;
    bool canWrite() const override { return max_ > 0; }
    void write(double level) override;

private Q_SLOTS:
    void brightnessChanged(int value);

private:
    void ask(const QString& method);
    void answered(const QString& method, std::optional<int> value);

    QDBusConnection bus_;
    int max_ = 0;
    std::optional<int> value_;
    bool asking_ = false;
};

} // namespace mirrowisp
