#include "usage/UsageTracker.h"

#include "agents/AgentActivity.h"
#include "base/UserDefaults.h"
#include "integration/Locations.h"
#include "support/TestSupport.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QTimer>
#include <atomic>
#include <future>
#include <gtest/gtest.h>
#include <memory>

using namespace mirrowisp;
using mirrowisp::test::ManualClock;

namespace {

UsageMeter claudeMeter(double percent) {
    UsageMeter meter;
    meter.label = QStringLiteral("5-hour");
    meter.percent = percent;
    return meter;
}

QJsonObject statusLine(const char* json) {
    return QJsonDocument::fromJson(json).object();
}

using mirrowisp::test::writeFile;

// Writes a log and dates its last change.
void writeLog(const QString& path, const QByteArray& text, qint64 secondsSinceEpoch) {
    writeFile(path, text);
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadWrite));
    ASSERT_TRUE(file.setFileTime(QDateTime::fromSecsSinceEpoch(secondsSinceEpoch),
                                 QFileDevice::FileModificationTime));
}

// A Codex token count at 2027-01-15 08:00:00.25 UTC (1,800,000,000.25) with both windows' limits.
QByteArray tokenCount(double primary, double secondary) {
    return QString::fromLatin1(
               R"({"timestamp":"2027-01-15T08:00:00.250Z","type":"event_msg","payload":{"type":"token_count",)"
               R"("rate_limits":{"primary":{"used_percent":%1,"window_minutes":300,"resets_in_seconds":600},)"
               R"("secondary":{"used_percent":%2,"window_minutes":10080,"resets_at":1900000000}}}})")
               .arg(primary)
               .arg(secondary)
               .toUtf8() +
           '\n';
}

QByteArray otherLine(int i) {
    return R"({"type":"response_item","payload":{"type":"message","n":)" + QByteArray::number(i) + "}}\n";
}

// A probe whose every call is counted and whose answer the test sets; `gate`, when set, holds the
// probe on the background queue until the test releases it.
struct FakeProbe {
    struct State {
        std::atomic<int> fetches = 0, finds = 0;
        ClaudeUsageProbe::FetchResult answer;
        std::optional<QString> cli = QStringLiteral("/x/claude");
        std::shared_future<void> gate;
    };
    std::shared_ptr<State> state = std::make_shared<State>();
    State* operator->() const { return state.get(); }

    ClaudeProbeRunner runner() const {
        return {[state = state] {
                    ++state->finds;
                    return state->cli;
                },
                [state = state](const QString& cli) {
                    if (state->gate.valid()) {
                        state->gate.wait();
                    }
                    ++state->fetches;
                    // Only the tool that was found answers.
                    return cli == state->cli
                               ? state->answer
                               : ClaudeUsageProbe::FetchResult{{}, ClaudeUsageProbe::Failure::couldNotStart};
                }};
    }
};

class UsageTrackerTest : public ::testing::Test {
protected:
    UsageTrackerTest() { AgentEnvironment::setCurrent(Locations::standard(home.path())); }

    std::unique_ptr<UsageTracker> tracker(ClaudeProbeRunner runner) {
        return std::make_unique<UsageTracker>(defaults, clock, std::move(runner));
    }
    bool settle(UsageTracker& t) {
        return mirrowisp::test::waitUntil([&t] { return t.pendingWork() == 0; }, 10000);
    }
    QString codexSessions() const { return home.path() + QStringLiteral("/.codex/sessions"); }
    // A stand-in `amp` that runs `script`, found where the app looks for it.
    void standInAmp(const QByteArray& script) {
        const QString amp = home.path() + QStringLiteral("/bin/amp");
        writeFile(amp, "#!/bin/sh\n" + script + '\n', true);
        Locations locations = Locations::standard(home.path());
        locations.clis.insert(AgentKind::amp, amp);
        AgentEnvironment::setCurrent(locations);
    }

    mirrowisp::test::TemporaryHome home;
    UserDefaults defaults{home.path() + QStringLiteral("/defaults.json")};
    ManualClock clock;
    FakeProbe probe;
};

} // namespace

