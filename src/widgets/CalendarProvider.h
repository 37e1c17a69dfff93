#pragma once

#include "widgets/CalendarEvent.h"

#include <QObject>
#include <QStringList>
#include <functional>
#include <vector>

namespace mirrowisp {

// Where events come from: the calendar files, a calendar server. Reading happens off the main thread;
// answers arrive on it.
class CalendarProvider : public QObject {
    Q_OBJECT

public:
    using Answer = std::function<void(std::vector<CalendarEvent>)>;

    using QObject::QObject;
    ~CalendarProvider() override = default;

    // The names of the calendars it can read now; empty when it has none or isn't available.
    virtual QStringList calendars() const = 0;
    // The events and occurrences that overlap [from, to). `answer` runs on the main thread, later or
    // at once; a failure answers with what could be read, possibly nothing.
    virtual void fetch(Timestamp from, Timestamp to, Answer answer) = 0;

Q_SIGNALS:
    // The calendars or their events changed.
    void changed();
};

} // namespace mirrowisp
