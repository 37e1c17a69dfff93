// The Decisions page over a log and rules files written here, and the Agents page's hook doctor over a
// stand-in Claude Code home edited by hand.
#include "front/SettingsDecisions.h"

#include "FrontFixture.h"
#include "agents/DecisionLog.h"
#include "front/SettingsAgentHealth.h"
#include "front/SettingsModel.h"
#include "front/SettingsWindow.h"
#include "integration/HookInstaller.h"

#include <QDir>
#include <QJsonDocument>
#include <QSignalSpy>
#include <gtest/gtest.h>

using namespace mirrowisp;
using mirrowisp::test::text;

namespace {

struct FilterCase {
    const char* name;
    const char* agent;     // "" for every agent
    const char* outcome;   // "" for every outcome
    QStringList summaries; // newest first
};

void PrintTo(const FilterCase& c, std::ostream* os) {
    *os << c.name;
}

// Oldest first, as the log holds them; a garbage line among them is skipped.
void writeLog(const QString& directory) {
    QByteArray lines;
    const auto add = [&](double at, AgentKind agent, DecisionOutcome outcome, const char* summary) {
        DecisionRecord record;
        record.askedAt = at;
        record.endedAt = at + 1;
        record.agent = agent;
        record.sessionID = text("s");
        record.kind = text("permission");
        record.tool = text("Bash");
        record.summary = text(summary);
        record.outcome = outcome;
        lines += record.toJsonLine();
    };
    add(1000, AgentKind::claude, DecisionOutcome::allowed, "ls");
    add(2000, AgentKind::codex, DecisionOutcome::denied, "rm -rf build");
    lines += "{ not a record\n";
    add(3000, AgentKind::claude, DecisionOutcome::denied, "curl example.org");
    add(4000, AgentKind::claude, DecisionOutcome::allowed, "make");
    test::writeFile(DecisionLog::path(directory), lines);
}

class DecisionsFilter : public testing::TestWithParam<FilterCase>, public test::FrontFixture {};

const FilterCase filterCases[] = {
    {"all", "", "", {text("make"), text("curl example.org"), text("rm -rf build"), text("ls")}},
    {"agent", "codex", "", {text("rm -rf build")}},
    {"outcome", "", "denied", {text("curl example.org"), text("rm -rf build")}},
    {"both", "claude", "allowed", {text("make"), text("ls")}},
    {"none", "gemini", "", {}},
};

QStringList summaries(const SettingsDecisions& decisions) {
    QStringList list;
    for (const QVariant& row : decisions.records()) {
        list.append(row.toMap().value(text("summary")).toString());
    }
    return list;
}

} // namespace

TEST_P(DecisionsFilter, ThePageListsTheMatchingRecordsNewestFirst) {
    const FilterCase& c = GetParam();
    writeLog(home.supportDir());
    start();
    SettingsWindow settings(services(), engine);
    settings.show(text("decisions"));
    ASSERT_NE(settings.window(), nullptr);
    SettingsDecisions& decisions = *settings.model().decisions();
    decisions.setAgentFilter(text(c.agent));
    decisions.setOutcomeFilter(text(c.outcome));
    ASSERT_TRUE(test::waitUntil([&] {
        return decisions.recordsLoaded() && summaries(decisions) == c.summaries;
    })) << summaries(decisions).join(u',').toStdString();
    if (!c.summaries.isEmpty()) {
        const QString last = text("decision.") + QString::number(c.summaries.size() - 1);
        EXPECT_NE(control(*settings.window(), last), nullptr) << "the page does not show every record";
    }
}

INSTANTIATE_TEST_SUITE_P(EveryFilter, DecisionsFilter, testing::ValuesIn(filterCases));

class SettingsDecisionsTest : public testing::Test, public test::FrontFixture {};

TEST_F(SettingsDecisionsTest, RemovingARuleKeepsABackupAndEverythingElse) {
    const QString file = home.path() + text("/.claude/settings.json");
    test::writeFile(
        file,
        R"json({"model":"opus","permissions":{"allow":["Bash(ls:*)","Bash(rm:*)"],"deny":["Read(.env)"]}})json");
    start();
    SettingsDecisions decisions(services());
    decisions.refresh();
    QString id;
    ASSERT_TRUE(test::waitUntil([&] {
        for (const QVariant& row : decisions.rules()) {
            if (row.toMap().value(text("rule")) == text("Bash(rm:*)")) {
                id = row.toMap().value(text("id")).toString();
            }
        }
        return !id.isEmpty();
    }));
    QSignalSpy removed(&decisions, &SettingsDecisions::ruleRemoved);

    decisions.removeRule(id);
    ASSERT_TRUE(removed.wait(5000));
    EXPECT_EQ(removed.first().at(1).toString(), QString());
    const QJsonObject after = test::readJsonObject(file);
    EXPECT_EQ(after.value(text("model")), text("opus"));
    EXPECT_EQ(QJsonDocument(after.value(text("permissions")).toObject()).toJson(QJsonDocument::Compact),
              QByteArray(R"json({"allow":["Bash(ls:*)"],"deny":["Read(.env)"]})json"));
    const QStringList backups = QDir(HookInstaller::backupsDirectory()).entryList(QDir::Files);
    ASSERT_EQ(backups.size(), 1);
    EXPECT_TRUE(
        test::readFile(HookInstaller::backupsDirectory() + u'/' + backups.first()).contains("Bash(rm:*)"));
    EXPECT_TRUE(test::waitUntil([&] { return decisions.rules().size() == 1; }))
        << "the list was not read again";

    // The same rule again: gone, and the page says so.
    decisions.removeRule(id);
    ASSERT_TRUE(removed.wait(5000));
    EXPECT_FALSE(removed.last().at(1).toString().isEmpty());
    EXPECT_EQ(decisions.ruleMessage(), removed.last().at(1).toString());
}

TEST_F(SettingsDecisionsTest, AHandEditedHookShowsDriftedAndRepairPutsItBack) {
    const QString file = home.path() + text("/.claude/settings.json");
    start();
    ASSERT_EQ(pass->setConnected(text("claude"), true), std::nullopt);
    const QByteArray installed = test::readFile(file);
    QJsonObject root = test::readJsonObject(file);
    QJsonObject hooks = root.value(text("hooks")).toObject();
    ASSERT_TRUE(hooks.contains(text("Stop")));
    hooks.remove(text("Stop"));
    root.insert(text("hooks"), hooks);
    test::writeFile(file, QJsonDocument(root).toJson());

    SettingsAgentHealth health(services());
    const auto claude = [&] { return health.byAgent().value(text("claude")).toMap(); };
    health.refresh();
    ASSERT_TRUE(test::waitUntil([&] { return health.loaded(); }));
    EXPECT_EQ(claude().value(text("hooks")), text("drifted"));
    EXPECT_TRUE(claude().value(text("canRepair")).toBool());
    QSignalSpy repaired(&health, &SettingsAgentHealth::repairFinished);

    health.repair(text("claude"));
    ASSERT_TRUE(repaired.wait(5000));
    EXPECT_EQ(repaired.first().at(1).toString(), QString());
    EXPECT_TRUE(test::waitUntil([&] { return claude().value(text("hooks")) == text("installed"); }));
    EXPECT_FALSE(claude().value(text("canRepair")).toBool());
    EXPECT_EQ(claude().value(text("message")), text("Repaired."));
    EXPECT_EQ(test::readJsonObject(file), QJsonDocument::fromJson(installed).object());
}
