// The real app's calendar and pull-request views under a private X server: the closed island offers
// a meeting about to start, and the home tab shows the widgets (screenshots for the README).
#include "island/x11/RealIsland.h"
#include "island/x11/X11Desktop.h"
#include "support/RealApp.h"

#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QPixmap>
#include <QScreen>
#include <gtest/gtest.h>

using namespace mirrowisp;
using namespace Qt::StringLiterals;

namespace {

QByteArray event(const char* uid, const char* title, qint64 startIn, qint64 length,
                 const QByteArray& extra = {}) {
    const auto at = [](qint64 s) {
        return QDateTime::currentDateTimeUtc().addSecs(s).toString(u"yyyyMMdd'T'HHmmss'Z'"_s).toUtf8();
    };
    return QByteArray("BEGIN:VEVENT\r\nUID:") + uid + "\r\nSUMMARY:" + title + "\r\nDTSTART:" + at(startIn) +
           "\r\nDTEND:" + at(startIn + length) + "\r\n" + extra + "END:VEVENT\r\n";
}

const QByteArray ghReply =
    R"({"data":{"viewer":{"pullRequests":{"nodes":[{"number":214,"title":"Expand repeating events over the span",)"
    R"("url":"https://github.com/acme/app/pull/214","reviewDecision":"APPROVED",)"
    R"("repository":{"nameWithOwner":"acme/app"},)"
    R"("commits":{"nodes":[{"commit":{"statusCheckRollup":{"state":"SUCCESS"}}}]}}]}},)"
    R"("search":{"nodes":[{"number":88,"title":"Retry uploads on 503","url":"https://github.com/acme/api/pull/88",)"
    R"("repository":{"nameWithOwner":"acme/api"},)"
    R"("commits":{"nodes":[{"commit":{"statusCheckRollup":{"state":"PENDING"}}}]}}]}}})";

// A calendar, a stand-in gh with two pull requests, a task list the calendar server reads, and the
// widgets' order and choice in the settings.
void stage(test::RealApp& real, qint64 meetingIn, const QByteArray& widgets,
           const QByteArray& selection = "pullRequests") {
    const QString home = real.home().path();
    test::writeFile(home + u"/.calendars/work/events.ics"_s,
                    "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nX-APPLE-CALENDAR-COLOR:#5e5ce6\r\n" +
                        event("m", "Design review", meetingIn, 1800,
                              "LOCATION:https://meet.google.com/abc-defg-hij\r\n") +
                        event("l", "Lunch with Sam", meetingIn + 5400, 3600) +
                        event("p", "Planning", meetingIn + 9000, 2700, "COLOR:orange\r\n") +
                        "END:VCALENDAR\r\n");
    test::writeFile(home + u"/bin/gh"_s, "#!/bin/sh\nprintf '%s\\n' '" + ghReply + "'\n", true);
    test::writeFile(home + u"/.config/evolution/sources/errands.source"_s,
                    "[Data Source]\nDisplayName=Errands\nEnabled=true\nParent=local-stub\n\n"
                    "[Task List]\nBackendName=local\nColor=#30d158\nSelected=true\n");
    const auto due = [](qint64 in) {
        return QDateTime::currentDateTimeUtc().addSecs(in).toString(u"yyyyMMdd'T'HHmmss'Z'"_s).toUtf8();
    };
    const auto task = [](const char* uid, const char* title, const QByteArray& dueLine) {
        return QByteArray("BEGIN:VTODO\r\nUID:") + uid + "\r\nSUMMARY:" + title + "\r\n" + dueLine +
               "END:VTODO\r\n";
    };
    test::writeFile(home + u"/.local/share/evolution/tasks/errands/tasks.ics"_s,
                    "BEGIN:VCALENDAR\r\nVERSION:2.0\r\n" +
                        task("a", "Renew the TLS certificate", "DUE:" + due(-86400) + "\r\n") +
                        task("b", "Reply to the security review", "DUE:" + due(0) + "\r\n") +
                        task("c", "Book the team offsite", "DUE:" + due(0) + "\r\n") + "END:VCALENDAR\r\n");
    test::writeFile(home + u"/.config/mirrowisp/defaults.json"_s,
                    "{\"homeWidgets\": " + widgets + ", \"homeWidgetSelection\": \"" + selection + "\"}");
    // gh is looked up on the login shell's PATH.
    test::writeFile(home + u"/.profile"_s, "PATH=\"$HOME/bin:$PATH\"\n");
    real.environment().insert(u"SHELL"_s, u"/bin/sh"_s);
}

} // namespace

