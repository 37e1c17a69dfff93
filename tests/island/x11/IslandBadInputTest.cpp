// Hostile sessions through the real island window: long, right-to-left and emoji text, a hundred
// sessions at once, a plan of a megabyte. The island must stay on the screen, keep answering, and
// still answer the decision it shows.
#include "InProcessIsland.h"
#include "island/NotchViewModel.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace mirrowisp;

namespace {

class IslandBadInput : public test::InProcessIsland {
protected:
    void TearDown() override {
        InProcessIsland::TearDown();
        for (int fd : peers) {
            ::close(fd);
        }
    }

    // One hook event as the bridge hands it over; the tool's end stays open, as a waiting tool's does.
    void route(const QJsonObject& event) {
        int fds[2];
        ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds), 0);
        model.route(BridgeConnection::make({QStringLiteral("r"),
                                            AgentKind::claude,
                                            QJsonDocument(event).toJson(QJsonDocument::Compact),
                                            true,
                                            {}},
                                           fds[0]));
        peers.push_back(fds[1]);
    }

    // What the waiting tool of the last routed event reads.
    QByteArray lastReply() {
        QByteArray reply;
        pollfd p{peers.back(), POLLIN, 0};
        char buffer[4096];
        while (::poll(&p, 1, 0) > 0) {
            const ssize_t n = ::recv(peers.back(), buffer, sizeof buffer, MSG_DONTWAIT);
            if (n <= 0) {
                break;
            }
            reply.append(buffer, n);
        }
        return reply;
    }

    // The island settles inside its window: never wider than 820 or higher than 560.
    void expectOnScreen() {
        test::drainMainQueue();
        QElapsedTimer settle;
        settle.start();
        test::waitUntil([&] { return settle.elapsed() > 800; }, 2000);
        const QSizeF size = controller->model().targetSize();
        EXPECT_LE(size.width(), 820);
        EXPECT_LE(size.height(), 560);
        EXPECT_GT(size.height(), controller->model().notchSize().height());
    }

    std::vector<int> peers;
};

} // namespace

TEST_F(IslandBadInput, AHundredSessionsWithLongMixedTextStayInsideTheWindow) {
    const QString prompt = QString(10000, QLatin1Char('x'));
    const QString mixed = text("مرحبا بالعالم — שלום 👩‍💻🚀 ") + prompt.left(200);
    for (int i = 0; i < 100; ++i) {
        route({{text("hook_event_name"), text("UserPromptSubmit")},
               {text("session_id"), QStringLiteral("s%1").arg(i)},
               {text("cwd"), i % 3 == 0 ? QString() : QStringLiteral("/home/dev/%1").arg(mixed)},
               {text("prompt"), i % 2 == 0 ? prompt : mixed}});
    }
    controller->open(NotchTab::agents, true);
    expectOnScreen();
}

TEST_F(IslandBadInput, AHugeDetailAndAMegabytePlanStayInsideTheWindowAndCanStillBeAnswered) {
    QStringList lines;
    for (int i = 0; i < 500; ++i) {
        lines.append(QStringLiteral("line %1 of a very long command ").arg(i) +
                     QString(120, QLatin1Char('=')));
    }
    route({{text("hook_event_name"), text("PermissionRequest")},
           {text("session_id"), text("big-detail")},
           {text("cwd"), text("/home/dev/site")},
           {text("tool_name"), text("Bash")},
           {text("tool_input"), QJsonObject{{text("command"), lines.join(QLatin1Char('\n'))}}}});
    ASSERT_TRUE(test::waitUntil([&] { return controller->model().isOpen(); }, 5000));
    expectOnScreen();
    model.agents().dismiss(text("claude:big-detail"));

    QString plan;
    while (plan.size() < 1024 * 1024) {
        plan += text("## Step\n\n- item with **bold** and `code` and [a "
                     "link](https://example.org)\n\n```\ncode\n```\n");
    }
    route({{text("hook_event_name"), text("PermissionRequest")},
           {text("session_id"), text("big-plan")},
           {text("cwd"), text("/home/dev/site")},
           {text("tool_name"), text("ExitPlanMode")},
           {text("tool_input"), QJsonObject{{text("plan"), plan}}}});
    ASSERT_TRUE(test::waitUntil(
        [&] { return model.agents().findSession(text("claude:big-plan")) != nullptr; }, 5000));
    expectOnScreen();

    // The card still answers: the plan's decision goes back to its tool.
    const auto [decision, session] = model.agents().findDecision(
        model.agents().findSession(text("claude:big-plan"))->pending().front()->id());
    ASSERT_NE(decision, nullptr);
    model.agents().approvePlan(*decision, *session, false);
    QByteArray reply;
    EXPECT_TRUE(
        test::waitUntil([&] { return (reply += lastReply()).contains(R"(\"behavior\":\"allow\")"); }, 5000))
        << reply.toStdString();
}
