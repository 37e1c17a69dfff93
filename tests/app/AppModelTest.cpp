#include "app/AppModel.h"

#include "app/LaunchAtLogin.h"
#include "app/Preferences.h"
#include "base/UserDefaults.h"
#include "support/NoLaunchAtLogin.h"
#include "support/TestSupport.h"
#include "support/ToolEnd.h"
#include "widgets/CalendarService.h"

#include <QFile>
#include <QJsonDocument>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace mirrowisp;
using mirrowisp::test::NoLaunchAtLogin;

namespace {

class FakeNotch final : public NotchPresenter {
public:
    bool showingAgents = false;
    bool open = false;
    int openedAutomatically = 0;
    bool isShowingAgents() const override { return showingAgents; }
    bool isAnyIslandOpen() const override { return open; }
    void openAgentsAutomatically() override { ++openedAutomatically; }
};

class AppModelTest : public testing::Test {
protected:
    AppModelTest()
        : defaults(home.path() + QStringLiteral("/d.json")), prefs(defaults, login),
          model(prefs, defaults, clock, noClaude()) {}

    // No `claude` on this machine: the usage side never starts a probe.
    static ClaudeProbeRunner noClaude() {
        return {[] { return std::optional<QString>(); },
                [](const QString&) { return ClaudeUsageProbe::FetchResult{}; }};
    }

    // Routes one event as the bridge would; returns the reply the tool reads.
    QByteArray route(const QByteArray& event) {
        int fds[2];
        ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds);
        test::ToolEnd tool(fds[1]);
        model.route(
            BridgeConnection::make({QStringLiteral("r"), AgentKind::claude, event, true, {}}, fds[0]));
        return tool.replyLine().value_or("(no reply)");
    }

    test::TemporaryHome home;
    UserDefaults defaults;
    NoLaunchAtLogin login;
    Preferences prefs;
    test::ManualClock clock;
    AppModel model;
};

} // namespace

const QByteArray emptyReply = "{\"id\":\"r\"}\n";

