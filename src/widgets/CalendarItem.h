#pragma once

#include "base/Clock.h"

#include <QString>
#include <optional>

namespace mirrowisp {

// One event of the user's calendars, as the island and the home tab show it.
struct CalendarItem {
    QString id;
    QString title;
    Timestamp start = 0;
    Timestamp end = 0;
    std::optional<QString> meetingURL;

    bool operator==(const CalendarItem&) const = default;
};

} // namespace mirrowisp
