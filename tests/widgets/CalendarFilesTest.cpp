#include "widgets/CalendarFiles.h"

#include "support/TestSupport.h"

#include <QDateTime>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace mirrowisp {
namespace {

using test::writeFile;

// 2030-01-07 (a Monday) 00:00 UTC and a span of a week from there.
constexpr Timestamp monday = 1893974400;
constexpr Timestamp weekEnd = monday + 7 * 86400;

QByteArray calendar(const QByteArray& body, const QByteArray& head = {}) {
    return "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//test//EN\r\n" + head + body + "END:VCALENDAR\r\n";
}

const QByteArray events = R"(BEGIN:VTIMEZONE
TZID:Test/Plus2
BEGIN:STANDARD
DTSTART:19700101T000000
TZOFFSETFROM:+0200
TZOFFSETTO:+0200
END:STANDARD
END:VTIMEZONE
BEGIN:VEVENT
UID:daily
SUMMARY:Standup
DTSTART;TZID=Test/Plus2:20200101T090000
DTEND;TZID=Test/Plus2:20200101T091500
RRULE:FREQ=DAILY
EXDATE;TZID=Test/Plus2:20300108T090000
DESCRIPTION:Join https://example.com/doc or https://zoom.us/j/42
END:VEVENT
BEGIN:VEVENT
UID:daily
RECURRENCE-ID;TZID=Test/Plus2:20300109T090000
SUMMARY:Standup (moved)
DTSTART;TZID=Test/Plus2:20300109T100000
DTEND;TZID=Test/Plus2:20300109T101500
END:VEVENT
BEGIN:VEVENT
UID:mars
SUMMARY:Nowhere zone
DTSTART;TZID=Mars/Olympus:20300110T120000
DTEND;TZID=Mars/Olympus:20300110T130000
STATUS:CANCELLED
END:VEVENT
BEGIN:VEVENT
UID:open-ended
SUMMARY:No end
DTSTART:20300111T080000Z
X-GOOGLE-CONFERENCE:https://meet.google.com/abc-defg-hij
END:VEVENT
BEGIN:VEVENT
UID:holiday
SUMMARY:Holiday
DTSTART;VALUE=DATE:20300112
THIS LINE IS BROKEN
END:VEVENT
BEGIN:VEVENT
UID:outside
SUMMARY:Next year
DTSTART:20310101T080000Z
DTEND:20310101T090000Z
END:VEVENT
)";

Timestamp local(int day, int hour, int minute = 0) {
    return double(QDateTime(QDate(2030, 1, day), QTime(hour, minute)).toSecsSinceEpoch());
}

class CalendarFilesTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    CalendarFiles files;

    QString path(const char* name) const { return dir.filePath(QString::fromUtf8(name)); }
    void use(const QStringList& paths) {
        QSignalSpy changed(&files, &CalendarProvider::changed);
        files.setPaths(paths);
        ASSERT_TRUE(test::waitUntil([&] { return !changed.isEmpty(); }));
    }
    std::vector<CalendarEvent> fetch(Timestamp from = monday, Timestamp to = weekEnd) {
        std::optional<std::vector<CalendarEvent>> answer;
        files.fetch(from, to, [&answer](std::vector<CalendarEvent> got) { answer = std::move(got); });
        EXPECT_TRUE(test::waitUntil([&] { return answer.has_value(); }));
        return answer.value_or(std::vector<CalendarEvent>{});
    }
};

