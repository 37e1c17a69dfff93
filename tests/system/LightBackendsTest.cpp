#include "support/TestSupport.h"
#include "system/LevelControl.h"
#include "system/SystemFakes.h"
#include "system/linux/SysfsBacklight.h"
#include "system/linux/UPowerKbdBacklight.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace mirrowisp::test {
namespace {

// A bus standing in for the system bus, and python3-dbusmock services on it.
class MockBus {
public:
    MockBus()
        : connection_(QDBusConnection::connectToBus(bus_.address(), QStringLiteral("system-stand-in"))) {}
    ~MockBus() {
        for (auto& mock : mocks_) {
            mock->kill();
            mock->waitForFinished(5000);
        }
        QDBusConnection::disconnectFromBus(QStringLiteral("system-stand-in"));
    }
    QDBusConnection& connection() { return connection_; }

    // Starts a mock named `name` with one object; false when it does not appear on the bus.
    bool mock(const QString& name, const QString& path, const QString& interface) {
        auto process = std::make_unique<QProcess>();
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), bus_.address());
        process->setProcessEnvironment(env);
        process->start(QStringLiteral("/usr/bin/python3"),
                       {QStringLiteral("-m"), QStringLiteral("dbusmock"), name, path, interface});
        mocks_.push_back(std::move(process));
        return waitUntil([&] { return connection_.interface()->isServiceRegistered(name).value(); }, 10000);
    }
    bool addMethod(const QString& name, const QString& path, const QString& interface, const QString& method,
                   const QString& in, const QString& out, const QString& code) {
        QDBusMessage call = QDBusMessage::createMethodCall(
            name, path, QStringLiteral("org.freedesktop.DBus.Mock"), QStringLiteral("AddMethod"));
        call.setArguments({interface, method, in, out, code});
        return connection_.call(call).type() == QDBusMessage::ReplyMessage;
    }

private:
    PrivateSessionBus bus_;
    QDBusConnection connection_;
    std::vector<std::unique_ptr<QProcess>> mocks_;
};

const QString login1 = QStringLiteral("org.freedesktop.login1");
const QString sessionPath = QStringLiteral("/org/freedesktop/login1/session/auto");
const QString sessionInterface = QStringLiteral("org.freedesktop.login1.Session");

class SysfsBacklightTest : public testing::Test {
protected:
    void SetUp() override {
        for (const auto& [name, type, max, level] :
             {std::tuple{"a_dead", "firmware", "0", "0"}, std::tuple{"acpi_video0", "firmware", "10", "4"},
              std::tuple{"intel_backlight", "raw", "1000", "900"}}) {
            writeFile(path(name) + QStringLiteral("/type"), type);
            writeFile(path(name) + QStringLiteral("/max_brightness"), max);
            writeFile(path(name) + QStringLiteral("/brightness"), level);
        }
        ASSERT_TRUE(bus.mock(login1, sessionPath, sessionInterface));
    }
    QString path(const char* device) const { return sys.path() + QLatin1Char('/') + QLatin1String(device); }

    QTemporaryDir sys;
    MockBus bus;
};

TEST_F(SysfsBacklightTest, ReadsThePanelsFirmwareInterfaceAndWritesThroughLogind) {
    ASSERT_TRUE(bus.addMethod(
        login1, sessionPath, sessionInterface, QStringLiteral("SetBrightness"), QStringLiteral("ssu"), {},
        QStringLiteral("open('%1/' + args[1] + '/brightness', 'w').write(str(args[2]))").arg(sys.path())));
    auto device = std::make_unique<SysfsBacklight>(bus.connection(), sys.path());
    SysfsBacklight& light = *device;
    ASSERT_TRUE(waitUntil([&] { return light.read() == 0.4; }));
    EXPECT_EQ(light.lastReading()->device, QStringLiteral("acpi_video0"));

    ManualClock clock;
    FakeTimer::State timer;
    LevelControl control(std::move(device), clock, std::make_unique<FakeTimer>(timer));
    EXPECT_DOUBLE_EQ(control.adjust(0.25, true).value_or(-1), 0.75);
    EXPECT_TRUE(
        waitUntil([&] { return readFile(path("acpi_video0") + QStringLiteral("/brightness")) == "8"; }));
    EXPECT_TRUE(waitUntil([&] { return light.read() == 0.8; }));
}

