#include "island/NotchRootModel.h"

#include "CardStoreFixture.h"
#include "app/AppModel.h"
#include "app/Preferences.h"
#include "base/UserDefaults.h"
#include "island/NotchViewModel.h"
#include "support/NoLaunchAtLogin.h"
#include "support/TestSupport.h"

#include <QSignalSpy>
#include <gtest/gtest.h>

using namespace mirrowisp;

namespace {

using mirrowisp::test::text;

// One island over a real application model; agent events arrive as the bridge delivers them.
class NotchRootModelTest : public testing::Test {
protected:
    NotchRootModelTest()
        : defaults(home.path() + QStringLiteral("/d.json")), prefs(defaults, login),
          app(prefs, defaults, clock, noClaude()), model(1, {180, 32}, true) {}

    ~NotchRootModelTest() override { root.reset(); }

    static ClaudeProbeRunner noClaude() {
        return {[] { return std::optional<QString>(); },
                [](const QString&) { return ClaudeUsageProbe::FetchResult{}; }};
    }

    NotchRootModel& appear() {
        root = std::make_unique<NotchRootModel>(app, model, clock);
        return *root;
    }

    // Sends one hook event; the tool's end stays open, so a permission request keeps waiting.
    void send(AgentKind agent, const char* event, const char* sessionID, QJsonObject extra = {}) {
        clock.advance(1);
        extra.insert(text("hook_event_name"), text(event));
        extra.insert(text("session_id"), text(sessionID));
        calls.push_back(test::hookCall(QStringLiteral("r%1").arg(calls.size()), agent, extra));
        app.route(calls.back().connection);
        test::drainMainQueue();
    }
    void askPermission(AgentKind agent, const char* sessionID) {
        send(agent, "PermissionRequest", sessionID,
             {{text("tool_name"), text("Bash")},
              {text("tool_input"), QJsonObject{{text("command"), text("make")}}}});
    }

    static NowPlayingTrack track(bool playing, const char* title = "Song") {
        NowPlayingTrack t;
        t.title = text(title);
        t.isPlaying = playing;
        return t;
    }
    CalendarItem meetingIn(double seconds) const {
        return {text("ev1"), text("Planning"), clock.now() + seconds, clock.now() + 3600, {}};
    }
    QStringList writtenBubbles() const { return model.secondaryKeys(); }

    test::TemporaryHome home;
    UserDefaults defaults;
    test::NoLaunchAtLogin login;
    Preferences prefs;
    test::ManualClock clock;
    AppModel app;
    NotchViewModel model;
    std::unique_ptr<NotchRootModel> root;
    std::vector<test::HookCall> calls;
};

} // namespace

TEST_F(NotchRootModelTest, FirstAppearanceWritesSizeBubblesAndTabThenFollowsHoverAndNotch) {
    app.setLiveEvent(meetingIn(600));
    app.setNowPlaying(track(true));
    NotchRootModel& island = appear();
    EXPECT_EQ(island.contentKind(), QStringLiteral("meeting"));
    EXPECT_EQ(island.animationKey(), QStringLiteral("meeting-ev1"));
    EXPECT_EQ(model.closedSize(), QSizeF(268, 32));
    EXPECT_EQ(writtenBubbles(), QStringList{QStringLiteral("music")});
    EXPECT_EQ(model.primaryTab(), NotchTab::home);
    model.setIsHovering(true);
    EXPECT_EQ(model.closedSize(), QSizeF(268 + 18, 32 + 5)) << "at once, for hit testing";
    model.setNotchSize({200, 30});
    EXPECT_EQ(model.closedSize(), QSizeF(200 + 88 + 18, 35));
    EXPECT_EQ(island.spacerWidth(), 188);
}

