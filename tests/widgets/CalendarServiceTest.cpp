#include "widgets/CalendarService.h"

#include "support/TestSupport.h"
#include "widgets/MeetingLinks.h"

#include <QDateTime>
#include <gtest/gtest.h>

namespace mirrowisp {
namespace {

using test::ManualClock;

// Answers with whatever the test put in, at once or when the test says.
class ListProvider final : public CalendarProvider {
public:
    QStringList calendars() const override { return names; }
    void fetch(Timestamp from, Timestamp to, Answer answer) override {
        span = {from, to};
        if (holdAnswers) {
            held.push_back(std::move(answer));
        } else {
            answer(events);
        }
    }

    QStringList names{QStringLiteral("Work")};
    std::vector<CalendarEvent> events;
    std::pair<Timestamp, Timestamp> span{0, 0};
    bool holdAnswers = false;
    std::vector<Answer> held;
};

CalendarEvent event(const char* id, Timestamp start, double length) {
    CalendarEvent e;
    e.identifier = QString::fromUtf8(id);
    e.title = QString::fromUtf8(id);
    e.start = start;
    e.end = start + length;
    return e;
}

class CalendarServiceTest : public ::testing::Test {
protected:
    ManualClock clock{1'800'000'000.0};
    ListProvider provider;
    CalendarService service{provider, clock};
    QStringList announced;

    void SetUp() override {
        service.onEventSoon = [this](const CalendarItem& item) { announced.append(item.title); };
    }
    QStringList titles() const {
        QStringList out;
        for (const CalendarItem& item : service.upcoming()) {
            out.append(item.title);
        }
        return out;
    }
};

TEST_F(CalendarServiceTest, ReloadKeepsTwelveSortedAndDropsEndedAndCancelled) {
    const Timestamp now = clock.now();
    CalendarEvent cancelled = event("cancelled", now + 60, 600);
    cancelled.status = CalendarEvent::Status::cancelled;
    provider.events = {event("ended", now - 1800, 600), cancelled, event("no-end", now + 30, 60)};
    provider.events.back().end.reset();
    for (int i = 13; i >= 1; --i) {
        provider.events.push_back(event(QByteArray::number(i).constData(), now + i * 600, 300));
    }
    service.reload();

    QStringList expected;
    for (int i = 1; i <= 12; ++i) {
        expected.append(QString::number(i));
    }
    EXPECT_EQ(titles(), expected);
    EXPECT_EQ(service.upcoming().front().id, QStringLiteral("1") + QString::number(qint64(now + 600)));
    const QDateTime local = QDateTime::fromSecsSinceEpoch(qint64(now));
    EXPECT_EQ(provider.span.first, now - 3600);
    EXPECT_EQ(provider.span.second, double(local.date().addDays(2).startOfDay().toSecsSinceEpoch()));
}

TEST_F(CalendarServiceTest, DisabledOrWithoutCalendarsShowsNothing) {
    provider.events = {event("a", clock.now() + 60, 600)};
    service.reload();
    ASSERT_EQ(service.upcoming().size(), 1);
    ASSERT_TRUE(service.authorized());

    service.setEnabled(false);
    EXPECT_TRUE(service.upcoming().isEmpty());
    EXPECT_FALSE(service.liveEvent());

    service.setEnabled(true);
    provider.names.clear();
    service.reload();
    EXPECT_FALSE(service.authorized());
    EXPECT_TRUE(service.upcoming().isEmpty());
}

TEST_F(CalendarServiceTest, AnAnswerOvertakenByANewerReloadIsDropped) {
    provider.holdAnswers = true;
    service.reload();
    service.reload();
    ASSERT_EQ(provider.held.size(), 2u);
    provider.held[1]({event("new", clock.now() + 60, 600)});
    provider.held[0]({event("old", clock.now() + 60, 600)});
    EXPECT_EQ(titles(), QStringList{QStringLiteral("new")});
}

struct LiveCase {
    const char* name;
    double startIn; // seconds from now
    double length;
    bool allDay;
    bool live;
};

class LiveRuleTest : public CalendarServiceTest, public ::testing::WithParamInterface<LiveCase> {};

TEST_P(LiveRuleTest, DecidesWhatIsLive) {
    const LiveCase& c = GetParam();
    CalendarEvent e = event("e", clock.now() + c.startIn, c.length);
    e.isAllDay = c.allDay;
    provider.events = {e};
    service.reload();
    EXPECT_EQ(service.liveEvent().has_value(), c.live);
}

INSTANTIATE_TEST_SUITE_P(Cases, LiveRuleTest,
                         ::testing::Values(LiveCase{"fiveMinutesAhead", 300, 1800, false, true},
                                           LiveCase{"justOverFiveMinutesAhead", 301, 1800, false, false},
                                           LiveCase{"tenMinutesIn", -599, 1800, false, true},
                                           LiveCase{"pastTenMinutes", -600, 1800, false, false},
                                           LiveCase{"endedBeforeTenMinutes", -300, 300, false, false},
                                           LiveCase{"threeHours", 60, 10800, false, true},
                                           LiveCase{"overThreeHours", 60, 10801, false, false},
                                           LiveCase{"allDay", -60, 86400, true, false}),
                         [](const auto& param) { return std::string(param.param.name); });

TEST_F(CalendarServiceTest, HandledItemStopsBeingLive) {
    provider.events = {event("a", clock.now() + 60, 600), event("b", clock.now() + 120, 600)};
    service.reload();
    ASSERT_EQ(service.liveEvent()->title, QStringLiteral("a"));
    service.markHandled(service.liveEvent()->id);
    EXPECT_EQ(service.liveEvent()->title, QStringLiteral("b"));
}

TEST_F(CalendarServiceTest, AnnouncesOnceWithinFiveMinutes) {
    const Timestamp now = clock.now();
    CalendarEvent allDay = event("allDay", now + 120, 86400);
    allDay.isAllDay = true;
    provider.events = {event("soon", now + 240, 600), event("long", now + 200, 4 * 3600), allDay,
                       event("later", now + 400, 600), event("started", now - 10, 600)};
    service.reload();
    EXPECT_EQ(announced, (QStringList{QStringLiteral("long"), QStringLiteral("soon")}));

    service.reload();
    service.tick();
    clock.advance(120);
    service.tick();
    EXPECT_EQ(announced,
              (QStringList{QStringLiteral("long"), QStringLiteral("soon"), QStringLiteral("later")}));

    CalendarService restarted(provider, clock);
    QStringList again;
    restarted.onEventSoon = [&again](const CalendarItem& item) { again.append(item.title); };
    restarted.reload();
    EXPECT_EQ(again, announced);
}

class RecordingLauncher final : public DesktopLauncher {
public:
    bool openUrl(const QString& url) override {
        calls.append(url);
        return true;
    }
    std::optional<QString> launchFirst(const QStringList& ids) override {
        calls.append(ids.join(QLatin1Char(',')));
        return std::nullopt;
    }
    QStringList calls;
};

struct OpenCase {
    const char* name;
    double startIn;
    bool hasLink;
    bool join; // the join control rather than the row
    bool opensMeeting;
    bool opensApp;
};

class OpenTest : public CalendarServiceTest, public ::testing::WithParamInterface<OpenCase> {};

TEST_P(OpenTest, OpensTheMeetingOrTheCalendarApp) {
    const OpenCase& c = GetParam();
    CalendarEvent e = event("e", clock.now() + c.startIn, 1800);
    if (c.hasLink) {
        e.notes = QStringLiteral("https://zoom.us/j/5");
    }
    provider.events = {e};
    service.reload();
    RecordingLauncher launcher;
    service.setLauncher(&launcher);
    const QString id = service.upcoming().front().id;
    c.join ? service.join(id) : service.open(id);

    QStringList expected;
    if (c.opensMeeting) {
        expected.append(QStringLiteral("https://zoom.us/j/5"));
    }
    if (c.opensApp) {
        expected.append(CalendarService::calendarApps().join(QLatin1Char(',')));
    }
    EXPECT_EQ(launcher.calls, expected);
    // Once opened the item stops being live; a join without a meeting changes nothing.
    EXPECT_EQ(service.liveEvent().has_value(), c.startIn < 300 && launcher.calls.isEmpty());
}

INSTANTIATE_TEST_SUITE_P(Cases, OpenTest,
                         ::testing::Values(OpenCase{"joinableRow", 120, true, false, true, false},
                                           OpenCase{"earlyRow", 3600, true, false, false, true},
                                           OpenCase{"rowWithoutLink", 120, false, false, false, true},
                                           OpenCase{"earlyJoin", 3600, true, true, true, false},
                                           OpenCase{"joinWithoutLink", 120, false, true, false, false}),
                         [](const auto& param) { return std::string(param.param.name); });

TEST(DesktopEntryTest, ExecLineWithoutFieldCodes) {
    const QByteArray entry = "[Desktop Action new]\nExec=wrong\n[Desktop Entry]\nName=Calendar\n"
                             "Exec=gnome-calendar --gapplication-service %U \"a b\"\n";
    EXPECT_EQ(SystemDesktopLauncher::execCommand(entry),
              (QStringList{QStringLiteral("gnome-calendar"), QStringLiteral("--gapplication-service"),
                           QStringLiteral("a b")}));
}

struct CaptionCase {
    const char* name;
    double startIn;
    bool hasLink;
    const char* caption;
};

class JoinCaptionTest : public ::testing::TestWithParam<CaptionCase> {};

TEST_P(JoinCaptionTest, SaysWhenToJoin) {
    const CaptionCase& c = GetParam();
    CalendarItem item;
    item.start = 1000 + c.startIn;
    item.end = item.start + 1800;
    if (c.hasLink) {
        item.meetingURL = QStringLiteral("https://zoom.us/j/1");
    }
    EXPECT_EQ(item.joinCaption(1000), QString::fromUtf8(c.caption));
    EXPECT_EQ(item.isJoinable(1000), !QString::fromUtf8(c.caption).isEmpty());
}

INSTANTIATE_TEST_SUITE_P(Cases, JoinCaptionTest,
                         ::testing::Values(CaptionCase{"ninetySecondsAhead", 90, true, "Join · starts in 2m"},
                                           CaptionCase{"tenMinutesAhead", 600, true, "Join · starts in 10m"},
                                           CaptionCase{"beyondTenMinutes", 601, true, ""},
                                           CaptionCase{"started", -60, true, "Join · in progress"},
                                           CaptionCase{"ended", -1800, true, ""},
                                           CaptionCase{"noLink", 90, false, ""}),
                         [](const auto& param) { return std::string(param.param.name); });

struct LinkCase {
    const char* name;
    const char* url;
    const char* location;
    const char* notes;
    const char* conference;
    const char* expected; // empty: no meeting
};

class MeetingLinkTest : public ::testing::TestWithParam<LinkCase> {};

TEST_P(MeetingLinkTest, FindsTheMeeting) {
    const LinkCase& c = GetParam();
    CalendarEvent e;
    const auto optional = [](const char* s) {
        return *s ? std::optional(QString::fromUtf8(s)) : std::nullopt;
    };
    e.url = optional(c.url);
    e.location = optional(c.location);
    e.notes = optional(c.notes);
    if (*c.conference) {
        e.conferences.append(QString::fromUtf8(c.conference));
    }
    EXPECT_EQ(MeetingLinks::meetingURL(e).value_or(QString()), QString::fromUtf8(c.expected));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, MeetingLinkTest,
    ::testing::Values(
        LinkCase{"notesOverUnrelatedUrl", "https://example.com/agenda", "",
                 "Agenda https://example.com/x\nJoin: https://us02web.zoom.us/j/123?pwd=ab.", "",
                 "https://us02web.zoom.us/j/123?pwd=ab"},
        LinkCase{"urlItself", "https://meet.google.com/abc-defg-hij", "", "https://zoom.us/j/9", "",
                 "https://meet.google.com/abc-defg-hij"},
        LinkCase{"locationBeforeNotes", "", "Room 4, https://acme.webex.com/meet/x",
                 "(https://whereby.com/team) or https://zoom.us/j/1", "", "https://acme.webex.com/meet/x"},
        LinkCase{"earlierInNotesWins", "", "", "Backup https://whereby.com/team, main https://zoom.us/j/1",
                 "", "https://whereby.com/team"},
        LinkCase{"bareHost", "", "meet.google.com/xyz-abcd-efg", "", "",
                 "https://meet.google.com/xyz-abcd-efg"},
        LinkCase{"conference", "", "", "https://example.com", "https://teams.microsoft.com/l/meetup-join/1",
                 "https://teams.microsoft.com/l/meetup-join/1"},
        LinkCase{"hostIsCaseSensitive", "", "", "https://ZOOM.US/j/1", "", ""},
        LinkCase{"noMeeting", "https://example.com", "Room 4", "call me at www.example.org", "", ""}),
    [](const auto& param) { return std::string(param.param.name); });

} // namespace
} // namespace mirrowisp
