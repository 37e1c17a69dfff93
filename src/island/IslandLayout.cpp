#include "island/IslandLayout.h"

#include "agents/AgentSession.h"
#include "island/ClosedContent.h"

#include <algorithm>

namespace mirrowisp {

namespace {
constexpr double wideWing = 118;
constexpr double narrowWing = 40;
constexpr double wingGap = 8;
constexpr double hoverGrowth = 18;
constexpr double hoverDrop = 5;
constexpr double cameraMargin = 12;
constexpr double wingContentHeight = 16;
constexpr double bubbleGap = 6;
} // namespace

QString BubblePlacement::identity() const {
    return (side == BubbleSide::left ? QStringLiteral("left-") : QStringLiteral("right-")) + activity.key();
}

namespace IslandLayout {

double wingWidth(TransientActivity::Case transient) {
    using Case = TransientActivity::Case;
    switch (transient) {
    case Case::volume:
    case Case::brightness:
    case Case::keyboardBrightness:
    case Case::trialEnding:
        return wideWing;
    case Case::battery:
    case Case::bluetooth:
    case Case::calendar:
    case Case::agentDone:
    case Case::shelfAdded:
    case Case::updated:
        break;
    }
    return narrowWing;
}

double wingWidth(const ClosedContent& content) {
    switch (content.kind()) {
    case ClosedContent::Case::none:
        return 0;
    case ClosedContent::Case::transient:
        return wingWidth(content.transientPayload()->activity.kind);
    case ClosedContent::Case::attention:
    case ClosedContent::Case::working:
    case ClosedContent::Case::meeting:
    case ClosedContent::Case::music:
        break;
    }
    return narrowWing;
}

QSizeF closedSize(const ClosedContent& content, QSizeF notchSize, bool isHovering) {
    const double wing = wingWidth(content);
    double width = notchSize.width();
    double height = notchSize.height();
    if (wing > 0) {
        width += 2 * wing + wingGap;
    }
    if (isHovering) {
        width += hoverGrowth;
        height += hoverDrop;
    }
    return {width, height};
}

std::optional<NotchTab> openingTab(const ClosedContent& content, bool hasUnseenFinish) {
    switch (content.kind()) {
    case ClosedContent::Case::meeting:
        return NotchTab::home;
    case ClosedContent::Case::attention:
        return NotchTab::agents;
    case ClosedContent::Case::transient:
        if (content.transientPayload()->activity.kind == TransientActivity::Case::agentDone) {
            return NotchTab::agents;
        }
        break;
    case ClosedContent::Case::working:
    case ClosedContent::Case::music:
    case ClosedContent::Case::none:
        break;
    }
    return hasUnseenFinish ? std::optional(NotchTab::agents) : std::nullopt;
}

QList<NotchTab> tabs(bool shelfEnabled) {
    QList<NotchTab> list{NotchTab::home, NotchTab::agents};
    if (shelfEnabled) {
        list.append(NotchTab::shelf);
    }
    return list;
}

qsizetype agentsBadge(const std::vector<const AgentSession*>& sessions) {
    qsizetype sum = 0;
    for (const AgentSession* session : sessions) {
        sum += static_cast<qsizetype>(session->pending().size());
    }
    return sum;
}

double spacerWidth(QSizeF notchSize) {
    return std::max(0.0, notchSize.width() - cameraMargin);
}

double outerInset(QSizeF notchSize) {
    return std::max(0.0, (notchSize.height() - wingContentHeight) / 2 - 4);
}

QList<BubblePlacement> bubbles(const QList<SecondaryActivity>& activities, QSizeF closedSize,
                               QSizeF notchSize) {
    const double height = notchSize.height();
    const double width = std::max(0.0, height - 2);
    const double halfIsland = closedSize.width() / 2;
    QList<BubblePlacement> placed;
    for (qsizetype i = 0; i < activities.size() && i < 2; ++i) {
        const BubbleSide side = i == 0 ? BubbleSide::left : BubbleSide::right;
        const double x = side == BubbleSide::left ? -halfIsland - bubbleGap - width : halfIsland + bubbleGap;
        placed.append({activities[i], side, x, width, height});
    }
    return placed;
}

} // namespace IslandLayout

} // namespace mirrowisp