TEST_F(UsageTrackerTest, ClaudeProbeRunsOncePerMinuteUnlessForcedAndNeverTwiceAtOnce) {
    probe->answer.meters = {claudeMeter(10)};
    auto t = tracker(probe.runner());
    const Timestamp start = clock.now();
    t->refreshClaude(false, start);
    ASSERT_TRUE(settle(*t));
    t->refreshClaude(false, start + 59.9);
    ASSERT_TRUE(settle(*t));
    EXPECT_EQ(probe->fetches, 1);
    t->refreshClaude(false, start + 60);
    ASSERT_TRUE(settle(*t));
    EXPECT_EQ(probe->fetches, 2);

    std::promise<void> release;
    probe->gate = release.get_future().share();
    t->refreshClaude(true, start + 61);
    EXPECT_TRUE(t->probing());
    // The probe hangs on its own queue: the main loop still runs.
    bool mainRan = false;
    QTimer::singleShot(0, [&mainRan] { mainRan = true; });
    EXPECT_TRUE(mirrowisp::test::waitUntil([&mainRan] { return mainRan; }, 500));
    t->refreshClaude(true, start + 62); // a probe runs: nothing more is queued
    EXPECT_EQ(t->lastClaudeProbe(), start + 61);
    release.set_value();
    ASSERT_TRUE(settle(*t));
    EXPECT_FALSE(t->probing());
    EXPECT_EQ(probe->fetches, 3);
    EXPECT_EQ(probe->finds, 1); // the tool found once is kept
    EXPECT_EQ(t->claudeCLI(), QStringLiteral("/x/claude"));
}

TEST_F(UsageTrackerTest, ClaudeFailuresSetTheirStateAndKeepTheMetersHeld) {
    auto t = tracker(probe.runner());
    EXPECT_EQ(t->claudeState(), ClaudeUsageState::checking);
    probe->answer.meters = {claudeMeter(80)};
    t->refreshClaude(true, clock.now());
    ASSERT_TRUE(settle(*t));
    EXPECT_EQ(t->claudeState(), ClaudeUsageState::live);
    EXPECT_EQ(t->claudeUpdatedAt(), clock.now());
    EXPECT_EQ(t->claude().size(), 1);

    const std::pair<ClaudeUsageProbe::Failure, ClaudeUsageState> cases[] = {
        {ClaudeUsageProbe::Failure::notSignedIn, ClaudeUsageState::notSignedIn},
        {ClaudeUsageProbe::Failure::timedOut, ClaudeUsageState::unavailable},
        {ClaudeUsageProbe::Failure::unparseable, ClaudeUsageState::unavailable},
        {ClaudeUsageProbe::Failure::couldNotStart, ClaudeUsageState::unavailable},
    };
    for (const auto& [failure, state] : cases) {
        probe->answer = {{}, failure};
        clock.advance(10);
        t->refreshClaude(true, clock.now());
        ASSERT_TRUE(settle(*t));
        EXPECT_EQ(t->claudeState(), state);
        EXPECT_EQ(t->claude().size(), 1);
    }

    FakeProbe missing;
    missing->cli = std::nullopt;
    auto none = tracker(missing.runner());
    none->refreshClaude(true, clock.now());
    ASSERT_TRUE(settle(*none));
    EXPECT_EQ(none->claudeState(), ClaudeUsageState::cliNotFound);
    EXPECT_EQ(missing->fetches, 0);
}

TEST_F(UsageTrackerTest, StatusLineAndProbeBothStoreAndTheLaterWins) {
    const QJsonObject payload = statusLine(R"({"hook_event_name":"StatusLine","rate_limits":{"limits":[
        {"kind":"session","percent":33,"resets_at":1800003600},{"kind":"weekly_all","percent":50}]}})");
    std::promise<void> release;
    probe->gate = release.get_future().share();
    probe->answer.meters = {claudeMeter(70)};
    auto t = tracker(probe.runner());
    t->refreshClaude(true, clock.now());
    t->ingestClaudeStatusLine(payload, clock.now());
    ASSERT_EQ(t->claude().size(), 2);
    EXPECT_EQ(t->claude()[0].percent, 33);
    release.set_value();
    ASSERT_TRUE(settle(*t));
    ASSERT_EQ(t->claude().size(), 1);
    EXPECT_EQ(t->claude()[0].percent, 70);
    clock.advance(1);
    t->ingestClaudeStatusLine(payload, clock.now());
    EXPECT_EQ(t->claude().size(), 2);
    EXPECT_EQ(t->claudeUpdatedAt(), clock.now());

    // A status line whose limits all reset already changes nothing.
    clock.advance(10);
    t->ingestClaudeStatusLine(
        statusLine(R"({"rate_limits":{"limits":[{"kind":"session","percent":99,"resets_at":1000}]}})"),
        clock.now());
    EXPECT_EQ(t->claude().size(), 2);
    EXPECT_EQ(t->claudeUpdatedAt(), clock.now() - 10);
}

