// The decision log through the real app: requests sent with the real hook tool, ended every way,
// read back with `ctl log`.
#include "support/RealApp.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <gtest/gtest.h>

namespace {

using mirrowisp::test::text;
using mirrowisp::test::waitUntil;

QJsonObject request(const QString& tool, const QJsonObject& input) {
    return {{text("hook_event_name"), text("PermissionRequest")},
            {text("session_id"), text("log-1")},
            {text("cwd"), text("/home/dev/site")},
            {text("tool_name"), tool},
            {text("tool_input"), input},
            {text("permission_suggestions"),
             QJsonArray{QJsonObject{{text("type"), text("addRules")},
                                    {text("destination"), text("localSettings")}}}}};
}

class DecisionLogFlow : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(real.busStarted()) << "dbus-daemon did not start"; }
    // The log's records as `ctl log --json` prints them, once there are `count` of them.
    QList<QJsonObject> records(qsizetype count) {
        QList<QJsonObject> list;
        waitUntil(
            [&] {
                list.clear();
                for (const QByteArray& line : real.ctl({text("log"), text("--json")}).out.split('\n')) {
                    if (!line.isEmpty()) {
                        list.append(QJsonDocument::fromJson(line).object());
                    }
                }
                return list.size() >= count;
            },
            10000);
        return list;
    }

    mirrowisp::test::RealApp real;
};

const QJsonObject bash{{text("command"), text("curl -H 'Authorization: Bearer sk-live-42' API_KEY=hunter2 "
                                              "deploy --token tok-9 --verbose")}};
const QJsonObject question{
    {text("questions"), QJsonArray{QJsonObject{{text("question"), text("Which port?")}}}}};
const QJsonObject plan{{text("plan"), text("# Ship it\n\nsteps")}};

} // namespace

TEST_F(DecisionLogFlow, RecordsEachEndOnceWithItsOutcomeAndRouteAndNoSecrets) {
    ASSERT_TRUE(real.start());
    struct Case {
        const char* tool;
        QJsonObject input;
        QStringList ctl;   // the command, then its options after the id; empty: the agent ends it
        const char* event; // what the agent sends instead, if anything
        const char* outcome;
        const char* route;
        const char* answer;
    };
    const Case cases[] = {
        {"Bash", bash, {text("allow")}, nullptr, "allowed", "ctl", ""},
        {"Bash", bash, {text("allow"), text("--always")}, nullptr, "alwaysAllowed", "ctl", ""},
        {"Bash", bash, {text("deny")}, nullptr, "denied", "ctl", ""},
        {"Bash", bash, {text("terminal")}, nullptr, "terminal", "ctl", ""},
        {"AskUserQuestion",
         question,
         {text("answer"), text("--json"), text(R"({"Which port?":"8080"})")},
         nullptr,
         "answered",
         "ctl",
         R"({"Which port?":"8080"})"},
        {"ExitPlanMode",
         plan,
         {text("approve-plan"), text("--auto-edit")},
         nullptr,
         "planApprovedAutoEdit",
         "ctl",
         ""},
        {"ExitPlanMode",
         plan,
         {text("keep-planning"), text("--feedback"), text("smaller")},
         nullptr,
         "keptPlanning",
         "ctl",
         "smaller"},
        {"Bash", bash, {}, "UserPromptSubmit", "stale", "agent", ""},
        {"Bash", bash, {}, nullptr, "withdrawn", "agent", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.outcome);
        auto tool = real.hook(request(text(c.tool), c.input));
        const QString id = real.waitForDecision();
        ASSERT_FALSE(id.isEmpty());
        if (!c.ctl.isEmpty()) {
            QStringList arguments{c.ctl.first(), id};
            arguments += c.ctl.mid(1);
            EXPECT_EQ(real.ctl(arguments).exitCode, 0);
        } else if (c.event != nullptr) {
            auto prompt =
                real.hook({{text("hook_event_name"), text(c.event)}, {text("session_id"), text("log-1")}});
            EXPECT_TRUE(prompt->waitForFinished(10000));
        } else {
            tool->kill(); // the agent's hook timed out
        }
        EXPECT_TRUE(tool->waitForFinished(10000));
    }

    const QList<QJsonObject> log = records(std::size(cases));
    ASSERT_EQ(log.size(), qsizetype(std::size(cases))) << "one record each, none twice";
    for (qsizetype i = 0; i < log.size(); ++i) {
        const Case& c = cases[i];
        const QJsonObject& record = log[i];
        SCOPED_TRACE(c.outcome);
        EXPECT_EQ(record[text("outcome")], text(c.outcome));
        EXPECT_EQ(record[text("route")], text(c.route));
        EXPECT_EQ(record[text("answer")], text(c.answer));
        EXPECT_EQ(record[text("agent")], text("claude"));
        EXPECT_EQ(record[text("session")], text("log-1"));
        EXPECT_EQ(record[text("cwd")], text("/home/dev/site"));
        EXPECT_EQ(record[text("tool")], text(c.tool));
        EXPECT_LE(record[text("askedAt")].toDouble(), record[text("endedAt")].toDouble());
        EXPECT_LE(record[text("input")].toString().size(), 201);
        const QByteArray line = QJsonDocument(record).toJson();
        for (const char* secret : {"sk-live-42", "hunter2", "tok-9"}) {
            EXPECT_FALSE(line.contains(secret)) << line.toStdString();
        }
    }
    EXPECT_TRUE(log[0][text("summary")].toString().contains(text("--verbose")));

    // The filters and the table.
    EXPECT_EQ(real.ctl({text("log"), text("--json"), text("--agent"), text("codex")}).out, QByteArray());
    EXPECT_EQ(real.ctl({text("log"), text("--json"), text("--since"), text("1h")}).out.count('\n'),
              qsizetype(std::size(cases)));
    const auto table = real.ctl({text("log")});
    EXPECT_EQ(table.exitCode, 0);
    EXPECT_EQ(table.out.count('\n'), qsizetype(std::size(cases)) + 1);
    EXPECT_TRUE(table.out.contains("keptPlanning")) << table.out.toStdString();
    EXPECT_EQ(real.ctl({text("log"), text("--since"), text("soon")}).exitCode, 64);
}

