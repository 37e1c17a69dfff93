// libFuzzer target: a calendar file parsed and its events expanded over two days, as the calendar
// reads the files it is given.
#include "widgets/IcsCalendar.h"
#include "widgets/MeetingLinks.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray text(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const auto calendar = mirrowisp::IcsCalendar::parse(text);
    if (!calendar) {
        return 0;
    }
    std::vector<mirrowisp::CalendarEvent> events;
    const double from = 1893974400;
    calendar->appendEvents(from, from + 172800, calendar->color(), events);
    for (const mirrowisp::CalendarEvent& event : events) {
        // Every occurrence overlaps the span and ends no earlier than it starts.
        if (!event.start || !event.end || *event.end < *event.start || *event.start >= from + 172800) {
            std::abort();
        }
        (void)mirrowisp::MeetingLinks::meetingURL(event);
    }
    return 0;
}
