#include "widgets/CalendarItem.h"

#include <cmath>

namespace mirrowisp {

namespace {
constexpr double joinLeadSeconds = 600;
}

bool CalendarItem::isJoinable(Timestamp at) const {
    return meetingURL.has_value() && at >= start - joinLeadSeconds && at < end;
}

QString CalendarItem::joinCaption(Timestamp at) const {
    if (!isJoinable(at)) {
        return {};
    }
    const auto minutes = static_cast<qint64>(std::ceil((start - at) / 60.0));
    if (minutes > 0) {
        return QStringLiteral("Join · starts in %1m").arg(minutes);
    }
    return QStringLiteral("Join · in progress");
}

} // namespace mirrowisp
