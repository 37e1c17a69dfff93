#pragma once

#include "system/LevelDevice.h"

#include <QDBusConnection>
#include <QString>
#include <memory>
#include <optional>

namespace mirrowisp {

class SerialQueue;
class UdevMonitor;

// The display's backlight from the kernel's backlight class (firmware before platform before raw
// interfaces), written through logind's SetBrightness on the user's session, which needs no root. A
// logind that refuses leaves the control read-only, so its keys stay the desktop's. The files are
// read on a thread of their own (some backlights answer over a slow bus): a reading is the last
// answer, and each reading asks again.
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

    // What the reading thread found: the device in use ("acpi_video0"), its maximum and its level.
    struct Reading {
        QString device;
        long max = 0;
        long value = 0;
    };
    std::optional<Reading> lastReading() const;

private:
    void ask();

    QDBusConnection bus_;
    QString root_;
    // Shared with the reading thread's answers and logind's replies still under way.
    struct State;
    std::shared_ptr<State> state_;
    std::unique_ptr<SerialQueue> reader_;
    // The kernel's change events hurry the poll along; a reading still comes from the poll.
    std::unique_ptr<UdevMonitor> monitor_;
};

} // namespace mirrowisp
