#include "system/LockStateObserver.h"

#include "MockServices.h"

#include <QDBusObjectPath>
#include <gtest/gtest.h>

namespace mirrowisp::test {
namespace {

TEST(LockStateObserver, FollowsTheSessionsLockedHint) {
    MockServices services;
    ASSERT_TRUE(services.start(QStringLiteral("logind"), QStringLiteral("org.freedesktop.login1")));
    const QString login1 = QStringLiteral("org.freedesktop.login1");
    ASSERT_TRUE(
        services.mock(login1, QStringLiteral("/org/freedesktop/login1"), QStringLiteral("AddSession"),
                      {QStringLiteral("auto"), QStringLiteral("seat0"), 1000u, QStringLiteral("me"), true}));
    LockStateObserver observer(services.connection(), services.connection());
    std::vector<bool> changes;
    observer.onChange = [&](bool locked) { changes.push_back(locked); };
    observer.start();
    for (const bool locked : {true, false}) {
        // Sent again until heard: the observer subscribes once logind has named the session.
        ASSERT_TRUE(waitUntil([&] {
            services.mock(login1, QStringLiteral("/org/freedesktop/login1/session/auto"),
                          QStringLiteral("UpdateProperties"),
                          {QStringLiteral("org.freedesktop.login1.Session"),
                           QVariantMap{{QStringLiteral("LockedHint"), locked}}});
            return observer.isLocked() == locked && !changes.empty();
        }));
    }
    EXPECT_EQ(changes, (std::vector<bool>{true, false}));
}

TEST(LockStateObserver, FallsBackOnTheScreenSaverWithoutLogind) {
    MockServices services;
    const QString saver = QStringLiteral("org.freedesktop.ScreenSaver");
    ASSERT_TRUE(services.startObject(saver, QStringLiteral("/org/freedesktop/ScreenSaver"), saver));
    LockStateObserver observer(services.connection(), services.connection());
    observer.start();
    // The signal is heard only once the observer has given up on logind and subscribed.
    ASSERT_TRUE(waitUntil([&] {
        services.mock(saver, QStringLiteral("/org/freedesktop/ScreenSaver"), QStringLiteral("EmitSignal"),
                      {saver, QStringLiteral("ActiveChanged"), QStringLiteral("b"), QVariantList{true}});
        return observer.isLocked();
    }));
}

} // namespace
} // namespace mirrowisp::test
