#pragma once

#include "widgets/CalendarItem.h"
#include "widgets/CalendarProvider.h"
#include "widgets/DesktopLauncher.h"

#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QTimer>
#include <functional>
#include <optional>

namespace mirrowisp {

// The next events of the user's calendars, the one live enough to offer in the closed island, and an
// announcement shortly before each starts. Main thread only.
class CalendarService : public QObject {
    Q_OBJECT

public:
    static constexpr qsizetype maxUpcoming = 12;
    static constexpr double reloadSeconds = 60;
    static constexpr double tickSeconds = 15;

    CalendarService(CalendarProvider& provider, const Clock& clock, QObject* parent = nullptr);

    // Runs the reload and tick timers for the life of the object, and reloads now.
    void start();
    // Reads the span from an hour ago to the end of tomorrow, when enabled.
    void reload();
    // Picks the live event and announces what starts within five minutes.
    void tick();

    void setEnabled(bool enabled);
    bool isEnabled() const { return enabled_; }

    // A provider with calendars.
    bool authorized() const { return authorized_; }
    // The names of the calendars read, for the settings.
    QStringList calendars() const { return provider_.calendars(); }
    const QList<CalendarItem>& upcoming() const { return upcoming_; }
    const std::optional<CalendarItem>& liveEvent() const { return liveEvent_; }
    std::optional<CalendarItem> item(const QString& id) const;

    // The user opened the item or joined it: it stops being live at once.
    void markHandled(const QString& id);

    // authorized, enabled, upcoming (times as ISO 8601 UTC, with the join caption as of now) and the
    // live item's id, for `mirrowisp ctl calendar`.
    QJsonObject toJson() const;

    // The desktop's calendar apps, tried in this order when an event has no meeting to join.
    static QStringList calendarApps();
    // A click on the event: its meeting while joinable, else the calendar app. Marks it handled.
    void open(const QString& id);
    // The join control: the meeting in the browser, whenever the item has one. Marks it handled.
    void join(const QString& id);
    // Who opens addresses and applications; the system's unless a test hands in its own.
    void setLauncher(DesktopLauncher* launcher) { launcher_ = launcher; }

    std::function<void(const CalendarItem&)> onEventSoon;

    // The item a provider's event makes; nothing for an event without a start or an end.
    static std::optional<CalendarItem> itemFor(const CalendarEvent& event);

Q_SIGNALS:
    void authorizedChanged();
    void calendarsChanged();
    void upcomingChanged();
    void liveEventChanged();

private:
    void apply(std::vector<CalendarEvent> events, Timestamp now);
    void setAuthorized(bool authorized);
    void setUpcoming(QList<CalendarItem> items);

    CalendarProvider& provider_;
    const Clock& clock_;
    bool enabled_ = true;
    bool authorized_ = false;
    QList<CalendarItem> upcoming_;
    std::optional<CalendarItem> liveEvent_;
    QSet<QString> announced_;
    QSet<QString> handled_;
    SystemDesktopLauncher systemLauncher_;
    DesktopLauncher* launcher_ = &systemLauncher_;
    QTimer reloadTimer_;
    QTimer tickTimer_;
    // Answers to older fetches that arrive after a newer one are dropped.
    quint64 generation_ = 0;
};

} // namespace mirrowisp
