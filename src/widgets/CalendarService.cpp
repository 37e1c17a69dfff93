#include "widgets/CalendarService.h"

#include "widgets/MeetingLinks.h"

#include <QDateTime>
#include <QJsonArray>
#include <algorithm>

namespace mirrowisp {

namespace {

constexpr double lookBackSeconds = 3600;
constexpr double fallbackSpanSeconds = 172800;
constexpr double longestLiveSeconds = 10800;
constexpr double liveLeadSeconds = 300;
constexpr double liveTailSeconds = 600;
constexpr double announceLeadSeconds = 300;
constexpr int spanDays = 2;

// The start of the day after tomorrow, local time.
Timestamp spanEnd(Timestamp now) {
    const QDateTime local = QDateTime::fromSecsSinceEpoch(static_cast<qint64>(now));
    const QDateTime end = local.date().addDays(spanDays).startOfDay();
    return end.isValid() ? static_cast<Timestamp>(end.toSecsSinceEpoch()) : now + fallbackSpanSeconds;
}

} // namespace

CalendarService::CalendarService(CalendarProvider& provider, const Clock& clock, QObject* parent)
    : QObject(parent), provider_(provider), clock_(clock) {
    connect(&provider_, &CalendarProvider::changed, this, &CalendarService::reload);
    connect(&provider_, &CalendarProvider::changed, this, &CalendarService::calendarsChanged);
    connect(&reloadTimer_, &QTimer::timeout, this, &CalendarService::reload);
    connect(&tickTimer_, &QTimer::timeout, this, &CalendarService::tick);
}

void CalendarService::start() {
    setAuthorized(!provider_.calendars().isEmpty());
    reloadTimer_.start(static_cast<int>(reloadSeconds * 1000));
    tickTimer_.start(static_cast<int>(tickSeconds * 1000));
    reload();
}

void CalendarService::setEnabled(bool enabled) {
    if (enabled != enabled_) {
        enabled_ = enabled;
        reload();
    }
}

void CalendarService::reload() {
    setAuthorized(!provider_.calendars().isEmpty());
    const quint64 generation = ++generation_;
    if (!enabled_ || !authorized_) {
        setUpcoming({});
        tick();
        return;
    }
    const Timestamp now = clock_.now();
    QPointer<CalendarService> self(this);
    provider_.fetch(now - lookBackSeconds, spanEnd(now),
                    [self, generation, now](std::vector<CalendarEvent> events) {
                        if (self && generation == self->generation_) {
                            self->apply(std::move(events), now);
                        }
                    });
}

std::optional<CalendarItem> CalendarService::itemFor(const CalendarEvent& event) {
    if (!event.start || !event.end) {
        return std::nullopt;
    }
    CalendarItem item;
    item.id = event.identifier + QString::number(static_cast<qint64>(*event.start));
    item.title = event.title.isEmpty() ? QStringLiteral("Untitled") : event.title;
    item.start = *event.start;
    item.end = *event.end;
    item.isAllDay = event.isAllDay;
    item.color = event.color.isEmpty() ? QStringLiteral("#0a84ff") : event.color;
    item.location = event.location;
    item.meetingURL = MeetingLinks::meetingURL(event);
    item.eventIdentifier = event.eventIdentifier;
    item.isRecurring = event.isRecurring;
    return item;
}

void CalendarService::apply(std::vector<CalendarEvent> events, Timestamp now) {
    QList<CalendarItem> items;
    for (const CalendarEvent& event : events) {
        if (event.status == CalendarEvent::Status::cancelled || !event.end || *event.end <= now) {
            continue;
        }
        if (auto item = itemFor(event)) {
            items.append(*std::move(item));
        }
    }
    std::stable_sort(items.begin(), items.end(),
                     [](const CalendarItem& a, const CalendarItem& b) { return a.start < b.start; });
    if (items.size() > maxUpcoming) {
        items.resize(maxUpcoming);
    }
    setUpcoming(std::move(items));
    tick();
}

void CalendarService::tick() {
    const Timestamp now = clock_.now();
    std::optional<CalendarItem> live;
    for (const CalendarItem& item : upcoming_) {
        if (!item.isAllDay && !handled_.contains(item.id) && item.end - item.start <= longestLiveSeconds &&
            now >= item.start - liveLeadSeconds && now < std::min(item.end, item.start + liveTailSeconds)) {
            live = item;
            break;
        }
    }
    if (live != liveEvent_) {
        liveEvent_ = std::move(live);
        Q_EMIT liveEventChanged();
    }
    // Copied: the callback may reload, which replaces the list.
    const QList<CalendarItem> items = upcoming_;
    for (const CalendarItem& item : items) {
        if (item.isAllDay || announced_.contains(item.id)) {
            continue;
        }
        const double interval = item.start - now;
        if (interval > 0 && interval <= announceLeadSeconds) {
            announced_.insert(item.id);
            if (onEventSoon) {
                onEventSoon(item);
            }
        }
    }
}

std::optional<CalendarItem> CalendarService::item(const QString& id) const {
    for (const CalendarItem& item : upcoming_) {
        if (item.id == id) {
            return item;
        }
    }
    return std::nullopt;
}

void CalendarService::markHandled(const QString& id) {
    handled_.insert(id);
    tick();
}

QJsonObject CalendarService::toJson() const {
    const Timestamp now = clock_.now();
    const auto iso = [](Timestamp t) {
        return QDateTime::fromSecsSinceEpoch(static_cast<qint64>(t), Qt::UTC).toString(Qt::ISODate);
    };
    const auto optional = [](const std::optional<QString>& value) {
        return value ? QJsonValue(*value) : QJsonValue(QJsonValue::Null);
    };
    QJsonArray items;
    for (const CalendarItem& item : upcoming_) {
        items.append(QJsonObject{{QStringLiteral("id"), item.id},
                                 {QStringLiteral("title"), item.title},
                                 {QStringLiteral("start"), iso(item.start)},
                                 {QStringLiteral("end"), iso(item.end)},
                                 {QStringLiteral("isAllDay"), item.isAllDay},
                                 {QStringLiteral("color"), item.color},
                                 {QStringLiteral("location"), optional(item.location)},
                                 {QStringLiteral("meetingURL"), optional(item.meetingURL)},
                                 {QStringLiteral("isRecurring"), item.isRecurring},
                                 {QStringLiteral("caption"), item.joinCaption(now)}});
    }
    return {{QStringLiteral("authorized"), authorized_},
            {QStringLiteral("enabled"), enabled_},
            {QStringLiteral("upcoming"), items},
            {QStringLiteral("live"), liveEvent_ ? QJsonValue(liveEvent_->id) : QJsonValue(QJsonValue::Null)}};
}

QStringList CalendarService::calendarApps() {
    return {QStringLiteral("org.gnome.Calendar.desktop"),  QStringLiteral("org.kde.korganizer.desktop"),
            QStringLiteral("org.gnome.Evolution.desktop"), QStringLiteral("gnome-calendar.desktop"),
            QStringLiteral("korganizer.desktop"),          QStringLiteral("evolution.desktop")};
}

void CalendarService::open(const QString& id) {
    const auto found = item(id);
    if (!found) {
        return;
    }
    if (found->isJoinable(clock_.now())) {
        launcher_->openUrl(*found->meetingURL);
    } else {
        launcher_->launchFirst(calendarApps());
    }
    markHandled(id);
}

void CalendarService::join(const QString& id) {
    const auto found = item(id);
    if (!found || !found->meetingURL) {
        return;
    }
    launcher_->openUrl(*found->meetingURL);
    markHandled(id);
}

void CalendarService::setAuthorized(bool authorized) {
    if (authorized != authorized_) {
        authorized_ = authorized;
        Q_EMIT authorizedChanged();
    }
}

void CalendarService::setUpcoming(QList<CalendarItem> items) {
    if (items != upcoming_) {
        upcoming_ = std::move(items);
        Q_EMIT upcomingChanged();
    }
}

} // namespace mirrowisp