TEST_F(CalendarFilesTest, ExpandsRepeatsAppliesExceptionsAndZones) {
    writeFile(path("work.ics"), calendar(events, "X-APPLE-CALENDAR-COLOR:#FF8800FF\r\n"));
    use({path("work.ics")});
    EXPECT_EQ(files.calendars(), QStringList{QStringLiteral("work")});

    QList<std::pair<QString, Timestamp>> got;
    for (const CalendarEvent& e : fetch()) {
        got.append({e.title, *e.start});
        EXPECT_EQ(e.color, QStringLiteral("#ff8800"));
        if (e.identifier == QLatin1String("daily")) {
            EXPECT_TRUE(e.isRecurring);
            EXPECT_EQ(*e.end - *e.start, 900);
        }
        if (e.identifier == QLatin1String("mars")) {
            EXPECT_EQ(e.status, CalendarEvent::Status::cancelled);
        }
        if (e.identifier == QLatin1String("open-ended")) {
            EXPECT_EQ(e.end, e.start);
            EXPECT_EQ(e.conferences, QStringList{QStringLiteral("https://meet.google.com/abc-defg-hij")});
        }
        if (e.identifier == QLatin1String("holiday")) {
            EXPECT_TRUE(e.isAllDay);
            EXPECT_EQ(*e.end - *e.start, 86400);
        }
    }
    const auto nine = [](int day) { return monday + (day - 7) * 86400 + 7 * 3600; }; // 09:00 at +02:00
    const auto byStart = [](const auto& a, const auto& b) { return a.second < b.second; };
    std::sort(got.begin(), got.end(), byStart);
    QList<std::pair<QString, Timestamp>> expected = {
        {QStringLiteral("Standup"), nine(7)},  {QStringLiteral("Standup (moved)"), nine(9) + 3600},
        {QStringLiteral("Standup"), nine(10)}, {QStringLiteral("Nowhere zone"), local(10, 12)},
        {QStringLiteral("Standup"), nine(11)}, {QStringLiteral("No end"), monday + 4 * 86400 + 8 * 3600},
        {QStringLiteral("Standup"), nine(12)}, {QStringLiteral("Holiday"), local(12, 0)},
        {QStringLiteral("Standup"), nine(13)},
    };
    std::sort(expected.begin(), expected.end(), byStart);
    EXPECT_EQ(got, expected);
}

TEST_F(CalendarFilesTest, ReadsVdirFoldersAndSkipsWhatItCannotRead) {
    const auto item = [](const char* uid, const char* start) {
        return calendar(QByteArray("BEGIN:VEVENT\r\nUID:") + uid + "\r\nSUMMARY:" + uid +
                        "\r\nDTSTART:" + start + "\r\nDTEND:" + start + "\r\nEND:VEVENT\r\n");
    };
    writeFile(path("vdir/home/a.ics"), item("a", "20300108T100000Z"));
    writeFile(path("vdir/home/color"), "#00ff00\n");
    writeFile(path("vdir/home/displayname"), "Home\n");
    writeFile(path("vdir/work/b.ics"), item("b", "20300109T100000Z"));
    writeFile(path("vdir/work/broken.ics"), "BEGIN:VCALENDAR\r\nBEGIN:VEVENT\r\nDTSTART:garbage\r\n");
    writeFile(path("vdir/work/notes.txt"), item("c", "20300109T100000Z"));
    ASSERT_EQ(mkfifo(path("vdir/work/fifo.ics").toLocal8Bit().constData(), 0600), 0);
    QFile huge(path("vdir/work/huge.ics"));
    ASSERT_TRUE(huge.open(QIODevice::WriteOnly) && huge.resize(50 * 1024 * 1024)); // sparse
    huge.close();

    use({path("vdir"), path("missing.ics")});
    EXPECT_EQ(files.calendars(), (QStringList{QStringLiteral("Home"), QStringLiteral("work")}));
    QStringList got;
    for (const CalendarEvent& e : fetch()) {
        got.append(e.title + QLatin1Char(' ') + e.color);
    }
    EXPECT_EQ(got, (QStringList{QStringLiteral("a #00ff00"), QStringLiteral("b ")}));
}

TEST_F(CalendarFilesTest, ReportsChangesToWatchedFiles) {
    writeFile(path("cal.ics"), calendar({}));
    use({path("cal.ics")});
    EXPECT_TRUE(fetch().empty());

    QSignalSpy changed(&files, &CalendarProvider::changed);
    writeFile(path("cal.ics"), calendar("BEGIN:VEVENT\r\nUID:n\r\nSUMMARY:New\r\nDTSTART:20300108T100000Z\r\n"
                                        "DTEND:20300108T110000Z\r\nEND:VEVENT\r\n"));
    ASSERT_TRUE(test::waitUntil([&] { return !changed.isEmpty(); }));
    const auto got = fetch();
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].title, QStringLiteral("New"));
}

TEST_F(CalendarFilesTest, NoticesAFolderThatAppearsLater) {
    use({path("later/calendars")});
    EXPECT_TRUE(files.calendars().isEmpty());

    writeFile(path("later/calendars/home/a.ics"), calendar({}));
    EXPECT_TRUE(test::waitUntil([&] { return files.calendars() == QStringList{QStringLiteral("home")}; }));
}

} // namespace
} // namespace mirrowisp
