#include "agents/DecisionLog.h"

#include "AgentStoreFixture.h"
#include "agents/DecisionLogReader.h"

#include <QDir>
#include <QFile>
#include <gtest/gtest.h>

namespace mirrowisp::test {
namespace {

DecisionRecord recordAt(Timestamp asked, AgentKind agent = AgentKind::claude) {
    DecisionRecord record;
    record.askedAt = asked;
    record.endedAt = asked + 1;
    record.agent = agent;
    record.sessionID = QStringLiteral("s1");
    record.summary = QStringLiteral("make");
    return record;
}

QList<DecisionRecord> readBack(const QString& directory, DecisionLogReader::Filter filter = {}) {
    QList<DecisionRecord> records;
    DecisionLogReader::read(directory, filter, [&](const DecisionRecord& record, QByteArrayView) {
        records.append(record);
        return true;
    });
    return records;
}

TEST(DecisionLog, RotatesAtItsLimitKeepingItsFilesOldestFirst) {
    TemporaryHome home;
    const QString dir = home.supportDir();
    const qint64 lineBytes = recordAt(1000).toJsonLine().size(); // every record here is as long
    {
        // Three records to a file, three files in all: twelve records leave the last nine.
        DecisionLog log(dir, {3 * lineBytes, 3});
        for (int i = 0; i < 12; ++i) {
            log.append(recordAt(1000 + i));
        }
    }
    const QStringList files = DecisionLog::files(dir, 3);
    ASSERT_EQ(files.size(), 3);
    EXPECT_TRUE(files.last().endsWith(QStringLiteral("decisions.jsonl")));
    for (const QString& file : files) {
        EXPECT_LE(QFile(file).size(), 3 * lineBytes) << file.toStdString();
    }
    QList<Timestamp> asked;
    DecisionLogReader::read(files, {}, [&](const DecisionRecord& record, QByteArrayView) {
        asked.append(record.askedAt);
        return true;
    });
    EXPECT_EQ(asked, (QList<Timestamp>{1003, 1004, 1005, 1006, 1007, 1008, 1009, 1010, 1011}));
}

TEST(DecisionLog, ReadingSkipsWhatDoesNotParseAndFilters) {
    TemporaryHome home;
    const QString dir = home.supportDir();
    QByteArray bytes = recordAt(10).toJsonLine();
    bytes += "not json\n{\"askedAt\":\"yesterday\"}\n\n";
    bytes +=
        "{\"askedAt\":" + QByteArray(DecisionLogReader::maxLineBytes + 10, '1') + "}\n"; // over the limit
    bytes += recordAt(20, AgentKind::codex).toJsonLine();
    bytes += recordAt(30).toJsonLine().chopped(20); // cut by a crash, no newline
    writeFile(DecisionLog::path(dir), bytes);

    EXPECT_EQ(readBack(dir).size(), 2);
    EXPECT_EQ(readBack(dir, {15.0, std::nullopt, std::nullopt}).size(), 1);
    EXPECT_EQ(readBack(dir, {std::nullopt, AgentKind::claude, std::nullopt}).first().askedAt, 10);
}

TEST(DecisionLog, MasksSecretsAndCutsTheInput) {
    struct Case {
        const char* text;
        const char* masked;
    };
    const Case cases[] = {
        {"API_KEY=sk-1 make", "API_KEY=*** make"},
        {"curl --token abc --silent", "curl --token *** --silent"},
        {"gh --api-key=xyz", "gh --api-key=***"},
        {"curl -H 'Authorization: Bearer abc.def'", "curl -H 'Authorization: ***'"},
        {"HOME=\"/a b\" ls", "HOME=*** ls"},
        {"ls -la path=x", "ls -la path=x"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(DecisionText::maskSecrets(QString::fromUtf8(c.text)), QString::fromUtf8(c.masked))
            << c.text;
    }
    const QJsonObject big{
        {QStringLiteral("command"), QString(5000, QLatin1Char('x')) + QStringLiteral(" TOKEN=t")}};
    EXPECT_EQ(DecisionText::inputSummary(big).size(), DecisionText::inputLimit + 1); // and the ellipsis
}

class StuckDecisions : public AgentStoreFixture {};

TEST_F(StuckDecisions, AreMarkedAndLoggedOnceWhenTheyOutwaitTheHook) {
    DecisionLog log(home.supportDir());
    store.setDecisionLog(&log);
    store.setHookTimeout(AgentKind::claude, 600);
    auto sent =
        send(AgentKind::claude, event("PermissionRequest", "s1",
                                      {{text("tool_name"), text("Bash")},
                                       {text("tool_input"), QJsonObject{{text("command"), text("make")}}}}));
    PendingDecision* decision = store.findDecision(sent.connection->request().id).first;
    ASSERT_NE(decision, nullptr);
    const Timestamp asked = clock.now();

    store.expireStuckDecisions(asked + 600);
    EXPECT_FALSE(decision->isExpired()) << "600 s exactly is still within the hook's time";
    store.expireStuckDecisions(asked + 600.5);
    EXPECT_TRUE(decision->isExpired());
    store.expireStuckDecisions(asked + 700);
    store.expireStuckDecisions(asked + 700);
    // A new prompt ends it at last: no second record.
    sendAnswered(AgentKind::claude, event("UserPromptSubmit"));
    EXPECT_EQ(store.findDecision(sent.connection->request().id).first, nullptr);
    log.flush();
    const auto records = readBack(home.supportDir());
    ASSERT_EQ(records.size(), 1);
    EXPECT_EQ(records.first().outcome, DecisionOutcome::expired);
    EXPECT_EQ(records.first().route, DecisionRoute::agent);
    EXPECT_EQ(records.first().askedAt, asked);
}

} // namespace
} // namespace mirrowisp::test
