#include "island/WingContent.h"

#include "island/ClosedContent.h"
#include "system/BluetoothAudioDevice.h"

#include <gtest/gtest.h>

using namespace mirrowisp;

namespace {

using Kind = Wing::Kind;
using Transient = TransientActivity::Case;
constexpr Timestamp now = 1'800'000'000.0;

WingContent wingsOf(const TransientActivity& activity, Timestamp at = now) {
    return WingContent::make(ClosedContent::transient(activity, 4), at);
}

TransientActivity ofCase(Transient kind) {
    TransientActivity activity;
    activity.kind = kind;
    return activity;
}

TransientActivity battery(double level, bool charging) {
    TransientActivity activity = ofCase(Transient::battery);
    activity.level = level;
    activity.flag = charging;
    return activity;
}

} // namespace

TEST(WingContent, MinuteLabelsRoundUpUntilTheStartIsReached) {
    EXPECT_EQ(WingContent::minutesUntil(now + 600, now), QStringLiteral("10m"));
    EXPECT_EQ(WingContent::minutesUntil(now + 601, now), QStringLiteral("11m"));
    EXPECT_EQ(WingContent::minutesUntil(now + 59, now), QStringLiteral("1m"));
    EXPECT_EQ(WingContent::minutesUntil(now + 0.5, now), QStringLiteral("1m"));
    EXPECT_EQ(WingContent::minutesUntil(now, now), std::nullopt);
    EXPECT_EQ(WingContent::minutesUntil(now - 300, now), std::nullopt);
}

TEST(WingContent, MeetingCountsDownThenOffersTheCallOrSaysNow) {
    CalendarItem item{QStringLiteral("m1"), QStringLiteral("Review"), now + 90, now + 1800, {}};
    WingContent wings = WingContent::make(ClosedContent::meeting(item), now);
    EXPECT_EQ(wings.left.kind, Kind::calendarGlyph);
    EXPECT_EQ(wings.right.kind, Kind::text);
    EXPECT_EQ(wings.right.text, QStringLiteral("2m"));
    EXPECT_EQ(wings.refreshSeconds, 15);

    wings = WingContent::make(ClosedContent::meeting(item), now + 90);
    EXPECT_EQ(wings.right.text, QStringLiteral("now"));
    EXPECT_EQ(wings.refreshSeconds, std::nullopt) << "nothing left to count";

    item.meetingURL = QStringLiteral("https://meet.example/abc");
    wings = WingContent::make(ClosedContent::meeting(item), now + 90);
    EXPECT_EQ(wings.right.kind, Kind::symbol);
    EXPECT_EQ(wings.right.symbol, QStringLiteral("video.fill"));
    EXPECT_EQ(wings.right.size, 11);
    EXPECT_EQ(wings.left.identity, QStringLiteral("lead-meeting-m1"));
    EXPECT_EQ(wings.right.identity, QStringLiteral("trail-meeting-m1"));
}

TEST(WingContent, CalendarNoticeRefreshesEveryHalfMinuteUntilNow) {
    TransientActivity soon = ofCase(Transient::calendar);
    soon.start = now + 240;
    WingContent wings = wingsOf(soon);
    EXPECT_EQ(wings.right.text, QStringLiteral("4m"));
    EXPECT_EQ(wings.right.color, QColor(Qt::white));
    EXPECT_EQ(wings.refreshSeconds, 30);
    wings = wingsOf(soon, now + 241);
    EXPECT_EQ(wings.right.text, QStringLiteral("now"));
    EXPECT_EQ(wings.refreshSeconds, std::nullopt);
}

TEST(WingContent, AgentContentsShowMarksAStackAndACountOnlyWhenOneKindHidesSeveral) {
    WingContent wings =
        WingContent::make(ClosedContent::attention(QStringLiteral("codex:x"), AgentKind::codex), now);
    EXPECT_EQ(wings.left.kind, Kind::agentMark);
    EXPECT_EQ(wings.left.agents, QList<AgentKind>{AgentKind::codex});
    EXPECT_EQ(wings.right.symbol, QStringLiteral("hand.raised.fill"));
    EXPECT_EQ(wings.right.color, WingColors::orange());
    EXPECT_TRUE(wings.right.wiggle);
    EXPECT_EQ(wings.right.identity, QStringLiteral("trail-attention-codex:x"));

    wings = WingContent::make(ClosedContent::working({AgentKind::claude}, 3), now);
    EXPECT_EQ(wings.left.kind, Kind::agentStack);
    EXPECT_EQ(wings.right.kind, Kind::activityGrid);
    EXPECT_EQ(wings.right.text, QStringLiteral("3"));
    EXPECT_EQ(wings.right.size, 11);
    EXPECT_TRUE(WingContent::make(ClosedContent::working({AgentKind::claude}, 1), now).right.text.isEmpty());
    EXPECT_TRUE(WingContent::make(ClosedContent::working({AgentKind::claude, AgentKind::codex}, 4), now)
                    .right.text.isEmpty())
        << "two marks already tell sessions apart";

    wings =
        WingContent::make(ClosedContent::transient(TransientActivity::agentDone(AgentKind::amp, {}), 2), now);
    EXPECT_EQ(wings.left.agents, QList<AgentKind>{AgentKind::amp});
    EXPECT_EQ(wings.right.kind, Kind::successCheck);
    EXPECT_EQ(wings.right.color, QColor::fromRgbF(0.2f, 0.84f, 0.42f));
}

