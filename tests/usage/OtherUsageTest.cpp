#include "usage/OtherUsage.h"

#include <QDate>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <sqlite3.h>

using namespace mirrowisp;

namespace {

// A database in OpenCode's layout: messages with their JSON in `data` and milliseconds in `time_created`.
class OpenCodeDatabase {
public:
    explicit OpenCodeDatabase(const QString& path) {
        QDir().mkpath(QFileInfo(path).path());
        EXPECT_EQ(sqlite3_open(QFile::encodeName(path).constData(), &db_), SQLITE_OK);
        exec("CREATE TABLE message (id TEXT PRIMARY KEY, session_id TEXT NOT NULL, "
             "time_created INTEGER NOT NULL, time_updated INTEGER NOT NULL, data TEXT NOT NULL)");
    }
    ~OpenCodeDatabase() { sqlite3_close(db_); }

    void exec(const QByteArray& sql) {
        ASSERT_EQ(sqlite3_exec(db_, sql.constData(), nullptr, nullptr, nullptr), SQLITE_OK)
            << sql.constData();
    }

    void add(Timestamp at, const QByteArray& data) {
        const QByteArray ms = QByteArray::number(static_cast<qint64>(at * 1000));
        exec("INSERT INTO message VALUES ('" + QByteArray::number(++count_) + "', 's', " + ms + ", " + ms +
             ", '" + data + "')");
    }

    void assistant(Timestamp at, double cost) {
        add(at, QByteArrayLiteral("{\"role\":\"assistant\",\"cost\":") + QByteArray::number(cost) + '}');
    }

private:
    sqlite3* db_ = nullptr;
    int count_ = 0;
};

Timestamp localNoon(const QDate& day) {
    return static_cast<Timestamp>(QDateTime(day, QTime(12, 0)).toMSecsSinceEpoch()) / 1000.0;
}

} // namespace

TEST(OpenCodeUsage, SumsTodayAndTheLastSevenDaysOfAssistantCostsInMilliseconds) {
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("opencode.db"));
    const QDate today(2027, 3, 10);
    const Timestamp now = localNoon(today);
    {
        OpenCodeDatabase db(path);
        db.assistant(now - 60, 1.25);
        db.assistant(static_cast<Timestamp>(today.startOfDay().toMSecsSinceEpoch()) / 1000.0,
                     0.5);                                                     // today at 0:00
        db.assistant(localNoon(today.addDays(-6)), 2.0);                       // in the week
        db.assistant(localNoon(today.addDays(-7)), 100.0);                     // too old
        db.add(now - 30, QByteArrayLiteral("{\"role\":\"user\",\"cost\":9}")); // not an answer
        db.add(now - 20, QByteArrayLiteral("{\"role\":\"assistant\"}"));       // no cost
    }
    const QList<UsageMeter> meters = OtherUsage::openCode(path, now);
    ASSERT_EQ(meters.size(), 2);
    EXPECT_EQ(meters[0].label, QStringLiteral("Today"));
    EXPECT_EQ(meters[0].text, QStringLiteral("$1.75"));
    EXPECT_EQ(meters[1].label, QStringLiteral("7 days"));
    EXPECT_EQ(meters[1].text, QStringLiteral("$3.75"));
    for (const UsageMeter& meter : meters) {
        EXPECT_EQ(meter.agent, AgentKind::opencode);
        EXPECT_EQ(meter.percent, 0);
        EXPECT_FALSE(meter.resetsAt);
        EXPECT_TRUE(meter.severity.isEmpty());
    }
    EXPECT_DOUBLE_EQ(OtherUsage::spend(path, now - 120).value_or(-1), 1.25);
}

