#pragma once

#include "base/Clock.h"

#include <QString>
#include <optional>

namespace mirrowisp {

// One event of the user's calendars, as the island and the home tab show it. Each occurrence of a
// repeating event is an item of its own: `id` carries its start.
struct CalendarItem {
    QString id;
    QString title;
    Timestamp start = 0;
    Timestamp end = 0;
    std::optional<QString> meetingURL;
    bool isAllDay = false;
    // Initialised, so that records written as {id, title, start, end, url} stay complete.
    QString color{}; // "#rrggbb", the calendar's
    std::optional<QString> location{};
    std::optional<QString> eventIdentifier{};
    bool isRecurring = false;

    // From ten minutes before the start until the end, when there is a meeting to join.
    bool isJoinable(Timestamp at) const;
    // "Join · starts in 2m" or "Join · in progress" while joinable; empty otherwise.
    QString joinCaption(Timestamp at) const;

    bool operator==(const CalendarItem&) const = default;
};

} // namespace mirrowisp
