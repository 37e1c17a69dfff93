#include "agents/AgentActivity.h"

#include "base/UserDefaults.h"
#include "support/ScopedEnvironment.h"
#include "support/TestSupport.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <ctime>
#include <gtest/gtest.h>
#include <limits>

using namespace mirrowisp;
using namespace Qt::StringLiterals;
using mirrowisp::test::TemporaryHome;

namespace {

// Sets the process's local time zone (a POSIX TZ string, so no zone database is needed) and puts the
// old one back afterwards.
class ScopedTimeZone {
public:
    explicit ScopedTimeZone(const char* zone) {
        environment_.set("TZ", zone);
        tzset();
    }

private:
    struct Reload {
        ~Reload() { tzset(); }
    } reload_; // declared first, so it goes last: after TZ is back
    test::ScopedEnvironment environment_;
};

// A time given on the wall clock of the current local zone.
Timestamp localTime(int year, int month, int day, int hour = 12, int minute = 0) {
    return static_cast<Timestamp>(
        QDateTime(QDate(year, month, day), QTime(hour, minute), Qt::LocalTime).toSecsSinceEpoch());
}

QString day(const char* text) {
    return QString::fromLatin1(text);
}

class AgentActivityTest : public ::testing::Test {
protected:
    QJsonObject stored(AgentKind kind) const {
        return defaults.dictionary(AgentActivity::key(kind)).value_or(QJsonObject());
    }

    TemporaryHome home;
    ScopedTimeZone utc{"UTC0"};
    UserDefaults defaults{home.path() + u"/defaults.json"_s};
};

} // namespace

TEST_F(AgentActivityTest, CountsPromptsPerAgentAndLocalDayAcrossRestarts) {
    AgentActivity::recordPrompt(defaults, AgentKind::claude, localTime(2027, 1, 14, 23, 59));
    AgentActivity::recordPrompt(defaults, AgentKind::claude, localTime(2027, 1, 15, 0, 0));
    AgentActivity::recordPrompt(defaults, AgentKind::claude, localTime(2027, 1, 15, 18, 30));
    AgentActivity::recordPrompt(defaults, AgentKind::opencode, localTime(2027, 1, 15));

    EXPECT_EQ(stored(AgentKind::claude), QJsonObject({{day("2027-01-14"), 1}, {day("2027-01-15"), 2}}));
    EXPECT_EQ(stored(AgentKind::opencode), QJsonObject({{day("2027-01-15"), 1}}));

    const UserDefaults reopened(defaults.filePath());
    EXPECT_EQ(AgentActivity::prompts(reopened, AgentKind::claude, 7, localTime(2027, 1, 15)), 3);
    EXPECT_EQ(AgentActivity::prompts(reopened, AgentKind::opencode, 7, localTime(2027, 1, 15)), 1);
}

TEST_F(AgentActivityTest, AnEntryExactlyNDaysOldIsNotCounted) {
    defaults.set(AgentActivity::key(AgentKind::amp),
                 QJsonObject{{day("2027-03-01"), 100}, {day("2027-03-02"), 10}, {day("2027-03-08"), 1}});
    const Timestamp now = localTime(2027, 3, 8, 23, 59);

    EXPECT_EQ(AgentActivity::prompts(defaults, AgentKind::amp, 7, now), 11);  // 03-02 … 03-08
    EXPECT_EQ(AgentActivity::prompts(defaults, AgentKind::amp, 8, now), 111); // 03-01 joins
    EXPECT_EQ(AgentActivity::prompts(defaults, AgentKind::amp, 1, now), 1);   // today only
    EXPECT_EQ(AgentActivity::prompts(defaults, AgentKind::amp, 0, now), 0);
}

TEST_F(AgentActivityTest, PruningHappensOnlyWhenThatAgentRecords) {
    const QJsonObject old{{day("2026-12-01"), 5}};
    defaults.set(AgentActivity::key(AgentKind::claude), old);
    const Timestamp now = localTime(2027, 1, 15);

    AgentActivity::recordPrompt(defaults, AgentKind::codex, now);
    EXPECT_EQ(stored(AgentKind::claude), old);
    EXPECT_EQ(AgentActivity::prompts(defaults, AgentKind::claude, 7, now), 0); // too old to count
    EXPECT_EQ(AgentActivity::prompts(defaults, AgentKind::claude, 60, now), 5);

    AgentActivity::recordPrompt(defaults, AgentKind::claude, now);
    EXPECT_EQ(stored(AgentKind::claude), QJsonObject({{day("2027-01-15"), 1}}));
}

