#include "widgets/EvolutionStore.h"

#include "EvolutionServer.h"
#include "support/TestSupport.h"
#include "widgets/CalendarService.h"
#include "widgets/RemindersService.h"

#include <QDateTime>
#include <ctime>
#include <gtest/gtest.h>

namespace mirrowisp {
namespace {

using test::EvolutionServer;
using test::ManualClock;

constexpr Timestamp now = 1'800'000'000.0; // a Friday, 08:00 UTC
constexpr double minute = 60;
constexpr double hour = 3600;

QByteArray utc(Timestamp t) {
    return QDateTime::fromSecsSinceEpoch(static_cast<qint64>(t), Qt::UTC)
        .toString(QStringLiteral("yyyyMMdd'T'HHmmss'Z'"))
        .toLatin1();
}

QByteArray event(const char* uid, const char* title, Timestamp start, double length, const char* extra = "") {
    return "BEGIN:VEVENT\r\nUID:" + QByteArray(uid) + "\r\nSUMMARY:" + title + "\r\nDTSTART:" + utc(start) +
           "\r\nDTEND:" + utc(start + length) + "\r\n" + extra + "END:VEVENT\r\n";
}

QByteArray task(const char* uid, const char* title, const QByteArray& extra) {
    return "BEGIN:VTODO\r\nUID:" + QByteArray(uid) + "\r\nSUMMARY:" + title + "\r\n" + extra +
           "END:VTODO\r\n";
}

class EvolutionStoreTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        // Days begin at midnight UTC, wherever the test runs.
        qputenv("TZ", "UTC");
        tzset();
    }

    ManualClock clock{now};
};

// "a,b,c" as a list of names.
QStringList names(const char* list) {
    return QString::fromUtf8(list).split(u',', Qt::SkipEmptyParts);
}

QStringList titles(const QList<CalendarItem>& items) {
    QStringList out;
    for (const CalendarItem& item : items) {
        out.append(item.title);
    }
    return out;
}

TEST_F(EvolutionStoreTest, ReadsTheServersEventsFollowsItsChangesAndOutlivesIt) {
    EvolutionServer server;
    ASSERT_TRUE(server.problem().isEmpty()) << server.problem().toStdString();
    const QByteArray calendar[] = {
        event("standup", "Standup", now + 4 * minute, 30 * minute,
              "URL:https://example.com/agenda\r\nDESCRIPTION:Notes at https://docs.example.com/x then "
              "https://zoom.us/j/123\r\n"),
        event("review", "Review", now + 15 * minute, 30 * minute,
              "LOCATION:https://meet.google.com/abc-defg-hij\r\nDESCRIPTION:or https://zoom.us/j/999\r\n"),
        event("offsite", "Offsite", now + 30 * minute, 4 * hour),
        "BEGIN:VEVENT\r\nUID:holiday\r\nSUMMARY:Holiday\r\nDTSTART;VALUE=DATE:20270115\r\n"
        "DTEND;VALUE=DATE:20270116\r\nEND:VEVENT\r\n",
        event("cancelled", "Cancelled", now + 45 * minute, 30 * minute, "STATUS:CANCELLED\r\n"),
        event("sync", "Sync", now + hour, 15 * minute, "RRULE:FREQ=HOURLY;INTERVAL=12;COUNT=6\r\n"),
        event("ended", "Ended", now - 50 * minute, 30 * minute),
        event("e1", "E1", now + 2 * hour, 30 * minute),
        event("e2", "E2", now + 3 * hour, 30 * minute),
        event("e3", "E3", now + 4 * hour, 30 * minute),
        event("e4", "E4", now + 5 * hour, 30 * minute),
        event("e5", "E5", now + 6 * hour, 30 * minute),
        event("e6", "E6", now + 7 * hour, 30 * minute),
    };
    for (const QByteArray& component : calendar) {
        ASSERT_TRUE(server.add("work", component)) << component.constData();
    }

    EvolutionStore store;
    CalendarService service(store, clock);
    QStringList announced;
    service.onEventSoon = [&announced](const CalendarItem& item) { announced.append(item.title); };
    store.start();
    service.start();
    ASSERT_TRUE(
        test::waitUntil([&] { return service.upcoming().size() == CalendarService::maxUpcoming; }, 20000))
        << titles(service.upcoming()).join(u',').toStdString();
    EXPECT_TRUE(service.authorized());
    EXPECT_TRUE(store.calendars().contains(QStringLiteral("Work")));

    // Four occurrences of Sync fall in the span; the last two no longer fit.
    EXPECT_EQ(titles(service.upcoming()),
              names("Holiday,Standup,Review,Offsite,Sync,E1,E2,E3,E4,E5,E6,Sync"));
    const QList<CalendarItem>& items = service.upcoming();
    EXPECT_TRUE(items[0].isAllDay);
    EXPECT_EQ(items[1].meetingURL, QStringLiteral("https://zoom.us/j/123"));
    EXPECT_EQ(items[2].meetingURL, QStringLiteral("https://meet.google.com/abc-defg-hij"));
    EXPECT_EQ(items[3].end - items[3].start, 4 * hour);
    EXPECT_TRUE(items[4].isRecurring);
    EXPECT_EQ(items[11].start - items[4].start, 12 * hour);
    EXPECT_NE(items[4].id, items[11].id);
    for (const CalendarItem& item : items) {
        EXPECT_EQ(item.color, QStringLiteral("#ff8800")) << item.title.toStdString();
    }

    // The live and announce rules over the server's items, as the clock moves on.
    const struct {
        double offset;
        const char* live;
        const char* announced;
    } steps[] = {
        {0, "Standup", "Standup"},
        {12 * minute, "Standup", "Standup,Review"},
        {16 * minute, "Review", "Standup,Review"},
        {26 * minute, "", "Standup,Review,Offsite"},
        {56 * minute, "Sync", "Standup,Review,Offsite,Sync"},
    };
    for (const auto& step : steps) {
        clock.set(now + step.offset);
        service.tick();
        SCOPED_TRACE(step.offset);
        EXPECT_EQ(service.liveEvent() ? service.liveEvent()->title : QString(), QString::fromUtf8(step.live));
        EXPECT_EQ(announced, names(step.announced));
    }

    // A new event reaches the list through the server's change notice, with no reload asked for.
    clock.set(now);
    ASSERT_TRUE(server.add("work", event("late", "Late", now + 10 * minute, 20 * minute)));
    EXPECT_TRUE(
        test::waitUntil([&] { return titles(service.upcoming()).contains(QStringLiteral("Late")); }, 10000));

    // The factory dies: what it said last stands, and answers still come.
    server.killCalendarFactory();
    bool answered = false;
    std::vector<CalendarEvent> afterwards;
    store.fetch(now - hour, now + 2 * 86400, [&](std::vector<CalendarEvent> events) {
        answered = true;
        afterwards = std::move(events);
    });
    ASSERT_TRUE(test::waitUntil([&] { return answered; }, 30000));
    EXPECT_GE(afterwards.size(), 12u);
}

