#include "widgets/IcalEvent.h"

#include "widgets/IcsCalendar.h"

#include <QDateTime>

namespace mirrowisp::IcalEvent {

namespace {

QString text(const char* value) {
    return value ? QString::fromUtf8(value) : QString();
}

std::optional<QString> optionalText(const char* value) {
    QString s = text(value).trimmed();
    return s.isEmpty() ? std::nullopt : std::optional(s);
}

CalendarEvent::Status statusOf(icalcomponent* event) {
    switch (icalcomponent_get_status(event)) {
    case ICAL_STATUS_CANCELLED:
        return CalendarEvent::Status::cancelled;
    case ICAL_STATUS_TENTATIVE:
        return CalendarEvent::Status::tentative;
    case ICAL_STATUS_CONFIRMED:
        return CalendarEvent::Status::confirmed;
    default:
        return CalendarEvent::Status::none;
    }
}

} // namespace

std::optional<Timestamp> stamp(icaltimetype t) {
    if (icaltime_is_null_time(t) || !icaltime_is_valid_time(t)) {
        return std::nullopt;
    }
    const QDate date(t.year, t.month, t.day);
    if (!date.isValid()) {
        return std::nullopt;
    }
    if (t.is_date) {
        return static_cast<Timestamp>(date.startOfDay().toSecsSinceEpoch());
    }
    if (icaltime_is_utc(t) || t.zone) {
        return static_cast<Timestamp>(
            icaltime_as_timet_with_zone(t, t.zone ? t.zone : icaltimezone_get_utc_timezone()));
    }
    const QDateTime local(date, QTime(t.hour, t.minute, t.second));
    return local.isValid() ? std::optional(static_cast<Timestamp>(local.toSecsSinceEpoch())) : std::nullopt;
}

CalendarEvent fieldsOf(icalcomponent* event, const QString& color) {
    CalendarEvent e;
    e.identifier = text(icalcomponent_get_uid(event));
    e.eventIdentifier = optionalText(icalcomponent_get_uid(event));
    e.title = text(icalcomponent_get_summary(event)).trimmed();
    e.location = optionalText(icalcomponent_get_location(event));
    e.notes = optionalText(icalcomponent_get_description(event));
    e.status = statusOf(event);
    e.color = color;
    if (icalproperty* url = icalcomponent_get_first_property(event, ICAL_URL_PROPERTY)) {
        e.url = optionalText(icalproperty_get_url(url));
    }
    if (icalproperty* own = icalcomponent_get_first_property(event, ICAL_COLOR_PROPERTY)) {
        if (const QString c = calendarColor(text(icalproperty_get_color(own))); !c.isEmpty()) {
            e.color = c;
        }
    }
    for (icalproperty* p = icalcomponent_get_first_property(event, ICAL_CONFERENCE_PROPERTY); p;
         p = icalcomponent_get_next_property(event, ICAL_CONFERENCE_PROPERTY)) {
        e.conferences.append(text(icalproperty_get_conference(p)));
    }
    for (icalproperty* p = icalcomponent_get_first_property(event, ICAL_X_PROPERTY); p;
         p = icalcomponent_get_next_property(event, ICAL_X_PROPERTY)) {
        if (qstrcmp(icalproperty_get_x_name(p), "X-GOOGLE-CONFERENCE") == 0) {
            e.conferences.append(text(icalproperty_get_value_as_string(p)));
        }
    }
    e.isRecurring = icalcomponent_get_first_property(event, ICAL_RRULE_PROPERTY) ||
                    icalcomponent_get_first_property(event, ICAL_RDATE_PROPERTY) ||
                    icalcomponent_get_first_property(event, ICAL_RECURRENCEID_PROPERTY);
    return e;
}

} // namespace mirrowisp::IcalEvent
