#include "widgets/IcsCalendar.h"

#include <QColor>
#include <QDateTime>
#include <QHash>
#include <QSet>
#include <libical/ical.h>

namespace mirrowisp {

namespace {

constexpr double secondsPerDay = 86400;
// A rule such as FREQ=SECONDLY over years must not hold up the queue.
constexpr int maxOccurrencesPerRule = 20000;

QString text(const char* value) {
    return value ? QString::fromUtf8(value) : QString();
}

std::optional<QString> optionalText(const char* value) {
    QString s = text(value).trimmed();
    return s.isEmpty() ? std::nullopt : std::optional(s);
}

// Seconds since 1970 of an iCalendar time: dates at local midnight, floating times and times in a
// zone nobody defines as local wall-clock time.
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

// The fields every occurrence of the event shares.
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

// An event without an end lasts a day when it is a date, no time at all otherwise.
double lengthOf(icalcomponent* event, icaltimetype dtstart, Timestamp start) {
    const std::optional<Timestamp> end = stamp(icalcomponent_get_dtend(event));
    if (end && *end >= start) {
        return *end - start;
    }
    return dtstart.is_date ? secondsPerDay : 0;
}

bool overlaps(Timestamp start, double length, Timestamp from, Timestamp to) {
    return start < to && (start + length > from || (length == 0 && start >= from));
}

// Exceptions and extra dates without a zone of their own are in the event's.
icaltimetype inZoneOf(icaltimetype t, icaltimetype dtstart) {
    if (!t.zone && !icaltime_is_utc(t) && !t.is_date) {
        t.zone = dtstart.zone;
    }
    return t;
}

QSet<qint64> exceptionsOf(icalcomponent* event, icaltimetype dtstart) {
    QSet<qint64> out;
    for (icalproperty* p = icalcomponent_get_first_property(event, ICAL_EXDATE_PROPERTY); p;
         p = icalcomponent_get_next_property(event, ICAL_EXDATE_PROPERTY)) {
        if (const auto at = stamp(inZoneOf(icalproperty_get_datetime_with_component(p, event), dtstart))) {
            out.insert(static_cast<qint64>(*at));
        }
    }
    return out;
}

// The starts of a repeating event from its rules and extra dates, bounded by `to`.
QList<Timestamp> occurrencesOf(icalcomponent* event, icaltimetype dtstart, double length, Timestamp from,
                               Timestamp to) {
    QList<Timestamp> starts;
    const auto first = stamp(dtstart);
    for (icalproperty* p = icalcomponent_get_first_property(event, ICAL_RRULE_PROPERTY); p;
         p = icalcomponent_get_next_property(event, ICAL_RRULE_PROPERTY)) {
        const icalrecurrencetype rule = icalproperty_get_rrule(p);
        icalrecur_iterator* it = icalrecur_iterator_new(rule, dtstart);
        if (!it) {
            continue;
        }
        // Skip the years before the span; two days of slack cover any zone's offset.
        const Timestamp skipTo = from - length - 2 * secondsPerDay;
        if (rule.count == 0 && first && skipTo > *first) {
            icalrecur_iterator_set_start(it, icaltime_from_timet_with_zone(static_cast<time_t>(skipTo), 0,
                                                                           icaltimezone_get_utc_timezone()));
        }
        for (int n = 0; n < maxOccurrencesPerRule; ++n) {
            const icaltimetype next = icalrecur_iterator_next(it);
            const auto at = stamp(next);
            if (!at || *at >= to) {
                break;
            }
            starts.append(*at);
        }
        icalrecur_iterator_free(it);
    }
    for (icalproperty* p = icalcomponent_get_first_property(event, ICAL_RDATE_PROPERTY); p;
         p = icalcomponent_get_next_property(event, ICAL_RDATE_PROPERTY)) {
        const icaldatetimeperiodtype value = icalproperty_get_rdate(p);
        const icaltimetype at = icaltime_is_null_time(value.time) ? value.period.start : value.time;
        if (const auto s = stamp(inZoneOf(at, dtstart))) {
            starts.append(*s);
        }
    }
    if (first && !starts.contains(*first) && *first < to) {
        starts.prepend(*first);
    }
    return starts;
}

} // namespace

struct IcsCalendar::Root {
    icalcomponent* component = nullptr;
    ~Root() {
        if (component) {
            icalcomponent_free(component);
        }
    }
};

IcsCalendar::IcsCalendar(std::unique_ptr<Root> root) : root_(std::move(root)) {}
IcsCalendar::IcsCalendar(IcsCalendar&&) noexcept = default;
IcsCalendar& IcsCalendar::operator=(IcsCalendar&&) noexcept = default;
IcsCalendar::~IcsCalendar() = default;

std::optional<IcsCalendar> IcsCalendar::parse(const QByteArray& text) {
    // A broken file must never end the program.
    icalerror_set_errors_are_fatal(0);
    const QByteArray terminated = text + '\0';
    auto root = std::make_unique<Root>();
    root->component = icalparser_parse_string(terminated.constData());
    if (!root->component) {
        return std::nullopt;
    }
    const icalcomponent_kind kind = icalcomponent_isa(root->component);
    if (kind != ICAL_VCALENDAR_COMPONENT && kind != ICAL_XROOT_COMPONENT) {
        return std::nullopt;
    }
    return IcsCalendar(std::move(root));
}

QString IcsCalendar::color() const {
    icalcomponent* calendar = root_->component;
    if (icalcomponent_isa(calendar) == ICAL_XROOT_COMPONENT) {
        calendar = icalcomponent_get_first_component(calendar, ICAL_VCALENDAR_COMPONENT);
    }
    if (!calendar) {
        return {};
    }
    for (icalproperty* p = icalcomponent_get_first_property(calendar, ICAL_ANY_PROPERTY); p;
         p = icalcomponent_get_next_property(calendar, ICAL_ANY_PROPERTY)) {
        const bool own = icalproperty_isa(p) == ICAL_COLOR_PROPERTY ||
                         (icalproperty_isa(p) == ICAL_X_PROPERTY &&
                          qstrcmp(icalproperty_get_x_name(p), "X-APPLE-CALENDAR-COLOR") == 0);
        if (own) {
            return calendarColor(text(icalproperty_get_value_as_string(p)));
        }
    }
    return {};
}

void IcsCalendar::appendEvents(Timestamp from, Timestamp to, const QString& color,
                               std::vector<CalendarEvent>& out) const {
    QList<icalcomponent*> calendars;
    if (icalcomponent_isa(root_->component) == ICAL_XROOT_COMPONENT) {
        for (icalcomponent* c = icalcomponent_get_first_component(root_->component, ICAL_VCALENDAR_COMPONENT);
             c; c = icalcomponent_get_next_component(root_->component, ICAL_VCALENDAR_COMPONENT)) {
            calendars.append(c);
        }
    } else {
        calendars.append(root_->component);
    }
    for (icalcomponent* calendar : calendars) {
        // Occurrences moved or changed by an item of their own: the rule's copy gives way.
        QHash<QString, QSet<qint64>> moved;
        for (icalcomponent* e = icalcomponent_get_first_component(calendar, ICAL_VEVENT_COMPONENT); e;
             e = icalcomponent_get_next_component(calendar, ICAL_VEVENT_COMPONENT)) {
            if (icalproperty* id = icalcomponent_get_first_property(e, ICAL_RECURRENCEID_PROPERTY)) {
                const icaltimetype original = icalproperty_get_datetime_with_component(id, e);
                if (const auto at = stamp(inZoneOf(original, icalcomponent_get_dtstart(e)))) {
                    moved[text(icalcomponent_get_uid(e))].insert(static_cast<qint64>(*at));
                }
            }
        }
        for (icalcomponent* e = icalcomponent_get_first_component(calendar, ICAL_VEVENT_COMPONENT); e;
             e = icalcomponent_get_next_component(calendar, ICAL_VEVENT_COMPONENT)) {
            const icaltimetype dtstart = icalcomponent_get_dtstart(e);
            const std::optional<Timestamp> start = stamp(dtstart);
            if (!start) {
                continue;
            }
            CalendarEvent fields = fieldsOf(e, color);
            fields.isAllDay = dtstart.is_date;
            const double length = lengthOf(e, dtstart, *start);
            const bool isOverride = icalcomponent_get_first_property(e, ICAL_RECURRENCEID_PROPERTY);
            if (isOverride || !fields.isRecurring) {
                if (overlaps(*start, length, from, to)) {
                    fields.start = *start;
                    fields.end = *start + length;
                    out.push_back(std::move(fields));
                }
                continue;
            }
            const QSet<qint64> skipped = exceptionsOf(e, dtstart) + moved.value(fields.identifier);
            for (const Timestamp at : occurrencesOf(e, dtstart, length, from, to)) {
                if (overlaps(at, length, from, to) && !skipped.contains(static_cast<qint64>(at))) {
                    CalendarEvent occurrence = fields;
                    occurrence.start = at;
                    occurrence.end = at + length;
                    out.push_back(std::move(occurrence));
                }
            }
        }
    }
}

QString calendarColor(const QString& text) {
    QString value = text.trimmed();
    if (value.startsWith(QLatin1Char('#')) && value.size() == 9) {
        value.chop(2); // #rrggbbaa: the alpha is not ours to show
    }
    const QColor color = QColor::fromString(value);
    return color.isValid() ? color.name() : QString();
}

} // namespace mirrowisp
