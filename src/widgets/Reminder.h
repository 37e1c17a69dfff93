#pragma once

#include "base/Clock.h"

#include <QString>
#include <optional>

namespace mirrowisp {

// An open task of one of the user's task lists.
struct Reminder {
    QString listID; // the task list's identifier
    QString uid;    // the task's, within its list
    QString title;
    std::optional<Timestamp> due;
    bool isDueDate = false; // due on a day rather than at a time
    QString color;          // the list's, "#rrggbb"

    // Stable across readings: the list and the task.
    QString id() const { return listID + QLatin1Char('/') + uid; }
    bool operator==(const Reminder&) const = default;
};

} // namespace mirrowisp