TEST_F(DecisionLogFlow, AnUnwritableLogCostsOneLineAndNoDecision) {
    // A folder where the file goes: nothing can be appended to it.
    ASSERT_TRUE(QDir().mkpath(real.home().supportDir() + text("/decisions.jsonl")));
    ASSERT_TRUE(real.start());
    for (int round = 0; round < 2; ++round) {
        auto tool = real.hook(request(text("Bash"), bash));
        const QString id = real.waitForDecision();
        ASSERT_FALSE(id.isEmpty());
        EXPECT_EQ(real.ctl({text("allow"), id}).exitCode, 0);
        ASSERT_TRUE(tool->waitForFinished(10000));
        EXPECT_TRUE(tool->readAllStandardOutput().contains(R"("behavior":"allow")"));
    }
    QByteArray log;
    waitUntil(
        [&] {
            log += real.process().readAllStandardError();
            return log.contains("decision log");
        },
        5000);
    EXPECT_EQ(log.count("decision log"), 1) << log.toStdString();
    EXPECT_TRUE(log.contains("is not written")) << log.toStdString();
}

TEST_F(DecisionLogFlow, DoctorMeasuresRoundTripsOfTheRealToolAndPreviewsWithoutChanging) {
    ASSERT_TRUE(real.start());
    for (int i = 0; i < 3; ++i) {
        auto tool = real.hook({{text("hook_event_name"), text("PreToolUse")},
                               {text("session_id"), text("trip")},
                               {text("tool_name"), text("Read")}});
        ASSERT_TRUE(tool->waitForFinished(10000));
    }
    const auto doctor = real.ctl({text("doctor"), text("--json")});
    ASSERT_EQ(doctor.exitCode, 0) << doctor.err.toStdString();
    const QJsonObject report = QJsonDocument::fromJson(doctor.out).object();
    const QJsonObject claude = report[text("agents")][0].toObject();
    const QJsonObject trip = claude[text("roundTrip")].toObject();
    EXPECT_EQ(trip[text("events")].toInt(), 3);
    EXPECT_GT(trip[text("medianMs")].toDouble(), 0);
    EXPECT_LE(trip[text("medianMs")].toDouble(), trip[text("p95Ms")].toDouble());
    EXPECT_TRUE(claude[text("lastEvent")].isString());
    EXPECT_TRUE(report[text("bridge")][text("usable")].toBool());

    const auto readable = real.ctl({text("doctor")});
    EXPECT_TRUE(readable.out.contains("round trip median")) << readable.out.toStdString();

    // Connected, edited by hand, previewed without a change, repaired.
    auto hooksState = [&] {
        const QJsonObject again =
            QJsonDocument::fromJson(real.ctl({text("doctor"), text("--json")}).out).object();
        return again[text("agents")][0][text("hooks")].toString();
    };
    ASSERT_EQ(real.ctl({text("connect"), text("claude")}).exitCode, 0);
    EXPECT_EQ(hooksState(), text("installed"));
    const QString settings = real.home().path() + text("/.claude/settings.json");
    QByteArray edited = mirrowisp::test::readFile(settings);
    ASSERT_TRUE(edited.contains("\"timeout\": 86400"));
    edited.replace("\"timeout\": 86400", "\"timeout\": 30");
    mirrowisp::test::writeFile(settings, edited);
    EXPECT_EQ(hooksState(), text("drifted"));
    const auto preview = real.ctl({text("connect"), text("claude"), text("--dry-run")});
    EXPECT_EQ(preview.exitCode, 0);
    EXPECT_TRUE(preview.out.contains(
        "\n-                        \"timeout\": 30,\n+                        \"timeout\": 86400,\n"))
        << preview.out.toStdString();
    EXPECT_EQ(mirrowisp::test::readFile(settings), edited);
    const QByteArray before = edited;
    EXPECT_EQ(real.ctl({text("connect"), text("nobody"), text("--dry-run")}).exitCode, 1);
    EXPECT_EQ(real.ctl({text("disconnect"), text("claude"), text("--dry-run")}).exitCode, 64);
    EXPECT_EQ(mirrowisp::test::readFile(settings), before);
    ASSERT_EQ(real.ctl({text("connect"), text("claude")}).exitCode, 0);
    EXPECT_EQ(hooksState(), text("installed"));
}

TEST_F(DecisionLogFlow, RulesAreListedAndRemovedThroughTheApp) {
    const QString settings = real.home().path() + text("/.claude/settings.json");
    mirrowisp::test::writeFile(settings, R"j({"permissions":{"allow":["Bash(npm test)","Read(*)"]}})j");
    ASSERT_TRUE(real.start());
    const auto listed = real.ctl({text("rules"), text("--json")});
    const QJsonArray rules = QJsonDocument::fromJson(listed.out).array();
    ASSERT_EQ(rules.size(), 2) << listed.out.toStdString();
    EXPECT_EQ(real.ctl({text("rules"), text("remove"), text("0000000000")}).exitCode, 1);
    EXPECT_EQ(real.ctl({text("rules"), text("remove"), rules[0][text("id")].toString()}).exitCode, 0);
    const auto after = real.ctl({text("rules")});
    EXPECT_FALSE(after.out.contains("npm test")) << after.out.toStdString();
    EXPECT_TRUE(after.out.contains("Read(*)")) << after.out.toStdString();
}