TEST_F(AgentActivityTest, MissingOrWronglyTypedLedgersCountAsEmptyAndAreReplaced) {
    const Timestamp now = localTime(2027, 1, 15);
    EXPECT_EQ(AgentActivity::prompts(defaults, AgentKind::devin, 7, now), 0);

    const QJsonValue wrong[] = {u"garbage"_s, QJsonArray{1, 2}, 3, QJsonObject{{day("2027-01-15"), u"3"_s}},
                                QJsonObject{{day("2027-01-14"), 2}, {day("2027-01-15"), 1.5}}};
    for (const QJsonValue& value : wrong) {
        SCOPED_TRACE(
            QJsonDocument(QJsonObject{{day("v"), value}}).toJson(QJsonDocument::Compact).toStdString());
        defaults.set(AgentActivity::key(AgentKind::gemini), value);
        EXPECT_EQ(AgentActivity::prompts(defaults, AgentKind::gemini, 7, now), 0);
        AgentActivity::recordPrompt(defaults, AgentKind::gemini, now);
        EXPECT_EQ(stored(AgentKind::gemini), QJsonObject({{day("2027-01-15"), 1}}));
    }

    // Whole numbers written as 2.0 are still counts.
    defaults.set(AgentActivity::key(AgentKind::gemini), QJsonObject{{day("2027-01-15"), 2.0}});
    EXPECT_EQ(AgentActivity::prompts(defaults, AgentKind::gemini, 7, now), 2);

    // A time that is no date records nothing.
    AgentActivity::recordPrompt(defaults, AgentKind::copilot, std::numeric_limits<double>::quiet_NaN());
    EXPECT_FALSE(defaults.contains(AgentActivity::key(AgentKind::copilot)));
}

TEST_F(AgentActivityTest, DaysAreLocalCalendarDays) {
    const Timestamp lastSecondOfTheDayInTokyo =
        static_cast<Timestamp>(QDateTime(QDate(2027, 1, 14), QTime(14, 59, 59), Qt::UTC).toSecsSinceEpoch());
    {
        const ScopedTimeZone tokyo("JST-9");
        EXPECT_EQ(AgentActivity::dayString(lastSecondOfTheDayInTokyo), day("2027-01-14"));
        EXPECT_EQ(AgentActivity::dayString(lastSecondOfTheDayInTokyo + 1), day("2027-01-15"));
        EXPECT_EQ(AgentActivity::dayString(lastSecondOfTheDayInTokyo + 0.999), day("2027-01-14"));
    }
    EXPECT_EQ(AgentActivity::dayString(lastSecondOfTheDayInTokyo + 1), day("2027-01-14"));
    EXPECT_EQ(AgentActivity::dayString(localTime(987, 6, 5)), day("0987-06-05"));
}

TEST_F(AgentActivityTest, ATimeZoneChangeMovesTodayButKeepsStoredDays) {
    const Timestamp lateEvening = localTime(2027, 1, 10, 22, 0); // UTC
    AgentActivity::recordPrompt(defaults, AgentKind::cursor, lateEvening);
    EXPECT_EQ(AgentActivity::prompts(defaults, AgentKind::cursor, 1, lateEvening), 1);

    const ScopedTimeZone tokyo("JST-9"); // the same instant is 07:00 on the 11th there
    EXPECT_EQ(AgentActivity::prompts(defaults, AgentKind::cursor, 1, lateEvening), 0);
    EXPECT_EQ(AgentActivity::prompts(defaults, AgentKind::cursor, 2, lateEvening), 1);

    AgentActivity::recordPrompt(defaults, AgentKind::cursor, lateEvening);
    EXPECT_EQ(stored(AgentKind::cursor), QJsonObject({{day("2027-01-10"), 1}, {day("2027-01-11"), 1}}));
}

TEST_F(AgentActivityTest, FifteenDaysLeaveFourteenCountedInCalendarDaysAcrossDaylightSaving) {
    // Clocks go forward on 14 March 2027 here, so 14 days before 00:30 on the 16th is only
    // 14 × 24 − 1 hours earlier; counting in seconds would land on the 1st and keep 15 days.
    const ScopedTimeZone newYork("EST5EDT,M3.2.0,M11.1.0");
    for (int d = 2; d <= 15; ++d) {
        AgentActivity::recordPrompt(defaults, AgentKind::copilot, localTime(2027, 3, d, 0, 30));
    }
    AgentActivity::recordPrompt(defaults, AgentKind::copilot, localTime(2027, 3, 16, 0, 30));

    const QJsonObject ledger = stored(AgentKind::copilot);
    EXPECT_EQ(ledger.size(), 14);
    EXPECT_FALSE(ledger.contains(day("2027-03-02")));
    EXPECT_EQ(AgentActivity::prompts(defaults, AgentKind::copilot, 7, localTime(2027, 3, 16, 0, 30)), 7);
    EXPECT_EQ(AgentActivity::prompts(defaults, AgentKind::copilot, 30, localTime(2027, 3, 16, 0, 30)), 14);
}
