#include "island/SecondaryActivity.h"

#include "island/ClosedContent.h"
#include "island/IslandInputs.h"

namespace mirrowisp {

namespace {
constexpr qsizetype maxBubbles = 2;
} // namespace

QList<SecondaryActivity> SecondaryActivity::resolveAll(const IslandInputs& inputs,
                                                       const ClosedContent& primary) {
    QList<SecondaryActivity> bubbles;
    switch (primary.kind()) {
    case ClosedContent::Case::attention:
    case ClosedContent::Case::working:
        if (inputs.isMeetingLive()) {
            bubbles.append(meeting());
        }
        if (inputs.isMusicLive()) {
            bubbles.append(music());
        }
        break;
    case ClosedContent::Case::meeting:
        if (inputs.isMusicLive()) {
            bubbles.append(music());
        }
        break;
    case ClosedContent::Case::transient:
    case ClosedContent::Case::music:
    case ClosedContent::Case::none:
        break;
    }
    if (bubbles.size() > maxBubbles) {
        bubbles.resize(maxBubbles);
    }
    return bubbles;
}

QString SecondaryActivity::key() const {
    switch (kind) {
    case Case::music:
        return QStringLiteral("music");
    case Case::meeting:
        return QStringLiteral("meeting");
    case Case::agent:
        return QStringLiteral("agent-") + AgentKinds::rawValue(agent) + QLatin1Char('-') +
               (needsUser ? QStringLiteral("true") : QStringLiteral("false"));
    }
    return {};
}

} // namespace mirrowisp
