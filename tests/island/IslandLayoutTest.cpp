#include "island/IslandLayout.h"

#include "agents/AgentSession.h"
#include "island/ClosedContent.h"

#include <gtest/gtest.h>

using namespace mirrowisp;

namespace {

using Transient = TransientActivity::Case;

ClosedContent transient(Transient kind) {
    TransientActivity activity;
    activity.kind = kind;
    return ClosedContent::transient(activity, 1);
}

NowPlayingTrack playing() {
    NowPlayingTrack track;
    track.isPlaying = true;
    return track;
}

const QSizeF notch{180, 32};

} // namespace

TEST(IslandLayout, ClosedSizeGrowsByBothWingsAndByTheHover) {
    EXPECT_EQ(IslandLayout::closedSize(ClosedContent(), notch, false), QSizeF(180, 32));
    EXPECT_EQ(IslandLayout::closedSize(ClosedContent::music(playing()), notch, false), QSizeF(268, 32));
    EXPECT_EQ(IslandLayout::closedSize(transient(Transient::volume), notch, false), QSizeF(424, 32));
    EXPECT_EQ(IslandLayout::closedSize(ClosedContent::music(playing()), notch, true),
              QSizeF(180 + 88 + 18, 32 + 5));
    EXPECT_EQ(IslandLayout::closedSize(transient(Transient::trialEnding), notch, false).width(), 424);
    EXPECT_EQ(IslandLayout::closedSize(transient(Transient::battery), notch, false).width(), 268);
    EXPECT_EQ(IslandLayout::closedSize(ClosedContent(), notch, true), QSizeF(198, 37))
        << "an idle island still grows under the pointer";
}

TEST(IslandLayout, OpeningTabFollowsTheContentThenAnUnseenFinish) {
    const ClosedContent meeting = ClosedContent::meeting({});
    const ClosedContent attention = ClosedContent::attention(QStringLiteral("claude:a"), AgentKind::claude);
    const ClosedContent done =
        ClosedContent::transient(TransientActivity::agentDone(AgentKind::claude, QStringLiteral("p")), 3);
    const ClosedContent working = ClosedContent::working({AgentKind::codex}, 1);

    for (bool unseen : {false, true}) {
        EXPECT_EQ(IslandLayout::openingTab(meeting, unseen), NotchTab::home);
        EXPECT_EQ(IslandLayout::openingTab(attention, unseen), NotchTab::agents);
        EXPECT_EQ(IslandLayout::openingTab(done, unseen), NotchTab::agents);
    }
    for (const ClosedContent& other :
         {working, transient(Transient::volume), ClosedContent::music(playing()), ClosedContent()}) {
        EXPECT_EQ(IslandLayout::openingTab(other, false), std::nullopt) << other.animationKey().toStdString();
        EXPECT_EQ(IslandLayout::openingTab(other, true), NotchTab::agents)
            << other.animationKey().toStdString();
    }
}

TEST(IslandLayout, TabsBadgesAndClosedLayoutNumbers) {
    EXPECT_EQ(IslandLayout::tabs(false), (QList<NotchTab>{NotchTab::home, NotchTab::agents}));
    EXPECT_EQ(IslandLayout::tabs(true), (QList<NotchTab>{NotchTab::home, NotchTab::agents, NotchTab::shelf}));
    EXPECT_EQ(IslandLayout::agentsBadge({}), 0);

    EXPECT_EQ(IslandLayout::spacerWidth(notch), 168);
    EXPECT_EQ(IslandLayout::spacerWidth({8, 32}), 0) << "a tiny notch leaves no negative gap";
    EXPECT_EQ(IslandLayout::outerInset(notch), 4);
    EXPECT_EQ(IslandLayout::outerInset({180, 37}), 6.5);
    EXPECT_EQ(IslandLayout::outerInset({180, 20}), 0) << "a flat notch leaves no negative inset";
}

TEST(IslandLayout, BubblesStandSixBeyondEitherEdgeAsHighAsTheNotch) {
    const QSizeF closed{268, 32};
    const auto placed = IslandLayout::bubbles(
        {SecondaryActivity::meeting(), SecondaryActivity::music(), SecondaryActivity::music()}, closed,
        notch);
    ASSERT_EQ(placed.size(), 2);
    EXPECT_EQ(placed[0].side, BubbleSide::left);
    EXPECT_EQ(placed[0].identity(), QStringLiteral("left-meeting"));
    EXPECT_EQ(placed[0].width, 30);
    EXPECT_EQ(placed[0].height, 32);
    EXPECT_EQ(placed[0].x + placed[0].width, -134 - 6) << "its right edge is 6 left of the island";
    EXPECT_EQ(placed[1].side, BubbleSide::right);
    EXPECT_EQ(placed[1].identity(), QStringLiteral("right-music"));
    EXPECT_EQ(placed[1].x, 134 + 6);

    const auto single = IslandLayout::bubbles({SecondaryActivity::music()}, closed, notch);
    ASSERT_EQ(single.size(), 1);
    EXPECT_EQ(single[0].side, BubbleSide::left) << "a lone bubble stands left";
}
