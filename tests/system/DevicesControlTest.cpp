#include "MockServices.h"
#include "support/RealApp.h"
#include "support/ScopedEnvironment.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <gtest/gtest.h>

namespace mirrowisp::test {
namespace {

// The real app with UPower and BlueZ stand-ins as its system bus, through `mirrowisp ctl devices`.
TEST(DevicesControl, PrintsTheBatteryAndTheConnectedHeadset) {
    MockServices services;
    const QString upower = QStringLiteral("org.freedesktop.UPower");
    const QString bluez = QStringLiteral("org.bluez");
    ASSERT_TRUE(services.start(QStringLiteral("upower"), upower, QStringLiteral("{\"OnBattery\": true}")));
    ASSERT_TRUE(services.mock(
        upower, QStringLiteral("/org/freedesktop/UPower"), QStringLiteral("SetupDisplayDevice"),
        {2u, 2u, 64.0, 64.0, 100.0, 5.0, qlonglong(0), qlonglong(0), true, QStringLiteral("battery"), 1u}));
    ASSERT_TRUE(services.start(QStringLiteral("bluez5"), bluez));
    const QString mock = QStringLiteral("org.bluez.Mock");
    ASSERT_TRUE(services.mock(bluez, QStringLiteral("/"), QStringLiteral("AddAdapter"),
                              {QStringLiteral("hci0"), QStringLiteral("laptop")}, mock));
    ASSERT_TRUE(services.mock(
        bluez, QStringLiteral("/"), QStringLiteral("AddDevice"),
        {QStringLiteral("hci0"), QStringLiteral("AA:BB:CC:DD:EE:FF"), QStringLiteral("Buds")}, mock));
    ASSERT_TRUE(services.mock(bluez, QStringLiteral("/org/bluez/hci0/dev_AA_BB_CC_DD_EE_FF"),
                              QStringLiteral("UpdateProperties"),
                              {QStringLiteral("org.bluez.Device1"),
                               QVariantMap{{QStringLiteral("Class"), 0x240404u},
                                           {QStringLiteral("Icon"), QStringLiteral("audio-headset")},
                                           {QStringLiteral("Connected"), true}}}));
    ScopedEnvironment env;
    env.set("DBUS_SYSTEM_BUS_ADDRESS", services.address().toUtf8());
    RealApp app(false);
    ASSERT_TRUE(app.start());

    QJsonObject devices;
    ASSERT_TRUE(waitUntil(
        [&] {
            devices = QJsonDocument::fromJson(app.ctl({text("devices")}).out).object();
            return devices.value(text("bluetooth")).toArray().size() == 1 &&
                   devices.value(text("battery")).toObject().contains(text("level"));
        },
        10000));
    EXPECT_EQ(devices.value(text("battery")).toObject().value(text("level")).toInt(), 64);
    const QJsonObject buds = devices.value(text("bluetooth")).toArray().at(0).toObject();
    EXPECT_EQ(buds.value(text("name")).toString(), text("Buds"));
    EXPECT_EQ(buds.value(text("icon")).toString(), text("audio-headset"));
    EXPECT_EQ(devices.value(text("locked")), QJsonValue(false));

    EXPECT_EQ(app.ctl({text("sound"), text("done")}).exitCode, 0);
    EXPECT_NE(app.ctl({text("sound"), text("fanfare")}).exitCode, 0);
}

} // namespace
} // namespace mirrowisp::test