TEST(UsageTrackerLimitRows, LabelsSeveritiesAndResetsFollowTheRow) {
    const QJsonArray rows = QJsonDocument::fromJson(R"([
        {"kind":"session","percent":74.9,"resets_at":1800000100},
        {"kind":"usage","percent":75},
        {"kind":"weekly_all","percent":90},
        {"kind":"weekly_scoped","percent":20,"scope":{"display_name":"Opus"},"model":{"display_name":"no"}},
        {"kind":"weekly_model","percent":5,"model":{"display_name":"Sonnet"},"severity":"warning"},
        {"kind":"weekly_surface","percent":1,"surface":{"display_name":"Desktop"}},
        {"kind":"weekly_unnamed","percent":1},
        {"kind":"session","percent":"12"}
    ])")
                                .array();
    const QList<UsageMeter> meters = UsageTracker::metersFromLimitRows(rows);
    ASSERT_EQ(meters.size(), 6);
    QStringList shown;
    for (const UsageMeter& meter : meters) {
        shown << meter.label + QLatin1Char('/') + meter.severity;
    }
    EXPECT_EQ(shown.join(QLatin1Char(',')), QString::fromUtf8("5-hour/normal,5-hour/warning,Weekly/critical,"
                                                              "Weekly · Opus/normal,Weekly · Sonnet/warning,"
                                                              "Weekly · Desktop/normal"));
    EXPECT_EQ(meters[0].resetsAt, 1800000100.0);

    const QList<UsageMeter> kept = UsageTracker::fresh(meters, 1800000100.0);
    EXPECT_EQ(kept.size(), 5); // a reset exactly now is past
    EXPECT_EQ(UsageTracker::fresh(meters, 1800000099.0).size(), 6);
}