TEST_F(EvolutionStoreTest, ShowsTasksDueByTonightPerListAndCompletesThem) {
    EvolutionServer server;
    ASSERT_TRUE(server.problem().isEmpty()) << server.problem().toStdString();
    const QByteArray tasks[] = {
        task("overdue", "Overdue", "DUE:" + utc(now - 86400) + "\r\n"),
        task("tonight", "Tonight", "DUE:" + utc(now + 10 * hour) + "\r\n"),
        task("today", "All day", "DUE;VALUE=DATE:20270115\r\n"),
        task("tomorrow", "Tomorrow", "DUE:" + utc(now + 17 * hour) + "\r\n"),
        task("someday", "Someday", ""),
        task("done", "Done", "DUE:" + utc(now - hour) + "\r\nSTATUS:COMPLETED\r\n"),
    };
    for (const QByteArray& component : tasks) {
        ASSERT_TRUE(server.add("todo", component)) << component.constData();
    }
    EvolutionStore store;
    RemindersService reminders(store, clock);
    const auto shown = [&reminders] {
        QStringList out;
        for (const Reminder& r : reminders.items()) {
            out.append(r.title);
        }
        return out;
    };
    reminders.start();
    const QStringList due = names("Overdue,All day,Tonight");
    ASSERT_TRUE(test::waitUntil([&] { return shown() == due; }, 20000)) << shown().join(u',').toStdString();
    EXPECT_TRUE(reminders.available());
    EXPECT_EQ(reminders.items()[0].color, QStringLiteral("#33aa55"));

    const struct {
        const char* listID;
        QStringList shown;
    } lists[] = {{"elsewhere", {}}, {"todo", due}, {"", due}};
    for (const auto& list : lists) {
        reminders.setListID(QString::fromUtf8(list.listID));
        EXPECT_TRUE(test::waitUntil([&] { return shown() == list.shown; })) << list.listID;
    }

    reminders.complete(reminders.items()[2].id());
    EXPECT_EQ(shown(), names("Overdue,All day"));
    ASSERT_TRUE(
        test::waitUntil([&] { return server.component("todo", "tonight").contains("STATUS:COMPLETED"); }));
    EXPECT_TRUE(server.component("todo", "tonight").contains("PERCENT-COMPLETE:100"));
    std::optional<std::vector<Reminder>> open;
    store.fetchTasks({}, [&open](std::vector<Reminder> found) { open = std::move(found); });
    ASSERT_TRUE(test::waitUntil([&] { return open.has_value(); }));
    EXPECT_EQ(open->size(), 4u); // the five open ones but Tonight
}

TEST_F(EvolutionStoreTest, WithoutTheServerHasNoCalendarsAndAnswersEmpty) {
    EvolutionServer server(false);
    ASSERT_TRUE(server.problem().isEmpty()) << server.problem().toStdString();
    EvolutionStore store;
    CalendarService service(store, clock);
    store.start();
    service.start();
    bool answered = false;
    store.fetch(now, now + hour, [&](std::vector<CalendarEvent> events) { answered = events.empty(); });
    ASSERT_TRUE(test::waitUntil([&] { return answered; }, 30000));
    EXPECT_FALSE(service.authorized());
    EXPECT_TRUE(service.upcoming().isEmpty());
}

} // namespace
} // namespace mirrowisp