TEST(OpenCodeUsage, GivesZeroDollarsForAnEmptyTableAndNothingWithoutADatabase) {
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("odd ?#% name/opencode.db"));
    { OpenCodeDatabase db(path); }
    const QList<UsageMeter> meters = OtherUsage::openCode(path, 1'800'000'000.0);
    ASSERT_EQ(meters.size(), 2);
    EXPECT_EQ(meters[0].text, QStringLiteral("$0.00"));
    EXPECT_EQ(meters[1].text, QStringLiteral("$0.00"));

    EXPECT_TRUE(OtherUsage::openCode(dir.filePath(QStringLiteral("missing.db")), 1'800'000'000.0).isEmpty());
    EXPECT_FALSE(OtherUsage::spend(dir.filePath(QStringLiteral("missing.db")), 0));
    // A read-only open never makes the file it was asked for.
    EXPECT_FALSE(QFile::exists(dir.filePath(QStringLiteral("missing.db"))));
}

TEST(OpenCodeUsage, GivesNothingForACorruptOrLockedDatabaseWithinTheBusyTimeout) {
    QTemporaryDir dir;
    const QString corrupt = dir.filePath(QStringLiteral("corrupt.db"));
    QFile file(corrupt);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(QByteArray(8192, 'x'));
    file.close();
    EXPECT_TRUE(OtherUsage::openCode(corrupt, 1'800'000'000.0).isEmpty());

    const QString locked = dir.filePath(QStringLiteral("locked.db"));
    OpenCodeDatabase db(locked);
    db.assistant(1'800'000'000.0, 1.0);
    db.exec("BEGIN EXCLUSIVE");
    db.assistant(1'800'000'001.0, 1.0); // the writer is mid-transaction
    QElapsedTimer elapsed;
    elapsed.start();
    EXPECT_FALSE(OtherUsage::spend(locked, 0));
    EXPECT_GE(elapsed.elapsed(), OtherUsage::busyTimeoutMs - 50);
    EXPECT_LT(elapsed.elapsed(), OtherUsage::busyTimeoutMs + 1500);
    EXPECT_TRUE(OtherUsage::openCode(locked, 1'800'000'000.0).isEmpty());
    db.exec("COMMIT");
    EXPECT_DOUBLE_EQ(OtherUsage::spend(locked, 0).value_or(-1), 2.0);
}

TEST(AmpUsage, ReadsPlansBalancesSharesLeftAndResetDays) {
    const Timestamp now = 1'800'000'000.0;
    // Each meter as label, its text or its percent used and severity, and the seconds to its reset.
    const auto describe = [now](const QList<UsageMeter>& meters) {
        QStringList shown;
        for (const UsageMeter& meter : meters) {
            EXPECT_EQ(meter.agent, AgentKind::amp);
            shown << meter.label + QLatin1Char(' ') +
                         meter.text.value_or(QString::number(meter.percent) + QLatin1Char(' ') +
                                             meter.severity) +
                         (meter.resetsAt ? QLatin1Char(' ') + QString::number(*meter.resetsAt - now)
                                         : QString());
        }
        return shown.join(QStringLiteral(" | "));
    };
    const std::pair<const char*, const char*> cases[] = {
        {"Signed in as someone@example.com\n\n  Amp Free: $2.50/$10 remaining (replenishes in 3 days)  \n"
         "Individual credits: $25.40 remaining\n",
         "Free 75 warning 259200 | Left $25.40 259200"},
        // The percentage written wins over the amounts: 8% left is 92% used.
        {"Tier: Pro — $5/$50 remaining (8%), resets in 1 day", "Plan 92 critical 86400 | Left $5 86400"},
        {"Daily grant: 60% remaining", "Today 40 normal"},
        // Output in an unknown shape, and a marker without any amount or share, say nothing.
        {"", ""},
        {"error: unknown command \"usage\"\nRun amp --help", ""},
        {"{\"balance\": 12.5, \"remaining\": \"lots\"}", ""},
        {"Amp Free: enabled\nTier: unknown", ""},
    };
    for (const auto& [text, meters] : cases) {
        EXPECT_EQ(describe(OtherUsage::parseAmp(QString::fromUtf8(text), now)).toStdString(), meters) << text;
    }
}