TEST_F(SysfsBacklightTest, LogindWithoutSetBrightnessLeavesItReadOnly) {
    SysfsBacklight light(bus.connection(), sys.path());
    LogCapture log;
    ASSERT_TRUE(waitUntil([&] { return light.canWrite(); }));
    light.write(0.9);
    EXPECT_TRUE(waitUntil([&] { return !light.canWrite(); }));
    EXPECT_EQ(log.lines().filter(QStringLiteral("logind does not set")).size(), 1);
    EXPECT_TRUE(waitUntil([&] { return light.read() == 0.4; })) << "the panel kept its level";
}

TEST_F(SysfsBacklightTest, NoUsableBacklightReadsNothingUntilOneAppears) {
    QTemporaryDir empty;
    SysfsBacklight light(bus.connection(), empty.path());
    EXPECT_FALSE(light.read());
    EXPECT_FALSE(light.canWrite());
    writeFile(empty.path() + QStringLiteral("/panel/max_brightness"), "0");
    writeFile(empty.path() + QStringLiteral("/panel/brightness"), "0");
    EXPECT_FALSE(waitUntil([&] { return light.read().has_value(); }, 300))
        << "a maximum of 0 is no backlight";
    writeFile(empty.path() + QStringLiteral("/panel/max_brightness"), "100");
    EXPECT_TRUE(waitUntil([&] { return light.read() == 0.0; }));
}

const QString upower = QStringLiteral("org.freedesktop.UPower");
const QString kbdPath = QStringLiteral("/org/freedesktop/UPower/KbdBacklight");
const QString kbdInterface = QStringLiteral("org.freedesktop.UPower.KbdBacklight");

bool mockKeyboard(MockBus& bus) {
    return bus.mock(upower, kbdPath, kbdInterface) &&
           bus.addMethod(upower, kbdPath, kbdInterface, QStringLiteral("GetMaxBrightness"), {},
                         QStringLiteral("i"), QStringLiteral("ret = 5")) &&
           bus.addMethod(upower, kbdPath, kbdInterface, QStringLiteral("GetBrightness"), {},
                         QStringLiteral("i"), QStringLiteral("ret = getattr(self, 'level', 2)")) &&
           bus.addMethod(
               upower, kbdPath, kbdInterface, QStringLiteral("SetBrightness"), QStringLiteral("i"), {},
               QStringLiteral("self.level = args[0]; self.EmitSignal('%1', 'BrightnessChanged', 'i', "
                              "[args[0]])")
                   .arg(kbdInterface));
}

TEST(UPowerKbdBacklight, FollowsUPowerAndComesBackWithIt) {
    MockBus bus;
    ManualClock clock;
    FakeTimer::State timer;
    auto device = std::make_unique<UPowerKbdBacklight>(bus.connection());
    UPowerKbdBacklight* keyboard = device.get();
    LevelControl control(std::move(device), clock, std::make_unique<FakeTimer>(timer));
    std::vector<double> changes;
    control.onExternalChange = [&](double level) { changes.push_back(level); };
    control.start();
    EXPECT_FALSE(waitUntil([&] { return keyboard->read().has_value(); }, 300)) << "no UPower yet";

    ASSERT_TRUE(mockKeyboard(bus));
    ASSERT_TRUE(waitUntil([&] { return keyboard->read() == 0.4; }));
    control.poll();
    EXPECT_DOUBLE_EQ(control.adjust(0.2, false).value_or(-1), 0.6);
    EXPECT_DOUBLE_EQ(timer.interval, 1.0);

    // The desktop turns the light up: the signal hurries the poll, which reports it.
    clock.advance(1);
    QDBusMessage set =
        QDBusMessage::createMethodCall(upower, kbdPath, kbdInterface, QStringLiteral("SetBrightness"));
    set.setArguments({5});
    bus.connection().call(set);
    ASSERT_TRUE(waitUntil([&] { return keyboard->read() == 1.0; }));
    EXPECT_DOUBLE_EQ(timer.interval, 0.1);
    control.poll();
    EXPECT_EQ(changes, std::vector<double>{1.0});
}

} // namespace
} // namespace mirrowisp::test
