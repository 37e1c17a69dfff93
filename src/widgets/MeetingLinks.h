#pragma once

#include "widgets/CalendarEvent.h"

#include <QString>
#include <QStringList>
#include <optional>

namespace mirrowisp::MeetingLinks {

// Whether an address belongs to one of the video-meeting services.
bool isMeeting(const QString& text);

// The links in free text, in order of appearance; bare "www." and host/path forms get https.
QStringList linksIn(const QString& text);

// The event's meeting: its URL when that is one, then its conference properties, then the first
// meeting link in its location and notes (the location counts as coming first).
std::optional<QString> meetingURL(const CalendarEvent& event);

} // namespace mirrowisp::MeetingLinks
