#include "island/WingContent.h"

#include "island/ClosedContent.h"
#include "system/BluetoothAudioDevice.h"

#include <QStringList>
#include <algorithm>
#include <cmath>

namespace mirrowisp {

namespace {

constexpr double glyphSize = 12;
constexpr double smallGlyphSize = 11;
constexpr double labelSize = 11.5;
constexpr double countSize = 11;
constexpr QSizeF levelBarFrame{78, 5};
constexpr QSizeF checkFrame{16, 16};
constexpr int meetingRefreshSeconds = 15;
constexpr int calendarRefreshSeconds = 30;
constexpr int lowBatteryPercent = 20;

Wing symbol(QString name, QColor color = Qt::white, double size = glyphSize,
            QString weight = QStringLiteral("semibold")) {
    Wing wing;
    wing.kind = Wing::Kind::symbol;
    wing.symbol = std::move(name);
    wing.color = color;
    wing.size = size;
    wing.weight = std::move(weight);
    return wing;
}

Wing label(QString text, QColor color = Qt::white) {
    Wing wing;
    wing.kind = Wing::Kind::text;
    wing.text = std::move(text);
    wing.color = color;
    wing.size = labelSize;
    wing.weight = QStringLiteral("semibold");
    wing.monospacedDigits = true;
    return wing;
}

Wing ofKind(Wing::Kind kind) {
    Wing wing;
    wing.kind = kind;
    return wing;
}

Wing agentMark(AgentKind agent) {
    Wing wing = ofKind(Wing::Kind::agentMark);
    wing.agents = {agent};
    return wing;
}

Wing levelBar(double level, QColor color) {
    Wing wing = ofKind(Wing::Kind::levelBar);
    wing.level = std::clamp(level, 0.0, 1.0);
    wing.color = color;
    wing.frame = levelBarFrame;
    return wing;
}

Wing paletteTinted(Wing::Kind kind) {
    Wing wing = ofKind(kind);
    wing.color = QColor();
    wing.palette = true;
    return wing;
}

WingContent transientWings(const TransientActivity& activity, Timestamp now) {
    using Case = TransientActivity::Case;
    WingContent wings;
    switch (activity.kind) {
    case Case::volume:
        wings.left =
            symbol(activity.flag ? QStringLiteral("speaker.slash") : QStringLiteral("speaker.wave.3"));
        wings.right = levelBar(activity.flag ? 0 : activity.level, Qt::white);
        break;
    case Case::brightness:
        wings.left = symbol(QStringLiteral("sun.max"));
        wings.right = levelBar(activity.level, WingColors::yellow());
        break;
    case Case::keyboardBrightness:
        wings.left = symbol(QStringLiteral("light.max"));
        wings.right = levelBar(activity.level, Qt::white);
        break;
    case Case::battery: {
        const bool charging = activity.flag;
        const int percent = static_cast<int>(std::lround(activity.level));
        wings.left = charging ? symbol(QStringLiteral("bolt.fill"), WingColors::green())
                              : symbol(QStringLiteral("battery.25percent"));
        const QColor color = charging                       ? WingColors::green()
                             : percent <= lowBatteryPercent ? WingColors::red()
                                                            : QColor(Qt::white);
        wings.right = label(QString::number(percent) + QLatin1Char('%'), color);
        break;
    }
    case Case::bluetooth: {
        wings.left = ofKind(Wing::Kind::artwork);
        wings.left.symbol = WingContent::deviceSymbol(activity.device.name);
        wings.left.icon = activity.device.icon;
        if (const auto summary = WingContent::batterySummary(activity.device)) {
            wings.right = ofKind(Wing::Kind::batteryRing);
            wings.right.level = std::clamp(*summary, 0, 100);
        } else {
            wings.right =
                symbol(QStringLiteral("checkmark"), Qt::white, smallGlyphSize, QStringLiteral("bold"));
        }
        break;
    }
    case Case::calendar: {
        wings.left = ofKind(Wing::Kind::calendarGlyph);
        const auto minutes = WingContent::minutesUntil(activity.start, now);
        wings.right = label(minutes.value_or(QStringLiteral("now")));
        // Once it says "now" the label never changes again, so nothing needs to wake up for it.
        if (minutes) {
            wings.refreshSeconds = calendarRefreshSeconds;
        }
        break;
    }
    case Case::agentDone:
        wings.left = agentMark(activity.agent);
        wings.right = ofKind(Wing::Kind::successCheck);
        wings.right.frame = checkFrame;
        wings.right.color = WingColors::success();
        break;
    case Case::shelfAdded:
        wings.left = symbol(QStringLiteral("tray.and.arrow.down.fill"));
        wings.right = label(QLatin1Char('+') + QString::number(activity.count));
        break;
    case Case::trialEnding:
        wings.left = symbol(QStringLiteral("key.fill"));
        wings.right = label(WingContent::daysLeft(activity.count), WingColors::yellow());
        break;
    case Case::updated:
        wings.left = symbol(QStringLiteral("arrow.down.circle.fill"));
        wings.right = label(activity.text, WingColors::green());
        break;
    }
    return wings;
}

WingContent meetingWings(const CalendarItem& item, Timestamp now) {
    WingContent wings;
    wings.left = ofKind(Wing::Kind::calendarGlyph);
    if (const auto minutes = WingContent::minutesUntil(item.start, now)) {
        wings.right = label(*minutes);
        wings.refreshSeconds = meetingRefreshSeconds;
    } else if (item.meetingURL) {
        wings.right = symbol(QStringLiteral("video.fill"), Qt::white, smallGlyphSize);
    } else {
        wings.right = label(QStringLiteral("now"));
    }
    return wings;
}

WingContent workingWings(const ClosedContent::Working& working) {
    WingContent wings;
    wings.left = ofKind(Wing::Kind::agentStack);
    wings.left.agents = working.agents;
    wings.right = ofKind(Wing::Kind::activityGrid);
    // One kind of mark cannot tell two sessions from one, so the count says it.
    if (working.agents.size() == 1 && working.count >= 2) {
        wings.right.text = QString::number(working.count);
        wings.right.size = countSize;
        wings.right.weight = QStringLiteral("semibold");
        wings.right.monospacedDigits = true;
    }
    return wings;
}

} // namespace

QString Wing::kindName(Kind kind) {
    switch (kind) {
    case Kind::none:
        break;
    case Kind::symbol:
        return QStringLiteral("symbol");
    case Kind::agentMark:
        return QStringLiteral("agentMark");
    case Kind::agentStack:
        return QStringLiteral("agentStack");
    case Kind::activityGrid:
        return QStringLiteral("activityGrid");
    case Kind::levelBar:
        return QStringLiteral("levelBar");
    case Kind::text:
        return QStringLiteral("text");
    case Kind::calendarGlyph:
        return QStringLiteral("calendarGlyph");
    case Kind::artwork:
        return QStringLiteral("artwork");
    case Kind::waveform:
        return QStringLiteral("waveform");
    case Kind::successCheck:
        return QStringLiteral("successCheck");
    case Kind::batteryRing:
        return QStringLiteral("batteryRing");
    }
    return QStringLiteral("none");
}

QVariantMap Wing::toVariantMap() const {
    QStringList agentNames;
    for (AgentKind agent : agents) {
        agentNames.append(AgentKinds::rawValue(agent));
    }
    return {
        {QStringLiteral("kind"), kindName(kind)},
        {QStringLiteral("identity"), identity},
        {QStringLiteral("symbol"), symbol},
        {QStringLiteral("icon"), icon},
        {QStringLiteral("text"), text},
        {QStringLiteral("color"), color},
        {QStringLiteral("palette"), palette},
        {QStringLiteral("level"), level},
        {QStringLiteral("size"), size},
        {QStringLiteral("weight"), weight.isEmpty() ? QStringLiteral("regular") : weight},
        {QStringLiteral("width"), frame.width()},
        {QStringLiteral("height"), frame.height()},
        {QStringLiteral("agents"), agentNames},
        {QStringLiteral("agent"), agentNames.value(0)},
        {QStringLiteral("wiggle"), wiggle},
        {QStringLiteral("monospacedDigits"), monospacedDigits},
    };
}

WingContent WingContent::make(const ClosedContent& content, Timestamp now) {
    WingContent wings;
    switch (content.kind()) {
    case ClosedContent::Case::transient:
        wings = transientWings(content.transientPayload()->activity, now);
        break;
    case ClosedContent::Case::attention:
        wings.left = agentMark(content.attentionPayload()->agent);
        wings.right = symbol(QStringLiteral("hand.raised.fill"), WingColors::orange());
        wings.right.wiggle = true;
        break;
    case ClosedContent::Case::working:
        wings = workingWings(*content.workingPayload());
        break;
    case ClosedContent::Case::meeting:
        wings = meetingWings(*content.meetingPayload(), now);
        break;
    case ClosedContent::Case::music:
        wings.left = ofKind(Wing::Kind::artwork);
        wings.right = paletteTinted(Wing::Kind::waveform);
        break;
    case ClosedContent::Case::none:
        break;
    }
    const QString key = content.animationKey();
    wings.left.identity = QStringLiteral("lead-") + key;
    wings.right.identity = QStringLiteral("trail-") + key;
    return wings;
}

std::optional<QString> WingContent::minutesUntil(Timestamp start, Timestamp now) {
    const double minutes = std::ceil((start - now) / 60.0);
    if (minutes <= 0) {
        return std::nullopt;
    }
    return QString::number(static_cast<qint64>(minutes)) + QLatin1Char('m');
}

QString WingContent::daysLeft(qint64 days) {
    return days == 1 ? QStringLiteral("1 day left") : QString::number(days) + QStringLiteral(" days left");
}

std::optional<int> WingContent::batterySummary(const BluetoothAudioDevice& device) {
    if (device.batteryCombined) {
        return device.batteryCombined;
    }
    if (device.batterySingle) {
        return device.batterySingle;
    }
    if (device.batteryLeft && device.batteryRight) {
        return std::min(*device.batteryLeft, *device.batteryRight);
    }
    return device.batteryLeft ? device.batteryLeft : device.batteryRight;
}

QString WingContent::deviceSymbol(const QString& name) {
    const QString lower = name.toLower();
    const auto has = [&](const char* part) { return lower.contains(QLatin1StringView(part)); };
    if (has("airpods pro") || has("airpodspro")) {
        return QStringLiteral("airpodspro");
    }
    if (has("airpods max") || has("airpodsmax")) {
        return QStringLiteral("airpodsmax");
    }
    if (has("airpods")) {
        return QStringLiteral("airpods");
    }
    if (has("beats")) {
        return QStringLiteral("beats.headphones");
    }
    if (has("speaker") || has("homepod")) {
        return QStringLiteral("hifispeaker.fill");
    }
    return QStringLiteral("headphones");
}

namespace WingColors {
QColor orange() {
    return QColor::fromRgbF(1.0f, 0.584f, 0.0f);
}
QColor yellow() {
    return QColor::fromRgbF(1.0f, 0.8f, 0.0f);
}
QColor green() {
    return QColor::fromRgbF(0.204f, 0.78f, 0.349f);
}
QColor red() {
    return QColor::fromRgbF(1.0f, 0.231f, 0.188f);
}
QColor success() {
    return QColor::fromRgbF(0.2f, 0.84f, 0.42f);
}
} // namespace WingColors

} // namespace mirrowisp
