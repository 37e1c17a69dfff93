#include "island/NotchManager.h"

#include "CardStoreFixture.h"
#include "IslandTestSupport.h"
#include "island/DecisionCardActions.h"
#include "island/DecisionCardModel.h"
#include "island/NotchViewModel.h"
#include "island/NotchWindowController.h"

#include <QSignalSpy>
#include <gtest/gtest.h>
#include <tuple>

using namespace mirrowisp;
using test::makeScreen;

namespace {

class NotchManagerTest : public testing::Test {
protected:
    NotchManagerTest() : manager(screens, world.env(), world.factory()) {
        screens.set({makeScreen(1, 0), makeScreen(2, 1920), makeScreen(3, 3840)});
    }

    QList<quint32> islandScreens() const {
        QList<quint32> ids;
        for (const NotchWindowController* c : manager.controllers()) {
            ids.append(c->screenID());
        }
        return ids;
    }

    test::IslandWorld world;
    test::FakeScreenSource screens;
    NotchManager manager;
};

TEST_F(NotchManagerTest, TheDisplayChoicePicksTheScreens) {
    manager.start();
    EXPECT_EQ(islandScreens(), QList<quint32>{1}) << "without a notch, the primary screen";

    world.prefs.setDisplayChoice(DisplayChoice::allDisplays);
    EXPECT_EQ(islandScreens(), (QList<quint32>{1, 2, 3}));
    EXPECT_EQ(world.panelFor(3)->frame, QRect(3840 + 960 - 410, 0, 820, 560));
    world.prefs.setFakeNotchWidth(200);
    for (const NotchWindowController* c : manager.controllers()) {
        EXPECT_EQ(c->model().notchSize(), QSizeF(200, 30))
            << "the notch width reaches island " << c->screenID();
    }

    world.prefs.setDisplayChoice(DisplayChoice::main);
    EXPECT_EQ(islandScreens(), QList<quint32>{1});

    manager.controller(1)->model().setTab(NotchTab::agents);
    manager.setEnabled(false);
    manager.rebuild();
    EXPECT_TRUE(manager.controllers().isEmpty());
    EXPECT_EQ(manager.primaryController(), nullptr);
    manager.openAgentsAutomatically();
    EXPECT_FALSE(manager.isAnyIslandOpen());
    manager.setEnabled(true);
    manager.rebuild();
    EXPECT_EQ(manager.controller(1)->model().tab(), NotchTab::home) << "islands come back fresh";
}

TEST_F(NotchManagerTest, AnOpenIslandSurvivesARearrangement) {
    manager.start();
    QSignalSpy changes(&manager, &NotchManager::controllersChanged);
    NotchWindowController* island = manager.controller(1);
    island->open(NotchTab::agents, false);

    screens.set({makeScreen(1, 0, 2560, 1440), makeScreen(2, 2560)});
    EXPECT_EQ(manager.controller(1), island);
    EXPECT_TRUE(island->model().isOpen());
    EXPECT_EQ(world.panelFor(1)->frame, QRect(1280 - 410, 0, 820, 560));
    EXPECT_EQ(changes.count(), 0);

    // Unplugging the island's screen: its window goes and the remaining screen gets a fresh one.
    const auto oldPanel = world.panelFor(1);
    screens.set({makeScreen(2, 0)});
    EXPECT_FALSE(oldPanel->alive);
    EXPECT_FALSE(oldPanel->visible);
    EXPECT_EQ(islandScreens(), QList<quint32>{2});
    EXPECT_FALSE(manager.controller(2)->model().isOpen());
    EXPECT_TRUE(world.panelFor(2)->visible);
    EXPECT_EQ(changes.count(), 1);

    world.prefs.setDisplayChoice(DisplayChoice::allDisplays);
    const auto panels = world.panels.size();
    screens.set({makeScreen(0, 0), makeScreen(0, 1920)});
    EXPECT_EQ(islandScreens(), QList<quint32>{0}) << "screens sharing an id share an island";
    EXPECT_EQ(world.panels.size(), panels + 1);
}

TEST_F(NotchManagerTest, AutomaticOpeningsGoToTheScreenUnderThePointer) {
    world.prefs.setDisplayChoice(DisplayChoice::allDisplays);
    manager.start();
    ASSERT_EQ(manager.controllers().size(), 3);

    world.pointer.setPosition({4000, 700});
    manager.openAgentsAutomatically();
    NotchWindowController* third = manager.controller(3);
    EXPECT_TRUE(third->model().isOpen());
    EXPECT_TRUE(third->model().openedAutomatically());
    EXPECT_EQ(third->model().tab(), NotchTab::agents);
    EXPECT_FALSE(manager.controller(1)->model().isOpen());
    EXPECT_TRUE(manager.isShowingAgents());
    EXPECT_FALSE(manager.isPointerOverOpenIsland());
    world.pointer.setPosition({3840 + 960, 100});
    EXPECT_TRUE(manager.isPointerOverOpenIsland());

    world.pointer.setPosition({-500, -500});
    EXPECT_EQ(manager.primaryController(), manager.controller(1)) << "off every screen: the first";

    manager.controller(1)->open(NotchTab::home, false);
    manager.closeAutomaticallyOpened();
    EXPECT_FALSE(third->model().isOpen());
    EXPECT_TRUE(manager.controller(1)->model().isOpen()) << "the user's island stays";
    EXPECT_FALSE(manager.isShowingAgents());
    EXPECT_TRUE(manager.isAnyIslandOpen());
}

TEST_F(NotchManagerTest, ShowBrieflyClosesOnlyAnIslandNobodyTookOver) {
    manager.start();
    NotchWindowController* island = manager.controller(1);

    manager.showBriefly(NotchTab::shelf, 3);
    EXPECT_TRUE(island->model().openedAutomatically());
    EXPECT_EQ(island->model().tab(), NotchTab::shelf);
    world.tasks.advance(2.9);
    EXPECT_TRUE(island->model().isOpen());
    world.tasks.advance(0.2);
    EXPECT_FALSE(island->model().isOpen());

    island->open(NotchTab::home, false);
    manager.showBriefly(NotchTab::agents, 3);
    world.tasks.advance(5);
    EXPECT_TRUE(island->model().isOpen()) << "the user opened it";
    EXPECT_EQ(island->model().tab(), NotchTab::agents);

    island->closeIsland();
    manager.showBriefly(NotchTab::agents, 3);
    manager.openAgentsAutomatically();
    world.tasks.advance(5);
    EXPECT_TRUE(island->model().isOpen()) << "a later open makes the close stale";

    island->closeIsland();
    manager.showBriefly(NotchTab::agents, 3);
    screens.set({});
    EXPECT_TRUE(manager.controllers().isEmpty());
    world.tasks.advance(5); // the island is gone; its delayed close must not reach it
}

TEST_F(NotchManagerTest, EveryIslandSeesThePointerEscapeAndTheKeyboard) {
    world.prefs.setDisplayChoice(DisplayChoice::allDisplays);
    manager.start();
    world.pointer.setPosition({1920 + 960, 10});
    manager.handleMouse(IslandMouseEvent::leftMouseDown, {1920 + 960, 10});
    EXPECT_TRUE(manager.controller(2)->model().isOpen());
    EXPECT_FALSE(manager.controller(1)->model().isHovering());

    world.app.setIsEditingText(true);
    EXPECT_FALSE(manager.handleEscape());
    world.app.setIsEditingText(false);
    EXPECT_TRUE(manager.handleEscape());
    EXPECT_FALSE(manager.isAnyIslandOpen());
    EXPECT_FALSE(manager.handleEscape());

    EXPECT_FALSE(manager.isTyping());
    world.panelFor(3)->keyboard = true;
    EXPECT_TRUE(manager.isTyping());
}

// An island that opened by itself for a request closes once the last one goes, whichever way it
// went, as after a card's own button; while another request waits it stays.
TEST_F(NotchManagerTest, AnIslandOpenedForRequestsClosesWhenTheLastGoesAnyWay) {
    AgentStore& store = world.app.agents();
    DecisionCardActions actions(
        store, [this](double seconds, std::function<void()> task) { world.tasks.schedule(seconds, task); },
        [this] { manager.closeAutomaticallyOpened(); });
    store.setOnSignal(
        [this](AgentSignal signal, AgentSession& session) { world.app.handle(signal, session); });
    world.app.setNotch(&manager);
    manager.start();
    const NotchViewModel& island = manager.controller(1)->model();

    using Tool = test::HookCall;
    int next = 0;
    auto send = [&](const QString& sessionID, const char* event, const QString& command) {
        const QJsonObject payload{
            {QStringLiteral("hook_event_name"), QLatin1StringView(event)},
            {QStringLiteral("session_id"), sessionID},
            {QStringLiteral("tool_name"), QStringLiteral("Bash")},
            {QStringLiteral("tool_input"), QJsonObject{{QStringLiteral("command"), command}}}};
        Tool tool = test::hookCall(QStringLiteral("req-%1").arg(++next), AgentKind::claude, payload);
        store.handle(tool.connection);
        return tool;
    };

    // What the user does (a card's button, `ctl allow`, hiding the row), the tool going away, or the
    // agent's own event; a post-tool event names the call that was settled.
    for (const char* route :
         {"card", "ctl", "lost", "hide", "PostToolUse", "UserPromptSubmit", "Stop", "SessionEnd"}) {
        SCOPED_TRACE(route);
        const QString how = QLatin1StringView(route);
        std::vector<std::tuple<QString, QString, Tool>> waiting;
        for (const QString& command : {QStringLiteral("ls"), QStringLiteral("pwd")}) {
            const QString sessionID = command + QString::number(next);
            waiting.emplace_back(sessionID, command, send(sessionID, "PermissionRequest", command));
        }
        ASSERT_TRUE(island.isOpen() && island.openedAutomatically());
        for (auto& [sessionID, command, tool] : waiting) {
            const QString id = tool.connection->request().id;
            const auto [decision, session] = store.findDecision(id);
            ASSERT_NE(decision, nullptr);
            if (how == QLatin1StringView("card")) {
                DecisionCardModel(actions, id).allow();
            } else if (how == QLatin1StringView("ctl")) {
                store.allow(*decision, *session, false);
            } else if (how == QLatin1StringView("lost")) {
                tool.connection->peerClosed();
                test::drainMainQueue();
            } else if (how == QLatin1StringView("hide")) {
                store.dismiss(session->id());
            } else {
                send(sessionID, route, command);
            }
            EXPECT_FALSE(tool.tool->stillWaiting());
            EXPECT_TRUE(island.isOpen()) << "the card's exit runs first";
            world.tasks.advance(DecisionCardActions::closeDelay);
            EXPECT_EQ(island.isOpen(), command == QLatin1StringView("ls"))
                << "open while another request waits";
        }
    }

    Tool gone = send(QStringLiteral("x"), "PermissionRequest", QStringLiteral("ls"));
    store.dismiss(AgentSession::makeID(AgentKind::claude, QStringLiteral("x")));
    Tool again = send(QStringLiteral("y"), "PermissionRequest", QStringLiteral("ls"));
    world.tasks.advance(1);
    EXPECT_TRUE(island.isOpen()) << "a request that came within the delay keeps the island";
}

} // namespace
