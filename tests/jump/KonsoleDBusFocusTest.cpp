#include "jump/linux/KonsoleDBusFocus.h"

#include "KonsoleWindowStandIn.h"
#include "support/TestSupport.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QProcess>
#include <future>
#include <gtest/gtest.h>

using namespace mirrowisp;

namespace {

class KonsoleFocusTest : public testing::Test {
protected:
    void SetUp() override {
        const QString address = bus.address();
        ASSERT_FALSE(address.isEmpty()) << "dbus-daemon did not start";
        QDBusConnection server = QDBusConnection::connectToBus(address, QStringLiteral("konsole-side"));
        ASSERT_TRUE(server.isConnected());
        ASSERT_TRUE(
            server.registerObject(QStringLiteral("/Windows/1"), &first, QDBusConnection::ExportAllSlots));
        ASSERT_TRUE(
            server.registerObject(QStringLiteral("/Windows/2"), &second, QDBusConnection::ExportAllSlots));
        ASSERT_TRUE(server.registerService(service));
        ASSERT_TRUE(QDBusConnection::connectToBus(address, QStringLiteral("app-side")).isConnected());
    }

    void TearDown() override {
        QDBusConnection::disconnectFromBus(QStringLiteral("app-side"));
        QDBusConnection::disconnectFromBus(QStringLiteral("konsole-side"));
    }

    // Runs the driver off the main thread, as the jump does, while the main loop answers for Konsole.
    bool focus(const QString& session) {
        auto result = std::async(std::launch::async, [&] {
            KonsoleDBusFocus driver(QStringLiteral("app-side"));
            return driver.focus(service, session);
        });
        test::waitUntil([&] { return result.wait_for(std::chrono::seconds(0)) == std::future_status::ready; },
                        10000);
        return result.get();
    }

    test::PrivateSessionBus bus;
    const QString service = QStringLiteral("org.kde.konsole-4242");
    KonsoleWindowStandIn first{{QStringLiteral("1"), QStringLiteral("2")}};
    KonsoleWindowStandIn second{{QStringLiteral("3"), QStringLiteral("14")}};
};

} // namespace

TEST_F(KonsoleFocusTest, MakesTheSessionCurrentInTheWindowThatHoldsItAndFailsOverOtherwise) {
    EXPECT_FALSE(focus(QStringLiteral("/Sessions/7"))) << "no window holds it";
    EXPECT_FALSE(focus(QStringLiteral("Sessions/1"))) << "not a session path";
    EXPECT_FALSE(KonsoleDBusFocus(QStringLiteral("app-side"))
                     .focus(QStringLiteral("org.kde.konsole-1"), QStringLiteral("/Sessions/1")))
        << "no such Konsole";
    EXPECT_EQ(first.current + second.current, 0);

    EXPECT_TRUE(focus(QStringLiteral("/Sessions/14")));
    EXPECT_EQ(second.current, 14);
    EXPECT_EQ(first.current, 0);
    EXPECT_TRUE(focus(QStringLiteral("/Sessions/2")));
    EXPECT_EQ(first.current, 2);
}
