#pragma once

#include <QObject>
#include <functional>
#include <memory>

class QSocketNotifier;
struct udev;
struct udev_monitor;

namespace mirrowisp {

// The kernel's uevents for one subsystem ("backlight"), as udev passes them on: each one calls
// `changed`. Without udev it stays silent, and the poll alone keeps up.
class UdevMonitor final : public QObject {
    Q_OBJECT

public:
    UdevMonitor(const char* subsystem, std::function<void()> changed);
    ~UdevMonitor() override;
    UdevMonitor(const UdevMonitor&) = delete;
    UdevMonitor& operator=(const UdevMonitor&) = delete;

    bool isListening() const { return monitor_ != nullptr; }

private:
    void receive();

    std::function<void()> changed_;
    udev* udev_ = nullptr;
    udev_monitor* monitor_ = nullptr;
    std::unique_ptr<QSocketNotifier> notifier_;
};

} // namespace mirrowisp
