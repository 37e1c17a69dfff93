// Hostile sessions through the real island window (long, right-to-left and emoji text, a hundred at
// once, a megabyte plan): the island stays on the screen and still answers the decision it shows.
#include "../CardStoreFixture.h"
#include "InProcessIsland.h"
#include "island/NotchViewModel.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <gtest/gtest.h>

using namespace mirrowisp;

namespace {

class IslandBadInput : public test::InProcessIsland {
protected:
    // One hook event as the bridge hands it over; the tool's end stays open, as a waiting tool's does.
    void route(const QJsonObject& event) {
        calls.push_back(test::hookCall(QStringLiteral("r%1").arg(calls.size()), AgentKind::claude, event));
        model.route(calls.back().connection);
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

    std::vector<test::HookCall> calls;
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
    std::optional<QString> printed;
    EXPECT_TRUE(test::waitUntil([&] { return (printed = calls.back().tool->printed()).has_value(); }, 5000));
    EXPECT_TRUE(printed.value_or(QString()).contains(text(R"("behavior":"allow")")));
}