TEST_F(AppModelTest, KeepsStatusLinesForTheUsageSideAndHandsEverythingElseToTheStore) {
    const QByteArray statusLine = R"({"hook_event_name":"StatusLine","session_id":"s",)"
                                  R"("rate_limits":{"limits":[{"kind":"session","percent":42}]}})";
    EXPECT_EQ(route(statusLine), emptyReply);
    EXPECT_TRUE(model.agents().sessions().empty());
    ASSERT_EQ(model.usage().claude().size(), 1);
    EXPECT_EQ(model.usage().claude().first().percent, 42);

    EXPECT_EQ(route(R"({"hook_event_name":"SessionStart","session_id":"s"})"), emptyReply);
    EXPECT_EQ(model.agents().sessions().size(), 1U);
    EXPECT_EQ(route("not json"), emptyReply);
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

TEST_F(AppModelTest, FlashesReplaceEachOtherAndLevelsUpdateInPlace) {
    using Case = TransientActivity::Case;
    model.flash(TransientActivity::levelChange(Case::volume, 0.4), 1.6);
    const qint64 first = model.transientID();
    clock.advance(1.0);
    model.flash(TransientActivity::levelChange(Case::volume, 0.5), 1.6);
    EXPECT_EQ(model.transientID(), first) << "a volume change during a volume flash updates in place";
    clock.advance(1.0);
    model.expireTransient(clock.now());
    ASSERT_TRUE(model.transient().has_value()) << "the deadline restarted with the second change";
    EXPECT_EQ(model.transient()->level, 0.5);

    model.flash(TransientActivity::levelChange(Case::brightness, 0.2), 1.6);
    EXPECT_EQ(model.transientID(), first + 1);
    model.flash(TransientActivity::levelChange(Case::volume, 0.2), 1.6);
    EXPECT_EQ(model.transientID(), first + 2);
    model.flash(TransientActivity::agentDone(AgentKind::claude, QStringLiteral("a")), 3.0);
    model.flash(TransientActivity::agentDone(AgentKind::codex, QStringLiteral("b")), 3.0);
    EXPECT_EQ(model.transientID(), first + 4) << "two equal non-level cases still animate anew";
    EXPECT_EQ(model.transient()->text, QStringLiteral("b"));
    clock.advance(3.0);
    model.expireTransient(clock.now());
    EXPECT_FALSE(model.transient().has_value());
}

TEST_F(AppModelTest, ReactsToAgentSignalsWithSoundsTheIslandAndAFlash) {
    FakeNotch notch;
    std::vector<SoundCue> cues;
    model.setNotch(&notch);
    model.setCuePlayer([&](SoundCue cue) { cues.push_back(cue); });
    AgentSession session(AgentKind::claude, QStringLiteral("s"), clock.now());
    session.setCwd(QStringLiteral("/work/shop"));

    model.handle(AgentSignal::needsAttention, session);
    EXPECT_EQ(notch.openedAutomatically, 1);
    model.setLocked(true);
    model.handle(AgentSignal::needsAttention, session);
    EXPECT_EQ(notch.openedAutomatically, 1) << "not over a locked screen";
    model.setLocked(false);
    prefs.setAutoOpenOnAttention(false);
    model.handle(AgentSignal::needsAttention, session);
    EXPECT_EQ(notch.openedAutomatically, 1) << "only the sound";

    notch.showingAgents = true;
    notch.open = true;
    model.handle(AgentSignal::finished, session);
    EXPECT_FALSE(model.agents().hasUnseenFinish());
    EXPECT_FALSE(model.transient().has_value());

    notch.showingAgents = false;
    notch.open = false;
    model.handle(AgentSignal::finished, session);
    EXPECT_TRUE(model.agents().hasUnseenFinish());
    ASSERT_TRUE(model.transient().has_value());
    EXPECT_EQ(*model.transient(), TransientActivity::agentDone(AgentKind::claude, QStringLiteral("shop")));
    EXPECT_EQ(cues, (std::vector<SoundCue>{SoundCue::attention, SoundCue::attention, SoundCue::attention,
                                           SoundCue::done, SoundCue::done}));
}

TEST_F(AppModelTest, StatusLinesOfATurnedOffAgentStillReachTheUsageSide) {
    prefs.setAgentEnabled(AgentKind::claude, false);
    route(
        R"({"hook_event_name":"StatusLine","session_id":"s","rate_limits":{"limits":[{"kind":"session","percent":7}]}})");
    ASSERT_EQ(model.usage().claude().size(), 1);
    EXPECT_FALSE(model.agents().lastSeen().contains(AgentKind::claude)) << "status lines are not hook events";
}

TEST_F(AppModelTest, ShowsBatteryMomentsWithTheirCuesWhileTheSettingIsOn) {
    std::vector<SoundCue> cues;
    model.setCuePlayer([&](SoundCue cue) { cues.push_back(cue); });
    using Kind = BatteryMonitor::Event::Kind;
    model.handle(BatteryMonitor::Event{Kind::low, 9, false});
    ASSERT_TRUE(model.transient().has_value());
    EXPECT_EQ(model.transient()->kind, TransientActivity::Case::battery);
    EXPECT_EQ(model.transient()->level, 9);
    ASSERT_TRUE(model.transientCheckIn());
    EXPECT_DOUBLE_EQ(*model.transientCheckIn(), 4.0);
    model.handle(BatteryMonitor::Event{Kind::unplugged, 9, false});
    model.handle(BatteryMonitor::Event{Kind::pluggedIn, 9, true});
    EXPECT_TRUE(model.transient()->flag);
    EXPECT_EQ(cues, (std::vector<SoundCue>{SoundCue::lowBattery, SoundCue::charging}));

    prefs.setBatteryEnabled(false);
    const qint64 id = model.transientID();
    model.handle(BatteryMonitor::Event{Kind::low, 4, false});
    EXPECT_EQ(model.transientID(), id);
    EXPECT_EQ(cues.size(), 2U);
}

TEST_F(AppModelTest, GreetsABluetoothDeviceOnceForTwoReportsOfOneConnection) {
    std::vector<SoundCue> cues;
    model.setCuePlayer([&](SoundCue cue) { cues.push_back(cue); });
    BluetoothAudioDevice buds;
    buds.name = QStringLiteral("Buds");
    buds.address = QStringLiteral("AA:BB");
    model.announce(buds);
    const qint64 first = model.transientID();
    ASSERT_TRUE(model.transient().has_value());
    EXPECT_EQ(model.transient()->kind, TransientActivity::Case::bluetooth);
    EXPECT_EQ(model.transient()->device, buds);

    clock.advance(5);
    model.announce(buds);
    EXPECT_EQ(model.transientID(), first) << "a reconnection 5 s later stays silent";
    clock.advance(2);
    model.announce(buds);
    EXPECT_EQ(model.transientID(), first + 1) << "7 s after the last greeting it is announced again";
    EXPECT_EQ(cues, (std::vector<SoundCue>{SoundCue::connected, SoundCue::connected}));

    prefs.setBluetoothEnabled(false);
    clock.advance(10);
    model.announce(buds);
    EXPECT_EQ(cues.size(), 2U);
}

namespace {
class OneEventProvider final : public CalendarProvider {
public:
    QStringList calendars() const override { return {QStringLiteral("Work")}; }
    void fetch(Timestamp, Timestamp, Answer answer) override { answer({event}); }
    CalendarEvent event;
};
} // namespace

TEST_F(AppModelTest, TheCalendarFeedsTheLiveEventAndAnnouncesWhileEnabled) {
    OneEventProvider provider;
    provider.event.identifier = QStringLiteral("standup");
    provider.event.title = QStringLiteral("Standup");
    provider.event.start = clock.now() + 240;
    provider.event.end = clock.now() + 1200;
    CalendarService calendar(provider, clock);
    std::vector<SoundCue> cues;
    model.setCuePlayer([&](SoundCue cue) { cues.push_back(cue); });
    QStringList paths;
    model.attachCalendar(calendar, [&paths](const QStringList& given) { paths = given; });
    EXPECT_EQ(paths, QStringList{QStringLiteral("~/.calendars")});
    prefs.setCalendarFiles({QStringLiteral("/tmp/a.ics")});
    EXPECT_EQ(paths, QStringList{QStringLiteral("/tmp/a.ics")});

    calendar.reload();
    ASSERT_TRUE(model.liveEvent());
    EXPECT_EQ(model.liveEvent()->title, QStringLiteral("Standup"));
    ASSERT_TRUE(model.transient());
    EXPECT_EQ(model.transient()->kind, TransientActivity::Case::calendar);
    EXPECT_EQ(model.transient()->start, provider.event.start);
    EXPECT_EQ(cues, std::vector<SoundCue>{SoundCue::attention});

    prefs.setCalendarEnabled(false);
    EXPECT_FALSE(model.liveEvent());
}
