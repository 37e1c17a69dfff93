#include "integration/AlwaysAllowRules.h"

#include "HookTestSupport.h"

#include <QJsonArray>
#include <QJsonDocument>

namespace mirrowisp::test {
namespace {

using AlwaysAllowRules::Failure;
using AlwaysAllowRules::Rule;

class AlwaysAllow : public HookTest {
protected:
    QString project() const { return home() + QStringLiteral("/site"); }
    QString claudeUser() const { return home() + QStringLiteral("/.claude/settings.json"); }
    QString claudeLocal() const { return project() + QStringLiteral("/.claude/settings.local.json"); }
    QList<Rule> rules() const { return AlwaysAllowRules::list({project()}); }
    QString idOf(const QString& text) const {
        for (const Rule& rule : rules()) {
            if (rule.rule == text) {
                return rule.id;
            }
        }
        return {};
    }
};

TEST_F(AlwaysAllow, ListsEachFileAsItsAgentKeepsItAndUnexpectedShapesAsUnreadable) {
    struct Case {
        const char* file;
        QByteArray content;
        QStringList readable;
        int unreadable;
    };
    const Case cases[] = {
        {"/.claude/settings.json",
         R"j({"permissions":{"allow":["Bash(npm test)","Read(*)"],"deny":["x"]}})j",
         {QStringLiteral("Bash(npm test)"), QStringLiteral("Read(*)")},
         0},
        {"/.claude/settings.json",
         R"j({"permissions":{"allow":["Bash(ls)",42,{"rule":"x"}]}})j",
         {QStringLiteral("Bash(ls)")},
         2},
        {"/.claude/settings.json", R"j({"permissions":{"allow":"Bash(ls)"}})j", {}, 1},
        {"/.claude/settings.json", R"j({"permissions":["Bash(ls)"]})j", {}, 1},
        {"/.claude/settings.json", R"j({"permissions":{"allow":["Bash(ls)"]},})j", {}, 1}, // not strict JSON
        {"/.claude/settings.json", R"j({"model":"x"})j", {}, 0},
        {"/site/.claude/settings.local.json",
         R"j({"permissions":{"allow":["Bash(make:*)"]}})j",
         {QStringLiteral("Bash(make:*)")},
         0},
        {"/.cursor/cli-config.json",
         R"j({"permissions":{"allow":["Shell(ls)"],"deny":[]}})j",
         {QStringLiteral("Shell(ls)")},
         0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.content.toStdString());
        const QString path = home() + QString::fromUtf8(c.file);
        writeFile(path, c.content);
        QStringList readable;
        int unreadable = 0;
        for (const Rule& rule : rules()) {
            EXPECT_EQ(rule.file, path);
            EXPECT_EQ(rule.id.size(), 10);
            if (rule.readable) {
                readable.append(rule.rule);
            } else {
                ++unreadable;
            }
        }
        EXPECT_EQ(readable, c.readable);
        EXPECT_EQ(unreadable, c.unreadable);
        QFile::remove(path);
    }
}

TEST_F(AlwaysAllow, RemovesOneRuleWithABackupAndKeepsEverythingElse) {
    const QByteArray original =
        R"j({"permissions":{"allow":["Bash(npm test)",7,"Read(*)"],"deny":["Bash(rm:*)"]},"model":"opus","hooks":{"Stop":[]}})j";
    writeFile(claudeUser(), original);
    const QString id = idOf(QStringLiteral("Bash(npm test)"));
    ASSERT_FALSE(id.isEmpty());

    EXPECT_FALSE(AlwaysAllowRules::remove(id, {project()}));
    const QJsonObject after = readJsonObject(claudeUser());
    EXPECT_EQ(after[QStringLiteral("permissions")][QStringLiteral("allow")],
              (QJsonArray{7, QStringLiteral("Read(*)")}));
    EXPECT_EQ(after[QStringLiteral("permissions")][QStringLiteral("deny")],
              QJsonArray{QStringLiteral("Bash(rm:*)")});
    EXPECT_EQ(after[QStringLiteral("model")], QStringLiteral("opus"));
    EXPECT_TRUE(after[QStringLiteral("hooks")].isObject());
    ASSERT_EQ(backups().size(), 1);
    EXPECT_EQ(readFile(support() + QStringLiteral("/backups/") + backups().first()), original);

    // Gone now; the entry of another type is listed but never touched.
    EXPECT_EQ(AlwaysAllowRules::remove(id, {project()})->kind, Failure::Kind::unknownRule);
    QString odd;
    for (const Rule& rule : rules()) {
        odd = rule.readable ? odd : rule.id;
    }
    const QByteArray before = readFile(claudeUser());
    EXPECT_EQ(AlwaysAllowRules::remove(odd, {project()})->kind, Failure::Kind::unreadable);
    EXPECT_EQ(readFile(claudeUser()), before);
}

TEST_F(AlwaysAllow, LeavesAnUnreadableFileAsItIs) {
    writeFile(claudeLocal(), R"j({"permissions":{"allow":["Bash(ls)"]}})j");
    const QString id = idOf(QStringLiteral("Bash(ls)"));
    // Someone breaks the file between the listing and the removal.
    const QByteArray broken = R"j({"permissions":{"allow":["Bash(ls)"]}, // mine)j";
    writeFile(claudeLocal(), broken);
    const auto failure = AlwaysAllowRules::remove(id, {project()});
    ASSERT_TRUE(failure);
    EXPECT_NE(failure->kind, Failure::Kind::fileSystem);
    EXPECT_EQ(readFile(claudeLocal()), broken);
    EXPECT_TRUE(backups().isEmpty());
}

} // namespace
} // namespace mirrowisp::test
