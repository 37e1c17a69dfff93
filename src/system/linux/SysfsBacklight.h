#pragma once

#include "system/LevelDevice.h"

#include <QDBusConnection>
#include <QString>
#include <memory>
#include <optional>

namespace mirrowisp {

class UdevMonitor;

// The display's backlight from the kernel's backlight class (firmware before platform before raw
// interfaces), written through logind's SetBrightness on the user's session, which needs no root. A
// logind that refuses leaves the control read-only, so its keys stay the desktop's.
class SysfsBacklight final : public LevelDevice {
public:
    static inline const QString defaultRoot = QStringLiteral("/sys/class/backlight");

    explicit SysfsBacklight(QDBusConnection systemBus = QDBusConnection::systemBus(),
                            QString root = defaultRoot);
    ~SysfsBacklight() override;
    SysfsBacklight(const SysfsBacklight&) = delete;
    SysfsBacklight& operator=(const SysfsBacklight&) = delete;

    std::optional<double> read() override;
    bool canWrite() const override;
    void write(double level) override;
    // The device in use ("acpi_video0"), empty when there is none.
    QString device() const { return device_; }

private:
    void choose();
    std::optional<long> number(const QString& file) const;

    QDBusConnection bus_;
    // The kernel's change events hurry the poll along; a reading still comes from the poll.
    std::unique_ptr<UdevMonitor> monitor_;
    QString root_;
    QString device_;
    long max_ = 0;
    // Shared with replies still under way when the backlight goes.
    std::shared_ptr<bool> refused_ = std::make_shared<bool>(false);
};

} // namespace mirrowisp
