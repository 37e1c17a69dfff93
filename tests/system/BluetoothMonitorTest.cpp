#include "system/BluetoothMonitor.h"

#include "MockServices.h"

#include <gtest/gtest.h>

namespace mirrowisp::test {
namespace {

const QString bluez = QStringLiteral("org.bluez");
const QString mockInterface = QStringLiteral("org.bluez.Mock");
const QString device1 = QStringLiteral("org.bluez.Device1");
constexpr uint headsetClass = 0x240404;
constexpr uint keyboardClass = 0x002540;

class BluetoothMonitorTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(services.start(QStringLiteral("bluez5"), bluez));
        ASSERT_TRUE(services.mock(bluez, QStringLiteral("/"), QStringLiteral("AddAdapter"),
                                  {QStringLiteral("hci0"), QStringLiteral("laptop")}, mockInterface));
        monitor.onConnect = [this](const BluetoothAudioDevice& device) { announced.push_back(device); };
    }
    // A paired device of that class; its battery, when given, is there before it connects.
    QString add(const char* address, const QString& name, uint deviceClass,
                std::optional<uchar> battery = {}) {
        const QString path =
            QStringLiteral("/org/bluez/hci0/dev_") +
            QString::fromLatin1(address).toUpper().replace(QLatin1Char(':'), QLatin1Char('_'));
        EXPECT_TRUE(services.mock(bluez, QStringLiteral("/"), QStringLiteral("AddDevice"),
                                  {QStringLiteral("hci0"), QLatin1String(address), name}, mockInterface));
        update(path, {{QStringLiteral("Class"), deviceClass}});
        if (battery) {
            EXPECT_TRUE(
                services.mock(bluez, path, QStringLiteral("AddProperties"),
                              {QStringLiteral("org.bluez.Battery1"),
                               QVariantMap{{QStringLiteral("Percentage"), QVariant::fromValue(*battery)}}}));
        }
        return path;
    }
    void update(const QString& path, const QVariantMap& values) {
        EXPECT_TRUE(services.mock(bluez, path, QStringLiteral("UpdateProperties"), {device1, values}));
    }
    void setConnected(const QString& path, bool connected) {
        update(path, {{QStringLiteral("Connected"), connected}});
    }

    MockServices services;
    BluetoothMonitor monitor{services.connection()};
    std::vector<BluetoothAudioDevice> announced;
};

TEST_F(BluetoothMonitorTest, ListsWhatIsConnectedAtStartAndGreetsOnlyNewAudioConnections) {
    const QString early = add("11:22:33:44:55:66", QStringLiteral("Desk Speaker"), headsetClass, 0);
    setConnected(early, true);
    monitor.start();
    ASSERT_TRUE(waitUntil([&] { return monitor.connected().size() == 1; }));
    EXPECT_FALSE(monitor.connected().front().batterySingle); // 0 is no reading

    const QString keyboard = add("AA:AA:AA:AA:AA:AA", QStringLiteral("Keyboard"), keyboardClass);
    const QString headset = add("aa:bb:cc:dd:ee:ff", QStringLiteral("Headphones"), headsetClass, 80);
    setConnected(keyboard, true);
    setConnected(headset, true);
    ASSERT_TRUE(waitUntil([&] { return announced.size() == 1; }));
    EXPECT_EQ(announced.front().name, QStringLiteral("Headphones"));
    EXPECT_EQ(announced.front().batterySingle, 80);
    ASSERT_TRUE(monitor.connectedDevice(QStringLiteral("AA-BB-CC-DD-EE-FF")));
    EXPECT_EQ(monitor.connected().size(), 2);

    setConnected(headset, false);
    ASSERT_TRUE(waitUntil([&] { return monitor.connected().size() == 1; }));
    EXPECT_FALSE(monitor.connectedDevice(QStringLiteral("aa:bb:cc:dd:ee:ff")));
    setConnected(headset, true);
    ASSERT_TRUE(waitUntil([&] { return announced.size() == 2; }));
    EXPECT_EQ(monitor.connected().size(), 2);
}

TEST_F(BluetoothMonitorTest, ANamelessDeviceIsABluetoothDevice) {
    monitor.start();
    const QString path = add("12:34:56:78:9A:BC", QStringLiteral("12-34-56-78-9A-BC"), headsetClass);
    update(path, {{QStringLiteral("Name"), QString()}});
    setConnected(path, true);
    ASSERT_TRUE(waitUntil([&] { return announced.size() == 1; }));
    EXPECT_EQ(announced.front().name, QStringLiteral("Bluetooth device"));
}