TEST_F(UsageTrackerTest, CodexReadsTheNewestLogThatHasLimitsAmongTheFiveNewest) {
    const QString dir = codexSessions() + QStringLiteral("/2027/01/15");
    // Newest: no token_count at all. Next: token_count with no limits object, then the real one.
    writeLog(dir + QStringLiteral("/a.jsonl"), otherLine(1) + otherLine(2), 1'799'999'900);
    writeLog(dir + QStringLiteral("/b.jsonl"),
             tokenCount(40, 60) +
                 "{\"timestamp\":\"x\",\"payload\":{\"type\":\"token_count\",\"rate_limits\":null}}\n" +
                 otherLine(3),
             1'799'999'800);
    writeLog(dir + QStringLiteral("/notes.txt"), tokenCount(1, 1), 1'799'999'999);

    const QList<UsageMeter> meters = UsageTracker::readCodexLimits(home.path() + QStringLiteral("/.codex"));
    ASSERT_EQ(meters.size(), 2);
    EXPECT_EQ(meters[0].agent, AgentKind::codex);
    EXPECT_EQ(meters[0].label, QStringLiteral("5-hour"));
    EXPECT_EQ(meters[0].percent, 40);
    EXPECT_DOUBLE_EQ(*meters[0].resetsAt, 1'800'000'000.25 + 600);
    EXPECT_EQ(meters[1].label, QStringLiteral("Weekly"));
    EXPECT_EQ(meters[1].resetsAt, 1'900'000'000.0);

    // Five newer logs without limits push the one with limits out of reach.
    for (int i = 0; i < 5; ++i) {
        writeLog(dir + QStringLiteral("/n%1.jsonl").arg(i), otherLine(i), 1'799'999'950 + i);
    }
    EXPECT_TRUE(UsageTracker::readCodexLimits(home.path() + QStringLiteral("/.codex")).isEmpty());
}

TEST_F(UsageTrackerTest, CodexReadsOnlyTheTailOfATwentyMegabyteLog) {
    const QString dir = codexSessions() + QStringLiteral("/2027/01/15");
    QByteArray filler;
    for (int i = 0; filler.size() < 20 * 1024 * 1024; ++i) {
        filler += otherLine(i);
    }
    // Limits only at the start of the newest log: beyond its tail, so the older log decides.
    writeLog(dir + QStringLiteral("/big-head.jsonl"), tokenCount(99, 99) + filler, 1'799'999'900);
    writeLog(dir + QStringLiteral("/big-tail.jsonl"), filler + tokenCount(12, 34), 1'799'999'800);

    const QList<UsageMeter> meters = UsageTracker::readCodexLimits(home.path() + QStringLiteral("/.codex"));
    ASSERT_EQ(meters.size(), 2);
    EXPECT_EQ(meters[0].percent, 12);
    EXPECT_EQ(meters[1].percent, 34);
}

TEST_F(UsageTrackerTest, AResetMeterGoesAtTheNextRefreshAndItsAgentLeavesTheIsland) {
    writeFile(codexSessions() + QStringLiteral("/s.jsonl"), tokenCount(40, 60));
    auto t = tracker(probe.runner());
    clock.set(1'700'000'000.0);
    t->refreshCodex();
    ASSERT_TRUE(settle(*t));
    ASSERT_EQ(t->codex().size(), 2);
    EXPECT_EQ(t->codexUpdatedAt(), clock.now());
    EXPECT_EQ(t->islandAgents(clock.now()), QList<AgentKind>{AgentKind::codex});

    clock.set(1'850'000'000.0); // the five-hour window has reset, the weekly one not yet
    QFile::remove(codexSessions() + QStringLiteral("/s.jsonl"));
    t->refreshCodex();
    ASSERT_TRUE(settle(*t));
    ASSERT_EQ(t->codex().size(), 1);
    EXPECT_EQ(t->codex()[0].label, QStringLiteral("Weekly"));

    clock.set(1'950'000'000.0);
    t->refreshCodex();
    ASSERT_TRUE(settle(*t));
    EXPECT_TRUE(t->codex().isEmpty());
    EXPECT_TRUE(t->islandAgents(clock.now()).isEmpty());
}

TEST_F(UsageTrackerTest, IslandShowsTheChoiceOrTheTwoMostUsedAgentsWithTiesInAgentOrder) {
    auto t = tracker(probe.runner());
    t->ingestClaudeStatusLine(statusLine(R"({"rate_limits":{"limits":[{"kind":"session","percent":1}]}})"),
                              clock.now());
    writeFile(codexSessions() + QStringLiteral("/s.jsonl"), tokenCount(1, 2));
    // OpenCode and Amp through the real readers: a database and a stand-in `amp`.
    standInAmp("[ \"$1\" = usage ] && echo 'Amp Free: $9/$10 remaining'");
    clock.set(1'700'000'000.0);
    t->refreshCodex();
    t->refreshOthers(AgentKind::amp, clock.now());
    ASSERT_TRUE(settle(*t));
    ASSERT_EQ(t->meters(AgentKind::amp).size(), 1);
    EXPECT_EQ(t->meters(AgentKind::amp)[0].label, QStringLiteral("Free"));

    const Timestamp now = clock.now();
    EXPECT_EQ(t->islandAgents(now), (QList<AgentKind>{AgentKind::claude, AgentKind::codex})); // all tied
    AgentActivity::recordPrompt(defaults, AgentKind::amp, now - 3 * 86400);
    AgentActivity::recordPrompt(defaults, AgentKind::codex, now - 60);
    AgentActivity::recordPrompt(defaults, AgentKind::cursor, now - 60); // no meters: never a candidate
    EXPECT_EQ(t->islandAgents(now), (QList<AgentKind>{AgentKind::codex, AgentKind::amp}));
    AgentActivity::recordPrompt(defaults, AgentKind::claude, now - 60);
    AgentActivity::recordPrompt(defaults, AgentKind::claude, now - 10 * 86400); // older than seven days
    EXPECT_EQ(t->islandAgents(now), (QList<AgentKind>{AgentKind::claude, AgentKind::codex}));

    t->setChosenAgents({AgentKind::amp});
    EXPECT_EQ(t->islandAgents(now), QList<AgentKind>{AgentKind::amp});

    const QJsonObject json = t->toJson(now);
    EXPECT_EQ(json.value(QStringLiteral("claude")).toObject().value(QStringLiteral("state")).toString(),
              QStringLiteral("checking"));
    EXPECT_EQ(json.value(QStringLiteral("meters")).toObject().keys(),
              (QStringList{QStringLiteral("amp"), QStringLiteral("claude"), QStringLiteral("codex")}));
    EXPECT_EQ(json.value(QStringLiteral("islandAgents")).toArray(), QJsonArray{QStringLiteral("amp")});
}

TEST_F(UsageTrackerTest, StartReadsEverySourceOnceAndLaterTicksKeepTheGateAndTheRows) {
    writeFile(codexSessions() + QStringLiteral("/s.jsonl"), tokenCount(5, 6));
    standInAmp("echo 'Individual credits: $12.00 remaining'");
    clock.set(1'700'000'000.0);
    probe->answer.meters = {claudeMeter(10)};
    auto t = tracker(probe.runner());
    t->start();
    EXPECT_TRUE(t->probing());
    ASSERT_TRUE(settle(*t));
    EXPECT_EQ(probe->fetches, 1);
    EXPECT_EQ(t->lastClaudeProbe(), clock.now());
    EXPECT_EQ(t->codex().size(), 2);
    ASSERT_EQ(t->meters(AgentKind::amp).size(), 1);
    EXPECT_EQ(t->meters(AgentKind::amp)[0].text, QStringLiteral("$12.00"));
    EXPECT_TRUE(t->meters(AgentKind::opencode).isEmpty()); // no database: no rows
    t->refreshClaude(false); // what the Claude timer does: within the minute, nothing
    // A later read that gives nothing keeps the rows.
    standInAmp("echo 'Usage: amp [command]'");
    t->refreshOthers(AgentKind::amp, clock.now());
    ASSERT_TRUE(settle(*t));
    EXPECT_EQ(probe->fetches, 1);
    EXPECT_EQ(t->meters(AgentKind::amp)[0].text, QStringLiteral("$12.00"));
}
