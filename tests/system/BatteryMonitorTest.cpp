#include "system/BatteryMonitor.h"

#include "MockServices.h"

#include <QDBusVariant>
#include <gtest/gtest.h>
#include <vector>

namespace mirrowisp::test {
namespace {

using Kind = BatteryMonitor::Event::Kind;
// The kind and the level of an event.
using Event = std::pair<Kind, int>;

struct Reading {
    double level;
    bool ac;
    bool battery = true;
};

struct BatteryCase {
    const char* name;
    std::vector<Reading> readings; // the first is the silent reading at launch
    std::vector<Event> events;
};

class BatteryEvents : public testing::TestWithParam<BatteryCase> {};

TEST_P(BatteryEvents, FireOnceEachAndOneLowWarningPerUpdate) {
    BatteryMonitor monitor{QDBusConnection(QString())};
    std::vector<Event> events;
    monitor.onEvent = [&](const BatteryMonitor::Event& event) {
        events.emplace_back(event.kind, event.level);
    };
    bool first = true;
    for (const Reading& reading : GetParam().readings) {
        PowerSource source{
            reading.battery, reading.level, 100.0, reading.ac, reading.ac && reading.level < 100, {}, {}};
        monitor.update(source, !first);
        first = false;
    }
    EXPECT_EQ(events, GetParam().events);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, BatteryEvents,
    testing::Values(
        BatteryCase{"PowerAtFull", {{100, false}, {100, true}}, {{Kind::pluggedIn, 100}}},
        BatteryCase{"ReachingFullWhilePlugged",
                    {{98, true}, {99, true}, {100, true}, {100, true}},
                    {{Kind::fullyCharged, 100}}},
        BatteryCase{"DischargePastEachLevel",
                    {{30, false}, {20, false}, {15, false}, {10, false}, {5, false}, {4, false}},
                    {{Kind::low, 20}, {Kind::low, 10}, {Kind::low, 5}}},
        BatteryCase{"LevelAloneDoesNotRearm",
                    {{30, false}, {19, false}, {25, false}, {19, false}},
                    {{Kind::low, 19}}},
        BatteryCase{"OneWarningPerUpdate",
                    {{30, false}, {4, false}, {4, false}, {4, false}, {4, false}},
                    {{Kind::low, 4}, {Kind::low, 4}, {Kind::low, 4}}},
        BatteryCase{"PowerRearms",
                    {{30, false}, {19, false}, {19, true}, {19, false}},
                    {{Kind::low, 19}, {Kind::pluggedIn, 19}, {Kind::unplugged, 19}, {Kind::low, 19}}},
        BatteryCase{"LaunchAnnouncesNothing", {{3, false}}, {}},
        BatteryCase{"NoBatteryNeverFires", {{50, true, false}, {3, false, false}, {100, true, false}}, {}},
        BatteryCase{"ABatteryThatAppearsIsAFirstReading",
                    {{0, true, false}, {3, false}, {3, true}},
                    {{Kind::pluggedIn, 3}}}),
    [](const auto& param) { return param.param.name; });

TEST(BatteryReading, LevelAndMinutesFromTheDescription) {
    BatteryMonitor monitor{QDBusConnection(QString())};
    monitor.update(PowerSource{true, 3000, 3000.0, false, false, {}, 0.0}, false);
    EXPECT_EQ(monitor.level(), 100);
    EXPECT_FALSE(monitor.minutesRemaining());
    monitor.update(PowerSource{true, 42, 0.0, true, true, 75.0, 10.0}, false);
    EXPECT_EQ(monitor.level(), 42);
    EXPECT_EQ(monitor.minutesRemaining(), 75);
    monitor.update(std::nullopt, true);
    EXPECT_EQ(monitor.level(), 42);
    EXPECT_TRUE(monitor.hasBattery());
}

const QString upower = QStringLiteral("org.freedesktop.UPower");
const QString upowerPath = QStringLiteral("/org/freedesktop/UPower");

// state 2 discharging, 1 charging; energy of 100 so the level is the energy.
bool setupDisplay(MockServices& services, uint type, uint state, double level) {
    return services.mock(upower, upowerPath, QStringLiteral("SetupDisplayDevice"),
                         {type, state, level, level, 100.0, 5.0, qlonglong(1800), qlonglong(0), type == 2,
                          QStringLiteral("battery"), 1u});
}
bool setOnBattery(MockServices& services, bool onBattery) {
    return services.mock(upower, upowerPath, QStringLiteral("UpdateProperties"),
                         {upower, QVariantMap{{QStringLiteral("OnBattery"), onBattery}}});
}

TEST(BatteryMonitorUPower, FollowsTheDisplayDeviceAndThePowerProfile) {
    MockServices services;
    ASSERT_TRUE(services.start(QStringLiteral("upower"), upower, QStringLiteral("{\"OnBattery\": true}")));
    ASSERT_TRUE(
        services.start(QStringLiteral("power_profiles_daemon"), QStringLiteral("net.hadess.PowerProfiles")));
    ASSERT_TRUE(setupDisplay(services, 2, 2, 50));
    BatteryMonitor monitor(services.connection());
    std::vector<BatteryMonitor::Event> events;
    monitor.onEvent = [&](const BatteryMonitor::Event& event) { events.push_back(event); };
    monitor.start();
    ASSERT_TRUE(waitUntil([&] { return monitor.hasBattery() && monitor.level() == 50; }));
    EXPECT_EQ(monitor.minutesRemaining(), 30);
    EXPECT_FALSE(monitor.isPluggedIn());

    ASSERT_TRUE(setupDisplay(services, 2, 1, 51));
    ASSERT_TRUE(setOnBattery(services, false));
    ASSERT_TRUE(waitUntil([&] { return monitor.isPluggedIn() && monitor.isCharging(); }));
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events.front().kind, Kind::pluggedIn);
    EXPECT_TRUE(events.front().charging);