TEST_F(NotchRootModelTest, ATransientCoversAWaitingPermissionAndItComesBack) {
    NotchRootModel& island = appear();
    askPermission(AgentKind::claude, "s1");
    EXPECT_EQ(island.contentKind(), QStringLiteral("attention"));
    EXPECT_EQ(island.animationKey(), QStringLiteral("attention-claude:s1"));
    EXPECT_EQ(model.primaryTab(), NotchTab::agents);

    model.setAnimation(QStringLiteral("hover"));
    QSignalSpy content(&island, &NotchRootModel::contentChanged);
    app.flash(TransientActivity::levelChange(TransientActivity::Case::volume, 0.5), 1.6);
    test::drainMainQueue();
    EXPECT_EQ(island.contentKind(), QStringLiteral("transient"));
    EXPECT_EQ(model.animation(), QStringLiteral("activity"));
    EXPECT_EQ(model.closedSize(), QSizeF(424, 32));
    EXPECT_EQ(model.primaryTab(), std::nullopt);
    EXPECT_EQ(content.count(), 1);
    app.agents().setHasUnseenFinish(true);
    test::drainMainQueue();
    EXPECT_EQ(model.primaryTab(), NotchTab::agents) << "an unseen finish points the opening at agents";

    clock.advance(2);
    app.expireTransient(clock.now());
    test::drainMainQueue();
    EXPECT_EQ(island.animationKey(), QStringLiteral("attention-claude:s1"));
    EXPECT_EQ(model.closedSize(), QSizeF(268, 32));
    EXPECT_EQ(model.primaryTab(), NotchTab::agents);
}

// However soon after another change an agent finishes, its flash ends at its deadline: a timer that
// wakes early waits for the rest, and the request that waits under the flash shows again.
TEST_F(NotchRootModelTest, AFlashEndsAtItsTimeWhateverChangedJustBefore) {
    NotchRootModel& island = appear();
    askPermission(AgentKind::claude, "s1");
    for (const double before : {0.0, 0.1, 0.3, 0.5}) {
        for (const double woken : {-0.15, -0.001, 0.0, 0.001}) {
            SCOPED_TRACE(testing::Message() << "change " << before << " s before, woken at " << woken);
            app.flash(TransientActivity::levelChange(TransientActivity::Case::volume, 0.5), 1.6);
            clock.advance(before);
            app.flash(TransientActivity::agentDone(AgentKind::codex, text("shop")), 3.0);
            const Timestamp until = clock.now() + 3.0;
            clock.set(until + woken);
            app.expireTransient(clock.now()); // as the flash timer does
            test::drainMainQueue();
            if (woken < 0) {
                EXPECT_EQ(island.contentKind(), text("transient"));
                EXPECT_NEAR(app.transientCheckIn().value_or(-1), -woken, 0.002) << "no second look";
                clock.set(until);
                app.expireTransient(clock.now());
                test::drainMainQueue();
            }
            EXPECT_EQ(island.animationKey(), text("attention-claude:s1"));
            EXPECT_EQ(app.transientCheckIn(), std::nullopt);
        }
    }
}

TEST_F(NotchRootModelTest, FollowsSessionsAsTheyComeChangeAndEnd) {
    NotchRootModel& island = appear();
    EXPECT_EQ(island.contentKind(), QStringLiteral("none"));
    EXPECT_EQ(model.closedSize(), QSizeF(180, 32));

    send(AgentKind::claude, "UserPromptSubmit", "a");
    EXPECT_EQ(island.animationKey(), QStringLiteral("working-claude-1"));
    send(AgentKind::claude, "UserPromptSubmit", "b");
    send(AgentKind::codex, "UserPromptSubmit", "c");
    EXPECT_EQ(island.animationKey(), QStringLiteral("working-codexclaude-3"));
    send(AgentKind::claude, "PreToolUse", "a", {{text("tool_name"), text("Read")}});
    EXPECT_EQ(island.animationKey(), QStringLiteral("working-claudecodex-3"))
        << "the session that moved last leads";

    send(AgentKind::codex, "SessionEnd", "c");
    send(AgentKind::claude, "SessionEnd", "b");
    EXPECT_EQ(island.animationKey(), QStringLiteral("working-claude-1"));
    send(AgentKind::claude, "SessionEnd", "a");
    EXPECT_EQ(island.contentKind(), QStringLiteral("none"));
    EXPECT_EQ(model.closedSize(), QSizeF(180, 32));
}

