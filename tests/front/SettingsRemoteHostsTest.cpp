// The Agents page's remote hosts: the stored ones listed, a host typed in taken or refused, and a
// host that cannot be set up shown with the reason.
#include "front/SettingsRemoteHosts.h"

#include "FrontFixture.h"
#include "front/SettingsModel.h"
#include "front/SettingsWindow.h"
#include "remote/RemoteHostStore.h"
#include "remote/RemoteSetup.h"

#include <gtest/gtest.h>

using namespace mirrowisp;
using mirrowisp::test::text;

namespace {

class SettingsRemoteHostsTest : public testing::Test, public test::FrontFixture {};

TEST_F(SettingsRemoteHostsTest, ListsHostsAndTakesOnlyHostNames) {
    start();
    RemoteHostStore store(home.supportDir());
    store.put(RemoteHost{text("me@box"), {}, {}, text("/home/me"), text("Linux x86_64")});
    // No tool to copy: every add fails at once, without reaching ssh.
    RemoteSetup setup(store, home.path() + text("/no-tool"));
    SettingsServices withRemote = services();
    withRemote.remote = &setup;
    SettingsWindow settings(withRemote, engine);
    settings.show(text("agents"));
    ASSERT_NE(settings.window(), nullptr);
    ASSERT_NE(control(*settings.window(), text("remote.state.me@box")), nullptr);

    SettingsRemoteHosts& hosts = *settings.model().remoteHosts();
    for (const char* bad : {"", "-oProxyCommand=x", "a b", "me@box:99999", "box;rm"}) {
        EXPECT_FALSE(hosts.add(QString::fromLatin1(bad))) << bad;
        EXPECT_FALSE(hosts.error().isEmpty()) << bad;
    }
    ASSERT_TRUE(hosts.add(text(" dev@build-01:2222 ")));
    EXPECT_TRUE(hosts.error().isEmpty());
    // Rows are made again as the list changes: the label is looked up each time.
    EXPECT_TRUE(test::waitUntil([&] {
        QQuickItem* message = find(settings.window()->contentItem(), text("remote.message.dev@build-01"));
        return message != nullptr && message->property("text").toString().contains(text("no-tool"));
    }));
    const QVariantMap failed = hosts.rows().constLast().toMap();
    EXPECT_EQ(failed.value(text("setup")), text("failed"));
    EXPECT_EQ(failed.value(text("port")), 2222);
    EXPECT_EQ(store.hosts().size(), 1);
}

} // namespace
