#pragma once

#include "base/Clock.h"

#include <QString>
#include <QStringList>
#include <optional>

namespace mirrowisp {

// An event (or one occurrence of a repeating one) as a calendar provider reads it.
struct CalendarEvent {
    enum class Status { none, tentative, confirmed, cancelled };

    QString identifier; // stable across occurrences of the same event
    QString title;
    std::optional<Timestamp> start;
    std::optional<Timestamp> end;
    bool isAllDay = false;
    QString color; // "#rrggbb"; empty for the default
    std::optional<QString> location;
    std::optional<QString> notes;
    std::optional<QString> url;
    QStringList conferences; // CONFERENCE and X-GOOGLE-CONFERENCE values
    Status status = Status::none;
    bool isRecurring = false;
    std::optional<QString> eventIdentifier; // what the desktop's calendar app knows it by
};

} // namespace mirrowisp
