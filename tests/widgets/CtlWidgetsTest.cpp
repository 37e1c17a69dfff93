#include "support/RealApp.h"

#include <QDateTime>
#include <QJsonDocument>
#include <gtest/gtest.h>

namespace mirrowisp {
namespace {

QByteArray icsTime(qint64 secondsFromNow) {
    return QDateTime::currentDateTimeUtc()
        .addSecs(secondsFromNow)
        .toString(QStringLiteral("yyyyMMdd'T'HHmmss'Z'"))
        .toUtf8();
}

// The real app reads a vdir folder in ~/.calendars and asks a stand-in gh; ctl prints both.
TEST(CtlWidgetsTest, PrintsTheCalendarAndThePullRequests) {
    test::RealApp app;
    ASSERT_TRUE(app.busStarted());
    const QString home = app.home().path();
    test::writeFile(
        home + QStringLiteral("/.calendars/work/standup.ics"),
        "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nBEGIN:VEVENT\r\nUID:standup\r\nSUMMARY:Standup\r\nDTSTART:" +
            icsTime(180) + "\r\nDTEND:" + icsTime(1080) +
            "\r\nLOCATION:https://meet.google.com/abc-defg-hij\r\nEND:VEVENT\r\nEND:VCALENDAR\r\n");
    test::writeFile(
        home + QStringLiteral("/bin/gh"),
        "#!/bin/sh\necho '{\"data\":{\"viewer\":{\"pullRequests\":{\"nodes\":[{\"number\":1,"
        "\"title\":\"Mine\",\"url\":\"https://github.com/o/r/pull/1\"}]}},\"search\":{\"nodes\":[]}}}'\n",
        true);
    // gh is looked up on the login shell's PATH.
    test::writeFile(home + QStringLiteral("/.profile"), "PATH=\"$HOME/bin:$PATH\"\n");
    app.environment().insert(QStringLiteral("SHELL"), QStringLiteral("/bin/sh"));
    ASSERT_TRUE(app.start());

    QJsonObject calendar;
    ASSERT_TRUE(test::waitUntil(
        [&] {
            calendar = QJsonDocument::fromJson(app.ctl({QStringLiteral("calendar")}).out).object();
            return !calendar.value(QLatin1String("upcoming")).toArray().isEmpty();
        },
        10000))
        << QJsonDocument(calendar).toJson().constData();
    const QJsonObject standup = calendar.value(QLatin1String("upcoming")).toArray().first().toObject();
    EXPECT_EQ(standup.value(QLatin1String("title")).toString(), QStringLiteral("Standup"));
    EXPECT_EQ(standup.value(QLatin1String("meetingURL")).toString(),
              QStringLiteral("https://meet.google.com/abc-defg-hij"));
    EXPECT_EQ(calendar.value(QLatin1String("live")), standup.value(QLatin1String("id")));

    const test::RunResult prs = app.ctl({QStringLiteral("prs"), QStringLiteral("--refresh")});
    const QJsonObject answer = QJsonDocument::fromJson(prs.out).object();
    EXPECT_EQ(answer.value(QLatin1String("state")).toString(), QStringLiteral("ready"))
        << prs.err.constData();
    EXPECT_EQ(answer.value(QLatin1String("mine"))
                  .toArray()
                  .first()
                  .toObject()
                  .value(QLatin1String("title"))
                  .toString(),
              QStringLiteral("Mine"));
}

} // namespace
} // namespace mirrowisp
