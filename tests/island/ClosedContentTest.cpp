#include "island/ClosedContent.h"

#include "agents/AgentSession.h"
#include "island/SecondaryActivity.h"

#include <gtest/gtest.h>
#include <memory>
#include <vector>

using namespace mirrowisp;

namespace {

using Case = ClosedContent::Case;

// Sessions made directly, in the store's display order, with their status and last update.
class ClosedContentTest : public testing::Test {
protected:
    AgentSession& add(AgentKind agent, AgentStatus status, Timestamp updatedAt) {
        auto session = std::make_unique<AgentSession>(agent, QStringLiteral("s%1").arg(sessions.size()), 0);
        session->setStatus(status);
        session->setUpdatedAt(updatedAt);
        inputs.orderedSessions.push_back(session.get());
        sessions.push_back(std::move(session));
        return *sessions.back();
    }

    static CalendarItem standup() { return {QStringLiteral("ev1"), QStringLiteral("Standup"), 100, 200, {}}; }
    static NowPlayingTrack track(bool playing) {
        NowPlayingTrack t;
        t.title = QStringLiteral("Song");
        t.isPlaying = playing;
        return t;
    }
    QStringList bubbleKeys(const ClosedContent& primary) const {
        QStringList keys;
        for (const SecondaryActivity& bubble : SecondaryActivity::resolveAll(inputs, primary)) {
            keys.append(bubble.key());
        }
        return keys;
    }

    std::vector<std::unique_ptr<AgentSession>> sessions;
    IslandInputs inputs;
};

} // namespace

TEST_F(ClosedContentTest, WorkingListsDistinctKindsMostRecentFirstAndCountsSessions) {
    add(AgentKind::claude, AgentStatus::thinking(), 10);
    add(AgentKind::claude, AgentStatus::runningTool(QStringLiteral("Bash")), 11);
    add(AgentKind::codex, AgentStatus::compacting(), 30);
    add(AgentKind::claude, AgentStatus::thinking(), 12);
    add(AgentKind::claude, AgentStatus::thinking(), 13);
    add(AgentKind::gemini, AgentStatus::idle(), 99);
    add(AgentKind::amp, AgentStatus::done(), 98);
    add(AgentKind::cursor, AgentStatus::ended(), 97);

    const ClosedContent shown = ClosedContent::resolve(inputs);
    ASSERT_EQ(shown.kind(), Case::working);
    EXPECT_EQ(shown.workingPayload()->agents, (QList<AgentKind>{AgentKind::codex, AgentKind::claude}));
    EXPECT_EQ(shown.workingPayload()->count, 5);
    EXPECT_EQ(shown.animationKey(), QStringLiteral("working-codexclaude-5"));
}

TEST_F(ClosedContentTest, WorkingCutsToThreeKindsAndBreaksTiesByStoreOrder) {
    add(AgentKind::amp, AgentStatus::thinking(), 50);
    add(AgentKind::gemini, AgentStatus::thinking(), 50);
    add(AgentKind::claude, AgentStatus::thinking(), 10);
    add(AgentKind::devin, AgentStatus::thinking(), 50);
    add(AgentKind::codex, AgentStatus::thinking(), 60);

    const ClosedContent shown = ClosedContent::resolve(inputs);
    ASSERT_EQ(shown.kind(), Case::working);
    EXPECT_EQ(shown.workingPayload()->agents,
              (QList<AgentKind>{AgentKind::codex, AgentKind::amp, AgentKind::gemini}));
    EXPECT_EQ(shown.workingPayload()->count, 5);
    EXPECT_EQ(shown.animationKey(), QStringLiteral("working-codexampgemini-5"));
}

TEST_F(ClosedContentTest, QuietSessionsFallThroughToMeetingThenPlayingMusicThenNothing) {
    add(AgentKind::claude, AgentStatus::needsAttention(), 10); // not the attention session
    add(AgentKind::codex, AgentStatus::done(), 10);
    EXPECT_EQ(ClosedContent::resolve(inputs).kind(), Case::none);
    EXPECT_EQ(ClosedContent::resolve(inputs).animationKey(), QStringLiteral("none"));

    inputs.nowPlaying = track(false);
    EXPECT_EQ(ClosedContent::resolve(inputs).kind(), Case::none) << "a paused track shows nothing";
    inputs.nowPlaying = track(true);
    EXPECT_EQ(ClosedContent::resolve(inputs).animationKey(), QStringLiteral("music"));
    inputs.nowPlaying->title = QStringLiteral("Another song");
    EXPECT_EQ(ClosedContent::resolve(inputs).animationKey(), QStringLiteral("music"))
        << "a new track does not animate the wings";

    inputs.liveEvent = standup();
    const ClosedContent meeting = ClosedContent::resolve(inputs);
    ASSERT_EQ(meeting.kind(), Case::meeting);
    EXPECT_EQ(meeting.meetingPayload()->title, QStringLiteral("Standup"));
    EXPECT_EQ(meeting.animationKey(), QStringLiteral("meeting-ev1"));
}

TEST_F(ClosedContentTest, BubblesStandBesideAgentsAndMeetingsOnlyForLiveThings) {
    inputs.liveEvent = standup();
    inputs.nowPlaying = track(false);
    const ClosedContent meeting = ClosedContent::resolve(inputs);
    EXPECT_EQ(meeting.kind(), Case::meeting) << "music paused during a meeting";
    EXPECT_TRUE(bubbleKeys(meeting).isEmpty());

    inputs.nowPlaying = track(true);
    EXPECT_EQ(bubbleKeys(meeting), QStringList{QStringLiteral("music")});

    add(AgentKind::claude, AgentStatus::thinking(), 10);
    const ClosedContent working = ClosedContent::resolve(inputs);
    ASSERT_EQ(working.kind(), Case::working);
    EXPECT_EQ(bubbleKeys(working), (QStringList{QStringLiteral("meeting"), QStringLiteral("music")}));

    inputs.attention = sessions.front().get();
    EXPECT_EQ(bubbleKeys(ClosedContent::resolve(inputs)),
              (QStringList{QStringLiteral("meeting"), QStringLiteral("music")}));

    inputs.liveEvent.reset();
    EXPECT_EQ(bubbleKeys(working), QStringList{QStringLiteral("music")});

    inputs.transient = TransientActivity::agentDone(AgentKind::claude, QStringLiteral("p"));
    EXPECT_TRUE(bubbleKeys(ClosedContent::resolve(inputs)).isEmpty());
    EXPECT_TRUE(bubbleKeys(ClosedContent::music(track(true))).isEmpty());
    EXPECT_TRUE(bubbleKeys(ClosedContent()).isEmpty());
}
