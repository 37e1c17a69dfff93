#include "jump/linux/KonsoleDBusFocus.h"

#include "KonsoleWindowStandIn.h"
#include "support/TestSupport.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QProcess>
#include <future>
#include <gtest/gtest.h>

using namespace mirrowisp;
using namespace Qt::StringLiterals;

namespace {

class KonsoleFocusTest : public testing::Test {
protected:
    void SetUp() override {
        const QString address = bus.address();
        ASSERT_FALSE(address.isEmpty()) << "dbus-daemon did not start";
        QDBusConnection server = QDBusConnection::connectToBus(address, u"konsole-side"_s);
        ASSERT_TRUE(server.isConnected());
        ASSERT_TRUE(server.registerObject(u"/Windows/1"_s, &first, QDBusConnection::ExportAllSlots));
        ASSERT_TRUE(server.registerObject(u"/Windows/2"_s, &second, QDBusConnection::ExportAllSlots));
        ASSERT_TRUE(server.registerService(service));
        ASSERT_TRUE(QDBusConnection::connectToBus(address, u"app-side"_s).isConnected());
    }

    void TearDown() override {
        QDBusConnection::disconnectFromBus(u"app-side"_s);
        QDBusConnection::disconnectFromBus(u"konsole-side"_s);
    }

    // Runs the driver off the main thread, as the jump does, while the main loop answers for Konsole.
    bool focus(const QString& session) {
        auto result = std::async(std::launch::async, [&] {
            KonsoleDBusFocus driver(u"app-side"_s);
            return driver.focus(service, session);
        });
        test::waitUntil([&] { return result.wait_for(std::chrono::seconds(0)) == std::future_status::ready; },
                        10000);
        return result.get();
    }

    test::PrivateSessionBus bus;
    const QString service = u"org.kde.konsole-4242"_s;
    KonsoleWindowStandIn first{{u"1"_s, u"2"_s}};
    KonsoleWindowStandIn second{{u"3"_s, u"14"_s}};
};

} // namespace

TEST_F(KonsoleFocusTest, MakesTheSessionCurrentInTheWindowThatHoldsItAndFailsOverOtherwise) {
    EXPECT_FALSE(focus(u"/Sessions/7"_s)) << "no window holds it";
    EXPECT_FALSE(focus(u"Sessions/1"_s)) << "not a session path";
    EXPECT_FALSE(KonsoleDBusFocus(u"app-side"_s).focus(u"org.kde.konsole-1"_s, u"/Sessions/1"_s))
        << "no such Konsole";
    EXPECT_EQ(first.current + second.current, 0);

    EXPECT_TRUE(focus(u"/Sessions/14"_s));
    EXPECT_EQ(second.current, 14);
    EXPECT_EQ(first.current, 0);
    EXPECT_TRUE(focus(u"/Sessions/2"_s));
    EXPECT_EQ(first.current, 2);
}
