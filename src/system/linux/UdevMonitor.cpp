#include "system/linux/UdevMonitor.h"

#include <QSocketNotifier>
#include <libudev.h>

namespace mirrowisp {

UdevMonitor::UdevMonitor(const char* subsystem, std::function<void()> changed)
    : changed_(std::move(changed)) {
    udev_ = udev_new();
    if (udev_ == nullptr) {
        return;
    }
    udev_monitor* monitor = udev_monitor_new_from_netlink(udev_, "udev");
    if (monitor == nullptr ||
        udev_monitor_filter_add_match_subsystem_devtype(monitor, subsystem, nullptr) < 0 ||
        udev_monitor_enable_receiving(monitor) < 0) {
        udev_monitor_unref(monitor);
        return;
    }
    monitor_ = monitor;
    notifier_ = std::make_unique<QSocketNotifier>(udev_monitor_get_fd(monitor_), QSocketNotifier::Read);
    connect(notifier_.get(), &QSocketNotifier::activated, this, &UdevMonitor::receive);
}

UdevMonitor::~UdevMonitor() {
    notifier_.reset();
    udev_monitor_unref(monitor_);
    udev_unref(udev_);
}

void UdevMonitor::receive() {
    bool any = false;
    while (udev_device* device = udev_monitor_receive_device(monitor_)) {
        udev_device_unref(device);
        any = true;
    }
    if (any && changed_) {
        changed_();
    }
}

} // namespace mirrowisp
