#include "island/SecondaryActivity.h"

namespace mirrowisp {

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
