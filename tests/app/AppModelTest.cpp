#include "app/AppModel.h"

#include "app/LaunchAtLogin.h"
#include "app/Preferences.h"
#include "base/UserDefaults.h"
#include "support/TestSupport.h"

#include <QFile>
#include <QJsonDocument>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace mirrowisp;

namespace {

class NoLaunchAtLogin final : public LaunchAtLogin {
public:
    bool isEnabled() const override { return false; }
    std::optional<QString> setEnabled(bool) override { return std::nullopt; }
};

class AppModelTest : public testing::Test {
protected:
    AppModelTest()
        : defaults(home.path() + QStringLiteral("/d.json")), prefs(defaults, login),
          model(prefs, defaults, clock) {}

    // Routes one event as the bridge would; returns the reply the tool reads.
    QByteArray route(const QByteArray& event) {
        int fds[2];
        ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds);
        model.route(
            BridgeConnection::make({QStringLiteral("r"), AgentKind::claude, event, true, {}}, fds[0]));
        QByteArray reply;
        pollfd p{fds[1], POLLIN, 0};
        char buffer[512];
        ssize_t n = 0;
        while (::poll(&p, 1, 0) > 0 && (n = ::recv(fds[1], buffer, sizeof buffer, 0)) > 0) {
            reply.append(buffer, n);
        }
        ::close(fds[1]);
        return reply;
    }

    test::TemporaryHome home;
    UserDefaults defaults;
    NoLaunchAtLogin login;
    Preferences prefs;
    test::ManualClock clock;
    AppModel model;
};

} // namespace

TEST_F(AppModelTest, KeepsStatusLinesForTheUsageSideAndHandsEverythingElseToTheStore) {
    const QByteArray statusLine =
        R"({"hook_event_name":"StatusLine","session_id":"s","model":{"id":"opus"}})";
    EXPECT_EQ(route(statusLine), QByteArray("{\"id\":\"r\"}\n"));
    EXPECT_TRUE(model.agents().sessions().empty());
    ASSERT_TRUE(model.statusLines().contains(AgentKind::claude));
    EXPECT_EQ(model.statusLines().value(AgentKind::claude).value(QStringLiteral("session_id")),
              QStringLiteral("s"));

    EXPECT_EQ(route(R"({"hook_event_name":"SessionStart","session_id":"s"})"),
              QByteArray("{\"id\":\"r\"}\n"));
    EXPECT_EQ(model.agents().sessions().size(), 1U);
    EXPECT_EQ(route("not json"), QByteArray("{\"id\":\"r\"}\n"));
    EXPECT_EQ(model.agents().sessions().size(), 1U);
}

TEST_F(AppModelTest, SaysWhyTheBridgeCouldNotStartAndRunsOnWithoutIt) {
    qputenv("MIRROWISP_SUPPORT_DIR",
            QFile::encodeName(home.path() + QLatin1Char('/') + QString(120, QLatin1Char('x'))));
    model.start();
    ASSERT_TRUE(model.bridgeError().has_value());
    EXPECT_TRUE(model.bridgeError()->startsWith(QStringLiteral("Could not open the agent socket: ")));
    EXPECT_EQ(model.bridgeErrorText(), *model.bridgeError());
    model.stop(); // harmless without a socket
}