TEST(WingContent, MutedVolumeShowsAnEmptyBarAndNoLevelOverfillsIt) {
    WingContent wings = wingsOf(TransientActivity::levelChange(Transient::volume, 0.6, true));
    EXPECT_EQ(wings.left.symbol, QStringLiteral("speaker.slash"));
    EXPECT_EQ(wings.right.kind, Kind::levelBar);
    EXPECT_EQ(wings.right.level, 0);
    EXPECT_EQ(wingsOf(TransientActivity::levelChange(Transient::volume, 0.6, false)).right.level, 0.6);
    EXPECT_EQ(wingsOf(TransientActivity::levelChange(Transient::keyboardBrightness, 1.4)).right.level, 1);
}

TEST(WingContent, BatteryTextIsGreenWhileChargingAndRedAtTwentyOrBelow) {
    WingContent wings = wingsOf(battery(20, false));
    EXPECT_EQ(wings.left.symbol, QStringLiteral("battery.25percent"));
    EXPECT_EQ(wings.right.text, QStringLiteral("20%"));
    EXPECT_EQ(wings.right.color, WingColors::red());
    EXPECT_TRUE(wings.right.monospacedDigits);
    EXPECT_EQ(wings.right.size, 11.5);
    EXPECT_EQ(wingsOf(battery(21, false)).right.color, QColor(Qt::white));
    wings = wingsOf(battery(15, true));
    EXPECT_EQ(wings.left.symbol, QStringLiteral("bolt.fill"));
    EXPECT_EQ(wings.left.color, WingColors::green());
    EXPECT_EQ(wings.right.color, WingColors::green());
}

TEST(WingContent, BluetoothShowsARingWhenABatteryIsKnownElseACheck) {
    BluetoothAudioDevice device;
    device.name = QStringLiteral("My AirPods Pro");
    WingContent wings = wingsOf(TransientActivity::bluetooth(device));
    EXPECT_EQ(wings.left.kind, Kind::artwork);
    EXPECT_EQ(wings.left.symbol, QStringLiteral("airpodspro"));
    EXPECT_EQ(wings.right.symbol, QStringLiteral("checkmark"));

    device.batteryLeft = 70;
    device.batteryRight = 40;
    wings = wingsOf(TransientActivity::bluetooth(device));
    EXPECT_EQ(wings.right.kind, Kind::batteryRing);
    EXPECT_EQ(wings.right.level, 40);
    device.batteryCombined = 55;
    EXPECT_EQ(WingContent::batterySummary(device), 55);
    EXPECT_EQ(WingContent::deviceSymbol(QStringLiteral("Kitchen Speaker")),
              QStringLiteral("hifispeaker.fill"));
    EXPECT_EQ(WingContent::deviceSymbol(QStringLiteral("Beats Solo")), QStringLiteral("beats.headphones"));
    EXPECT_EQ(WingContent::deviceSymbol(QStringLiteral("WH-1000")), QStringLiteral("headphones"));
}

TEST(WingContent, TrialNoticeSaysDayOrDays) {
    EXPECT_EQ(WingContent::daysLeft(1), QStringLiteral("1 day left"));
    EXPECT_EQ(WingContent::daysLeft(5), QStringLiteral("5 days left"));
    EXPECT_EQ(WingContent::daysLeft(0), QStringLiteral("0 days left"));
}

TEST(WingContent, TheMapForTheViewsCarriesKindIdentityAgentsAndBar) {
    const QVariantMap map =
        WingContent::make(ClosedContent::working({AgentKind::codex, AgentKind::claude}, 2), now)
            .left.toVariantMap();
    EXPECT_EQ(map.value(QStringLiteral("kind")).toString(), QStringLiteral("agentStack"));
    EXPECT_EQ(map.value(QStringLiteral("identity")).toString(), QStringLiteral("lead-working-codexclaude-2"));
    EXPECT_EQ(map.value(QStringLiteral("agents")).toStringList(),
              (QStringList{QStringLiteral("codex"), QStringLiteral("claude")}));
    const QVariantMap bar =
        wingsOf(TransientActivity::levelChange(Transient::brightness, 0.5)).right.toVariantMap();
    EXPECT_EQ(bar.value(QStringLiteral("kind")).toString(), QStringLiteral("levelBar"));
    EXPECT_EQ(bar.value(QStringLiteral("width")).toDouble(), 78);
    EXPECT_EQ(bar.value(QStringLiteral("level")).toDouble(), 0.5);
    EXPECT_EQ(bar.value(QStringLiteral("color")).value<QColor>(), WingColors::yellow());
}
