#pragma once

#include "widgets/CalendarEvent.h"

#include <libical/ical.h>
#include <optional>

// What the calendar files and the calendar server share: both hand libical's components around.
namespace mirrowisp::IcalEvent {

// Seconds since 1970 of an iCalendar time: dates at local midnight, floating times and times in a
// zone nobody defines as local wall-clock time.
std::optional<Timestamp> stamp(icaltimetype t);

// The fields every occurrence of the event shares; `color` stands in when it has none of its own.
CalendarEvent fieldsOf(icalcomponent* event, const QString& color);

} // namespace mirrowisp::IcalEvent
