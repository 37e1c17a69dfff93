#include "support/TestSupport.h"
#include "system/linux/SysfsBacklight.h"

#include <gtest/gtest.h>
#include <umockdev.h>

namespace mirrowisp::test {
namespace {

// A backlight device in a umockdev testbed (this program runs under umockdev-wrapper, which hands
// the testbed's uevents to udev's monitors).
TEST(BacklightEvents, KernelChangeEventHurriesThePollAndTheNewLevelReads) {
    UMockdevTestbed* testbed = umockdev_testbed_new();
    gchar* device =
        umockdev_testbed_add_device(testbed, "backlight", "acpi_video0", nullptr, "type", "firmware",
                                    "max_brightness", "10", "brightness", "4", nullptr, nullptr);
    ASSERT_NE(device, nullptr);
    const QString root =
        QString::fromUtf8(umockdev_testbed_get_sys_dir(testbed)) + QStringLiteral("/class/backlight");
    SysfsBacklight light(QDBusConnection(QStringLiteral("none")), root);
    int hints = 0;
    light.onHint = [&] { ++hints; };
    ASSERT_TRUE(waitUntil([&] { return light.read() == 0.4; }));

    umockdev_testbed_set_attribute(testbed, device, "brightness", "7");
    umockdev_testbed_uevent(testbed, device, "change");
    EXPECT_TRUE(waitUntil([&] { return hints > 0; }));
    EXPECT_TRUE(waitUntil([&] { return light.read() == 0.7; }));

    g_free(device);
    g_object_unref(testbed);
}

} // namespace
} // namespace mirrowisp::test
