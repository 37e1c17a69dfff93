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
    const struct {
        double ahead;
        std::optional<QString> label;
    } cases[] = {{600, QStringLiteral("10m")},
                 {601, QStringLiteral("11m")},
                 {59, QStringLiteral("1m")},
                 {0.5, QStringLiteral("1m")},
                 {0, std::nullopt},
                 {-300, std::nullopt}};
    for (const auto& c : cases) {
        EXPECT_EQ(WingContent::minutesUntil(now + c.ahead, now), c.label) << c.ahead;
    }
}

TEST(WingContent, MeetingAndCalendarNoticeCountDownThenOfferTheCallOrSayNow) {
    CalendarItem item{QStringLiteral("m1"), QStringLiteral("Review"), now + 90, now + 1800, {}};
    WingContent wings = WingContent::make(ClosedContent::meeting(item), now);
    EXPECT_EQ(wings.right.text, QStringLiteral("2m"));
    EXPECT_EQ(wings.refreshSeconds, 15);
    wings = WingContent::make(ClosedContent::meeting(item), now + 90);
    EXPECT_EQ(wings.right.text, QStringLiteral("now"));
    EXPECT_EQ(wings.refreshSeconds, std::nullopt) << "nothing left to count";
    item.meetingURL = QStringLiteral("https://meet.example/abc");
    EXPECT_EQ(WingContent::make(ClosedContent::meeting(item), now + 90).right.kind, Kind::symbol);

    TransientActivity soon = ofCase(Transient::calendar);
    soon.start = now + 240;
    EXPECT_EQ(wingsOf(soon).right.text, QStringLiteral("4m"));
    EXPECT_EQ(wingsOf(soon).refreshSeconds, 30);
    EXPECT_EQ(wingsOf(soon, now + 241).refreshSeconds, std::nullopt);
}

TEST(WingContent, AgentContentsShowMarksAStackAndACountOnlyWhenOneKindHidesSeveral) {
    WingContent wings =
        WingContent::make(ClosedContent::attention(QStringLiteral("codex:x"), AgentKind::codex), now);
    EXPECT_EQ(wings.left.agents, QList<AgentKind>{AgentKind::codex});
    EXPECT_TRUE(wings.right.wiggle);
    EXPECT_EQ(wings.right.identity, QStringLiteral("trail-attention-codex:x"));

    EXPECT_EQ(WingContent::make(ClosedContent::working({AgentKind::claude}, 3), now).right.text,
              QStringLiteral("3"));
    EXPECT_TRUE(WingContent::make(ClosedContent::working({AgentKind::claude}, 1), now).right.text.isEmpty());
    EXPECT_TRUE(WingContent::make(ClosedContent::working({AgentKind::claude, AgentKind::codex}, 4), now)
                    .right.text.isEmpty())
        << "two marks already tell sessions apart";
    wings =
        WingContent::make(ClosedContent::transient(TransientActivity::agentDone(AgentKind::amp, {}), 2), now);
    EXPECT_EQ(wings.left.agents, QList<AgentKind>{AgentKind::amp});
    EXPECT_EQ(wings.right.kind, Kind::successCheck);
}

TEST(WingContent, LevelsAndBatteryColours) {
    EXPECT_EQ(wingsOf(TransientActivity::levelChange(Transient::volume, 0.6, true)).right.level, 0)
        << "muted";
    EXPECT_EQ(wingsOf(TransientActivity::levelChange(Transient::volume, 0.6, false)).right.level, 0.6);
    EXPECT_EQ(wingsOf(TransientActivity::levelChange(Transient::keyboardBrightness, 1.4)).right.level, 1);

    EXPECT_EQ(wingsOf(battery(20, false)).right.text, QStringLiteral("20%"));
    EXPECT_EQ(wingsOf(battery(20, false)).right.color, WingColors::red());
    EXPECT_EQ(wingsOf(battery(21, false)).right.color, QColor(Qt::white));
    EXPECT_EQ(wingsOf(battery(15, true)).right.color, WingColors::green()) << "charging outranks low";
}

TEST(WingContent, BluetoothShowsARingWhenABatteryIsKnownElseACheck) {
    BluetoothAudioDevice device;
    device.name = QStringLiteral("My AirPods Pro");
    device.icon = QStringLiteral("audio-headphones");
    EXPECT_NE(wingsOf(TransientActivity::bluetooth(device)).right.kind, Kind::batteryRing);
    EXPECT_EQ(wingsOf(TransientActivity::bluetooth(device)).left.toVariantMap().value(QStringLiteral("icon")),
              device.icon);
    device.batteryLeft = 70;
    device.batteryRight = 40;
    WingContent wings = wingsOf(TransientActivity::bluetooth(device));
    EXPECT_EQ(wings.right.kind, Kind::batteryRing);
    EXPECT_EQ(wings.right.level, 40) << "the lower bud";
    device.batteryCombined = 55;
    EXPECT_EQ(WingContent::batterySummary(device), 55);
    for (const auto& [name, symbol] : {std::pair{"My AirPods Pro", "airpodspro"},
                                       {"Kitchen Speaker", "hifispeaker.fill"},
                                       {"Beats Solo", "beats.headphones"},
                                       {"WH-1000", "headphones"}}) {
        EXPECT_EQ(WingContent::deviceSymbol(QString::fromLatin1(name)), QString::fromLatin1(symbol));
    }
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
    EXPECT_EQ(bar.value(QStringLiteral("level")).toDouble(), 0.5);
}
