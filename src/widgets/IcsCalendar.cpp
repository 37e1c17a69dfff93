#include "widgets/IcsCalendar.h"

#include "widgets/IcalEvent.h"

#include <QColor>
#include <QDateTime>
#include <QHash>
#include <QSet>

namespace mirrowisp {

namespace {

using IcalEvent::fieldsOf;
using IcalEvent::stamp;

constexpr double secondsPerDay = 86400;
// A rule such as FREQ=SECONDLY over years must not hold up the queue.
constexpr int maxOccurrencesPerRule = 20000;

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
            return calendarColor(QString::fromUtf8(icalproperty_get_value_as_string(p)));
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
                    moved[QString::fromUtf8(icalcomponent_get_uid(e))].insert(static_cast<qint64>(*at));
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
            const double length = lengthOf(e, dtstart, *start);
            const bool isOverride = icalcomponent_get_first_property(e, ICAL_RECURRENCEID_PROPERTY);
            const bool repeats = icalcomponent_get_first_property(e, ICAL_RRULE_PROPERTY) ||
                                 icalcomponent_get_first_property(e, ICAL_RDATE_PROPERTY);
            // Most events of a long calendar lie outside the span: their fields are never read.
            if ((isOverride || !repeats) && !overlaps(*start, length, from, to)) {
                continue;
            }
            CalendarEvent fields = fieldsOf(e, color);
            fields.isAllDay = dtstart.is_date;
            if (isOverride || !repeats) {
                fields.start = *start;
                fields.end = *start + length;
                out.push_back(std::move(fields));
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