TEST(HomeWidgetsTest, OffersTheMeetingAndShowsTheWidgets) {
    test::X11Desktop desktop;
    const int centreX = QGuiApplication::primaryScreen()->geometry().center().x();
    {
        test::RealApp real{true};
        ASSERT_TRUE(real.busStarted());
        stage(real, 150, R"(["calendar", "pullRequests"])");
        ASSERT_TRUE(real.start());
        ASSERT_TRUE(test::moveTo({250, 800}));
        ASSERT_TRUE(test::waitUntil(
            [&] { return test::islandOf(real)[u"content"_s].toString().startsWith(u"meeting"_s); }, 15000))
            << QJsonDocument(test::islandOf(real)).toJson().constData();
        test::saveIslandScreenshot("closed-meeting");
        ASSERT_TRUE(test::moveTo({centreX, 8}));
        ASSERT_TRUE(test::waitUntil([&] { return test::islandOf(real)[u"isOpen"_s].toBool(); }, 5000));
        EXPECT_EQ(test::islandOf(real)[u"tab"_s], u"home"_s);
        // Opening during a meeting turns the home tab to the calendar.
        EXPECT_TRUE(test::waitUntil([&] {
            return QJsonDocument::fromJson(
                       test::readFile(real.home().path() + u"/.config/mirrowisp/defaults.json"_s))
                       .object()[u"homeWidgetSelection"_s] == u"calendar"_s;
        }));
        test::saveIslandScreenshot("home-calendar");
        ASSERT_TRUE(test::moveTo({250, 800}));
    }
    test::RealApp real{true};
    stage(real, 7200, R"(["pullRequests", "calendar"])");
    ASSERT_TRUE(real.start());
    ASSERT_TRUE(test::waitUntil([&] {
        return QJsonDocument::fromJson(real.ctl({u"prs"_s}).out).object()[u"state"_s] == u"ready"_s;
    }));
    ASSERT_TRUE(test::moveTo({centreX, 8}));
    ASSERT_TRUE(test::waitUntil([&] { return test::islandOf(real)[u"isOpen"_s].toBool(); }, 5000));
    test::saveIslandScreenshot("home-pull-requests");
}

TEST(HomeWidgetsTest, ShowsTheTasksDueToday) {
    test::X11Desktop desktop;
    test::RealApp real{true};
    ASSERT_TRUE(real.busStarted());
    stage(real, 7200, R"(["reminders", "calendar", "pullRequests"])", "reminders");
    ASSERT_TRUE(real.start());
    const auto reminders = [&real] {
        return QJsonDocument::fromJson(real.ctl({u"calendar"_s}).out).object()[u"reminders"_s].toObject();
    };
    ASSERT_TRUE(test::waitUntil([&] { return reminders()[u"items"_s].toArray().size() == 3; }, 30000))
        << QJsonDocument(reminders()).toJson().constData();
    ASSERT_TRUE(test::moveTo({QGuiApplication::primaryScreen()->geometry().center().x(), 8}));
    ASSERT_TRUE(test::waitUntil([&] { return test::islandOf(real)[u"isOpen"_s].toBool(); }, 5000));
    test::saveIslandScreenshot("home-reminders");
}
