#include "island/NotchTab.h"

namespace mirrowisp::NotchTabs {

QString rawValue(NotchTab tab) {
    switch (tab) {
    case NotchTab::home:
        return QStringLiteral("home");
    case NotchTab::agents:
        return QStringLiteral("agents");
    case NotchTab::shelf:
        return QStringLiteral("shelf");
    }
    return QStringLiteral("home");
}

std::optional<NotchTab> fromRawValue(QStringView raw) {
    for (NotchTab tab : {NotchTab::home, NotchTab::agents, NotchTab::shelf}) {
        if (raw == rawValue(tab)) {
            return tab;
        }
    }
    return std::nullopt;
}

} // namespace mirrowisp::NotchTabs