TEST_F(NotchRootModelTest, BubblesVanishWhileOpenAndReturnOnlyWhenTheirKeysChange) {
    app.setLiveEvent(meetingIn(-60));
    app.setNowPlaying(track(true));
    NotchRootModel& island = appear();
    send(AgentKind::claude, "UserPromptSubmit", "a");
    EXPECT_EQ(island.contentKind(), QStringLiteral("working"));
    EXPECT_EQ(writtenBubbles(), (QStringList{QStringLiteral("meeting"), QStringLiteral("music")}));
    ASSERT_EQ(island.bubbles().size(), 2);
    EXPECT_EQ(island.bubbles()[1].toMap().value(QStringLiteral("x")).toDouble(), 134 + 6);

    QSignalSpy writes(&model, &NotchViewModel::secondariesChanged);
    model.setIsOpen(true);
    EXPECT_TRUE(writtenBubbles().isEmpty());
    EXPECT_TRUE(island.bubbles().isEmpty());
    app.setNowPlaying(track(false));
    test::drainMainQueue();
    EXPECT_EQ(writes.count(), 1) << "while open the list stays empty";

    model.setIsOpen(false);
    test::drainMainQueue();
    EXPECT_EQ(writtenBubbles(), QStringList{QStringLiteral("meeting")});
    EXPECT_EQ(writes.count(), 2);
    app.setLiveEvent(meetingIn(-30)); // the same meeting, moved
    send(AgentKind::codex, "UserPromptSubmit", "b");
    EXPECT_EQ(writes.count(), 2) << "same keys, no write";
}

TEST_F(NotchRootModelTest, AMeetingTurnsHomeToTheCalendarAndCountsDownWithoutWakingAnIdleIsland) {
    prefs.setHomeWidgetSelection(text("reminders"));
    NotchRootModel& island = appear();
    EXPECT_FALSE(island.isLabelRefreshArmed()) << "an idle island keeps no timer";

    app.setLiveEvent(meetingIn(90));
    test::drainMainQueue();
    EXPECT_EQ(prefs.homeWidgetSelection(), text("calendar"));
    EXPECT_EQ(model.primaryTab(), NotchTab::home);
    EXPECT_EQ(island.rightWing().value(QStringLiteral("text")).toString(), QStringLiteral("2m"));
    EXPECT_TRUE(island.isLabelRefreshArmed());

    QSignalSpy wings(&island, &NotchRootModel::wingsChanged);
    clock.advance(45);
    island.refresh();
    EXPECT_EQ(island.rightWing().value(QStringLiteral("text")).toString(), QStringLiteral("1m"));
    EXPECT_EQ(wings.count(), 1);
    clock.advance(10);
    island.refresh();
    EXPECT_EQ(wings.count(), 1) << "the same label does not redraw";
    clock.advance(60);
    island.refresh();
    EXPECT_EQ(island.rightWing().value(QStringLiteral("text")).toString(), QStringLiteral("now"));
    EXPECT_FALSE(island.isLabelRefreshArmed()) << "a started meeting has nothing left to count";

    app.setLiveEvent(std::nullopt);
    test::drainMainQueue();
    EXPECT_EQ(island.contentKind(), QStringLiteral("none"));
    EXPECT_EQ(prefs.homeWidgetSelection(), text("calendar"));
}

TEST_F(NotchRootModelTest, TabsFollowTheShelfSettingAndBadgesCountWaitingDecisions) {
    prefs.setShelfEnabled(false);
    NotchRootModel& island = appear();
    EXPECT_EQ(island.tabs(), (QStringList{QStringLiteral("home"), QStringLiteral("agents")}));
    QSignalSpy tabs(&island, &NotchRootModel::tabsChanged);
    prefs.setShelfEnabled(true);
    test::drainMainQueue();
    EXPECT_EQ(island.tabs(),
              (QStringList{QStringLiteral("home"), QStringLiteral("agents"), QStringLiteral("shelf")}));
    EXPECT_EQ(tabs.count(), 1);

    askPermission(AgentKind::claude, "s1");
    askPermission(AgentKind::claude, "s1");
    askPermission(AgentKind::codex, "s2");
    EXPECT_EQ(island.badges().value(QStringLiteral("agents")).toInt(), 3);
    EXPECT_EQ(island.badges().value(QStringLiteral("home")).toInt(), 0);
    island.setShelfCount(2);
    EXPECT_EQ(island.badges().value(QStringLiteral("shelf")).toInt(), 2);
}
