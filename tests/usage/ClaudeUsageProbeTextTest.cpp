#include "usage/ClaudeUsageProbe.h"

#include <QDateTime>
#include <gtest/gtest.h>

using namespace mirrowisp;
using namespace mirrowisp::ClaudeUsageProbe;

namespace {

const QTimeZone newYork("America/New_York");

Timestamp at(int year, int month, int day, int hour, int minute, const QTimeZone& zone = newYork) {
    return static_cast<double>(
               QDateTime(QDate(year, month, day), QTime(hour, minute), zone).toMSecsSinceEpoch()) /
           1000.0;
}

QDateTime local(Timestamp t, const QTimeZone& zone) {
    return QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(t * 1000), zone);
}

} // namespace

TEST(ClaudeUsageProbeParse, ReadsEachLimitLineInOrderAndIgnoresTheDecoration) {
    const Timestamp now = at(2026, 3, 1, 12, 0);
    const QString text =
        QStringLiteral("\n  Claude Code usage\n  ─────────────\n"
                       "  Current session: 45.5% used · resets 7:30pm  \n"
                       "Current week (all models): 12% used · resets Mar 3 at 5pm (America/New_York)\n"
                       "\tCurrent week (Opus): 3% used\n"
                       "Current week (Sonnet only): 80% used · resets Mar 4 at 9am (Mars/Olympus)\n"
                       "Extra usage: not enabled\n");
    const QList<UsageMeter> meters = parse(text, now);
    QStringList shown;
    for (const UsageMeter& meter : meters) {
        EXPECT_EQ(meter.agent, AgentKind::claude);
        EXPECT_EQ(meter.text, std::nullopt);
        shown << QStringLiteral("%1 %2 %3").arg(meter.label).arg(meter.percent).arg(meter.severity);
    }
    EXPECT_EQ(shown.join(QLatin1Char('|')),
              QString::fromUtf8("5-hour 45.5 normal|Weekly 12 normal|"
                                "Weekly · Opus 3 normal|Weekly · Sonnet only 80 warning"));
    ASSERT_EQ(meters.size(), 4);
    // No zone named: the system's. The next 7:30 pm after now.
    ASSERT_TRUE(meters[0].resetsAt.has_value());
    EXPECT_EQ(local(*meters[0].resetsAt, QTimeZone::systemTimeZone()).time(), QTime(19, 30));
    EXPECT_GT(*meters[0].resetsAt, now);
    EXPECT_LE(*meters[0].resetsAt - now, 86400);
    EXPECT_EQ(meters[1].resetsAt, at(2026, 3, 3, 17, 0));
    EXPECT_EQ(meters[2].resetsAt, std::nullopt);
    // An unknown zone name reads the time in the system's zone.
    ASSERT_TRUE(meters[3].resetsAt.has_value());
    EXPECT_EQ(local(*meters[3].resetsAt, QTimeZone::systemTimeZone()),
              QDateTime(QDate(2026, 3, 4), QTime(9, 0), QTimeZone::systemTimeZone()));
}

TEST(ClaudeUsageProbeParse, GradesSeverityAtSeventyFiveAndNinetyAndSkipsLookAlikes) {
    const QList<UsageMeter> meters =
        parse(QStringLiteral(
                  "Current session: 74.9% used\nCurrent session: 75% used\n"
                  "Current session: 89.99% used\nCurrent session: 90% used\nCurrent week: 100% used\n"
                  // Lines that only look like limits.
                  "Current session: 1.2.3% used\nCurrent session: .% used\nCurrent month: 5% used\n"
                  "Current session: 5% used, mostly\ncurrent session: 5% used\nCurrent session: 5 % used\n"),
              0);
    QStringList severities;
    for (const UsageMeter& meter : meters) {
        severities << meter.severity;
    }
    EXPECT_EQ(severities.join(QLatin1Char(' ')), QStringLiteral("normal warning warning critical critical"));
    EXPECT_EQ(meters.last().label, QStringLiteral("Weekly"));
    EXPECT_TRUE(parse(QString(), 0).isEmpty());
}

TEST(ClaudeUsageProbeResetDate, ReadsDatesAndTimesOfDayInTheGivenZone) {
    const Timestamp march1 = at(2026, 3, 1, 12, 0);
    const QTimeZone tokyo("Asia/Tokyo");
    struct Case {
        const char* text;
        Timestamp now;
        std::optional<Timestamp> reset;
        const QTimeZone& zone = newYork;
    };
    const Case cases[] = {
        {"Mar 3 at 5pm", march1, at(2026, 3, 3, 17, 0)},
        {"Mar 3 5:45pm", march1, at(2026, 3, 3, 17, 45)},
        {"mar 3 at 12AM", march1, at(2026, 3, 3, 0, 0)},
        {"Mar 3 at 12:15pm", march1, at(2026, 3, 3, 12, 15)},
        {"Mar 3 at 5pm", march1, at(2026, 3, 3, 17, 0, tokyo), tokyo},
        // More than a day behind is next year's; less than a day behind is a reset that just passed.
        {"Jan 2 at 3am", at(2025, 12, 30, 10, 0), at(2026, 1, 2, 3, 0)},
        {"Mar 3 at 5pm", at(2026, 3, 4, 16, 0), at(2026, 3, 3, 17, 0)},
        {"Mar 3 at 5pm", at(2026, 3, 4, 17, 1), at(2027, 3, 3, 17, 0)},
        // A written year is taken as it is.
        {"Mar 3, 2024 5:30pm", march1, at(2024, 3, 3, 17, 30)},
        {"Jan 9, 2027 at 8am", march1, at(2027, 1, 9, 8, 0)},
        // A time of day alone is the next one after now.
        {"7:30pm", at(2026, 3, 1, 19, 0), at(2026, 3, 1, 19, 30)},
        {"7:30pm", at(2026, 3, 1, 20, 0), at(2026, 3, 2, 19, 30)},
        {"7:30pm", at(2026, 3, 1, 19, 30), at(2026, 3, 2, 19, 30)},
        {"12am", at(2026, 12, 31, 23, 0), at(2027, 1, 1, 0, 0)},
        {"9am", at(2026, 3, 1, 8, 59), at(2026, 3, 1, 9, 0)},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(resetDate(QString::fromUtf8(c.text), c.zone, c.now), c.reset) << c.text;
    }
    for (const char* text : {"", "soon", "in 3 hours", "13pm", "0am", "7:75pm", "7pm tomorrow", "Foo 3 5pm",
                             "Feb 30 5pm", "March 3 5pm", "Mar 3", "17:00"}) {
        EXPECT_EQ(resetDate(QString::fromUtf8(text), newYork, march1), std::nullopt) << text;
    }
}