    ASSERT_TRUE(
        services.mock(QStringLiteral("net.hadess.PowerProfiles"), QStringLiteral("/net/hadess/PowerProfiles"),
                      QStringLiteral("UpdateProperties"),
                      {QStringLiteral("net.hadess.PowerProfiles"),
                       QVariantMap{{QStringLiteral("ActiveProfile"), QStringLiteral("power-saver")}}}));
    EXPECT_TRUE(waitUntil([&] { return monitor.isLowPowerMode(); }));
}

// A display device at 50 % with 30 minutes left on battery, then values of the wrong type.
struct WrongTypeCase {
    const char* name;
    QVariantMap values;
    bool battery;
    int level;
    std::optional<int> minutes;
};

class UPowerValues : public testing::TestWithParam<WrongTypeCase> {};

TEST_P(UPowerValues, CountAsMissing) {
    MockServices services;
    ASSERT_TRUE(services.start(QStringLiteral("upower"), upower, QStringLiteral("{\"OnBattery\": true}")));
    ASSERT_TRUE(setupDisplay(services, 2, 2, 50));
    BatteryMonitor monitor(services.connection());
    int events = 0;
    monitor.onEvent = [&](const BatteryMonitor::Event&) { ++events; };
    monitor.start();
    ASSERT_TRUE(waitUntil([&] { return monitor.hasBattery() && monitor.minutesRemaining() == 30; }));
    ASSERT_TRUE(services.mock(upower, QStringLiteral("/org/freedesktop/UPower/devices/DisplayDevice"),
                              QStringLiteral("UpdateProperties"),
                              {QStringLiteral("org.freedesktop.UPower.Device"), GetParam().values}));
    const WrongTypeCase& row = GetParam();
    ASSERT_TRUE(waitUntil(
        [&] { return monitor.hasBattery() == row.battery && monitor.minutesRemaining() == row.minutes; }));
    if (row.battery) {
        EXPECT_EQ(monitor.level(), row.level);
    }
    EXPECT_EQ(events, 0);
}

const QString timeToEmpty = QStringLiteral("TimeToEmpty");
INSTANTIATE_TEST_SUITE_P(
    Cases, UPowerValues,
    testing::Values(
        WrongTypeCase{"TypeAsText", {{QStringLiteral("Type"), QStringLiteral("2")}}, false, 0, 30},
        WrongTypeCase{"EnergyAsText",
                      {{QStringLiteral("Energy"), QStringLiteral("40")},
                       {QStringLiteral("Percentage"), 45.0},
                       {timeToEmpty, qlonglong(1200)}},
                      true,
                      45,
                      20},
        WrongTypeCase{"TimeAsText", {{timeToEmpty, QStringLiteral("1800")}}, true, 50, {}}),
    [](const auto& param) { return param.param.name; });

TEST(BatteryMonitorUPower, UPowerThatComesAfterTheStartIsFollowedFromThen) {
    MockServices services;
    BatteryMonitor monitor(services.connection());
    std::vector<Kind> events;
    monitor.onEvent = [&](const BatteryMonitor::Event& event) { events.push_back(event.kind); };
    monitor.start();
    ASSERT_TRUE(services.start(QStringLiteral("upower"), upower, QStringLiteral("{\"OnBattery\": true}")));
    ASSERT_TRUE(setupDisplay(services, 2, 2, 3));
    ASSERT_TRUE(waitUntil([&] { return monitor.hasBattery() && monitor.level() == 3; }));
    EXPECT_TRUE(events.empty()) << "a battery seen for the first time is no news";
    ASSERT_TRUE(setOnBattery(services, false));
    ASSERT_TRUE(waitUntil([&] { return !events.empty(); }));
    EXPECT_EQ(events, std::vector<Kind>{Kind::pluggedIn});
}

TEST(BatteryMonitorUPower, ABatteryThatGoesAndComesBackIsFollowedQuietly) {
    MockServices services;
    ASSERT_TRUE(services.start(QStringLiteral("upower"), upower));
    ASSERT_TRUE(setupDisplay(services, 2, 2, 50));
    BatteryMonitor monitor(services.connection());
    int events = 0;
    monitor.onEvent = [&](const BatteryMonitor::Event&) { ++events; };
    monitor.start();
    ASSERT_TRUE(waitUntil([&] { return monitor.hasBattery(); }));
    ASSERT_TRUE(setupDisplay(services, 0, 0, 3));
    ASSERT_TRUE(waitUntil([&] { return !monitor.hasBattery(); }));
    // Power removed and a level under every threshold, without a battery: nothing to tell.
    ASSERT_TRUE(setOnBattery(services, true));
    ASSERT_TRUE(setupDisplay(services, 0, 0, 2));
    ASSERT_TRUE(setOnBattery(services, false));
    ASSERT_TRUE(
        setupDisplay(services, 2, 2, 50)); // back as it was: a reading that shows the others were read
    ASSERT_TRUE(waitUntil([&] { return monitor.hasBattery(); }));
    EXPECT_EQ(events, 0);
}

} // namespace
} // namespace mirrowisp::test