// What BlueZ says of one connected headset, values of the wrong type among it, and what is listed.
struct DeviceCase {
    const char* name;
    QVariantMap device;  // Device1 properties over a named headset's
    QVariantMap battery; // Battery1, when there is one
    bool listed;
    QString shownName;
    std::optional<int> percent;
    QString icon;
};

class BlueZValues : public BluetoothMonitorTest, public testing::WithParamInterface<DeviceCase> {};

TEST_P(BlueZValues, CountAsMissingWhenOfTheWrongType) {
    const DeviceCase& row = GetParam();
    monitor.start();
    const QString path = add("11:22:33:44:55:66", QStringLiteral("Buds"), headsetClass);
    if (!row.battery.isEmpty()) {
        ASSERT_TRUE(services.mock(bluez, path, QStringLiteral("AddProperties"),
                                  {QStringLiteral("org.bluez.Battery1"), row.battery}));
    }
    QVariantMap device{{QStringLiteral("Connected"), true}};
    device.insert(row.device);
    update(path, device);
    // A plain headset connected after it: once it is listed, the first was seen too.
    setConnected(add("aa:bb:cc:dd:ee:ff", QStringLiteral("Other"), headsetClass), true);
    ASSERT_TRUE(
        waitUntil([&] { return monitor.connectedDevice(QStringLiteral("aa:bb:cc:dd:ee:ff")).has_value(); }));
    const auto listed = monitor.connectedDevice(QStringLiteral("11:22:33:44:55:66"));
    ASSERT_EQ(listed.has_value(), row.listed);
    if (listed) {
        EXPECT_EQ(listed->name, row.shownName);
        EXPECT_EQ(listed->batterySingle, row.percent);
        EXPECT_EQ(listed->icon, row.icon);
    }
}

const QString percentage = QStringLiteral("Percentage");
const QString icon = QStringLiteral("Icon");
INSTANTIATE_TEST_SUITE_P(
    Cases, BlueZValues,
    testing::Values(
        DeviceCase{"IconAndBattery",
                   {{icon, QStringLiteral("audio-headset")}},
                   {{percentage, QVariant::fromValue(uchar(64))}},
                   true,
                   QStringLiteral("Buds"),
                   64,
                   QStringLiteral("audio-headset")},
        DeviceCase{
            "BatteryAsText", {}, {{percentage, QStringLiteral("64")}}, true, QStringLiteral("Buds"), {}, {}},
        DeviceCase{"IconAsNumber", {{icon, 7u}}, {}, true, QStringLiteral("Buds"), {}, {}},
        DeviceCase{"NamesAsNumbers",
                   {{QStringLiteral("Name"), 7u}, {QStringLiteral("Alias"), 7u}},
                   {},
                   true,
                   QStringLiteral("Bluetooth device"),
                   {},
                   {}},
        DeviceCase{"ConnectedAsText",
                   {{QStringLiteral("Connected"), QStringLiteral("true")}},
                   {},
                   false,
                   {},
                   {},
                   {}},
        DeviceCase{
            "ClassAsText", {{QStringLiteral("Class"), QStringLiteral("2360324")}}, {}, false, {}, {}, {}}),
    [](const auto& param) { return param.param.name; });

TEST_F(BluetoothMonitorTest, EmptiesWhenBlueZGoesAndFollowsItWhenItComesBack) {
    const QString path = add("11:22:33:44:55:66", QStringLiteral("Speaker"), headsetClass);
    setConnected(path, true);
    monitor.start();
    ASSERT_TRUE(waitUntil([&] { return monitor.connected().size() == 1; }));
    services.stopLast();
    ASSERT_TRUE(waitUntil([&] { return monitor.connected().isEmpty(); }));
    ASSERT_TRUE(services.start(QStringLiteral("bluez5"), bluez));
    ASSERT_TRUE(services.mock(bluez, QStringLiteral("/"), QStringLiteral("AddAdapter"),
                              {QStringLiteral("hci0"), QStringLiteral("laptop")}, mockInterface));
    setConnected(add("11:22:33:44:55:66", QStringLiteral("Speaker"), headsetClass), true);
    ASSERT_TRUE(waitUntil([&] { return monitor.connected().size() == 1; }));
    EXPECT_EQ(announced.size(), 1u); // connected after the return: a new connection
}

} // namespace
} // namespace mirrowisp::test
