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
    QVariantMap device;  // Device1 properties over a headset named "Buds"
    QVariantMap battery; // Battery1, when there is one
    const char* shown;   // the name listed, or null when it is not listed
    std::optional<int> percent;
    const char* icon = "";
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
    ASSERT_EQ(listed.has_value(), row.shown != nullptr);
    if (listed) {
        EXPECT_EQ(listed->name, QLatin1String(row.shown));
        EXPECT_EQ(listed->batterySingle, row.percent);
        EXPECT_EQ(listed->icon, QLatin1String(row.icon));
    }
}

QVariantMap values(const char* key, const QVariant& value) {
    return {{QLatin1String(key), value}};
}

INSTANTIATE_TEST_SUITE_P(
    Cases, BlueZValues,
    testing::Values(
        DeviceCase{"IconAndBattery", values("Icon", QStringLiteral("audio-headset")),
                   values("Percentage", QVariant::fromValue(uchar(64))), "Buds", 64, "audio-headset"},
        DeviceCase{"BatteryAsText", {}, values("Percentage", QStringLiteral("64")), "Buds", {}},
        DeviceCase{"IconAsNumber", values("Icon", 7u), {}, "Buds", {}},
        DeviceCase{"NamesAsNumbers",
                   {{QStringLiteral("Name"), 7u}, {QStringLiteral("Alias"), 7u}},
                   {},
                   "Bluetooth device",
                   {}},
        DeviceCase{"ConnectedAsText", values("Connected", QStringLiteral("true")), {}, nullptr, {}},
        DeviceCase{"ClassAsText", values("Class", QStringLiteral("2360324")), {}, nullptr, {}}),
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
