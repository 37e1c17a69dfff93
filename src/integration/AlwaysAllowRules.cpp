#include "integration/AlwaysAllowRules.h"

#include "agents/DecisionLogReader.h"
#include "base/AtomicJsonFile.h"
#include "integration/HookInstaller.h"
#include "integration/Locations.h"

#include <QCryptographicHash>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>

namespace mirrowisp::AlwaysAllowRules {

namespace {

struct Source {
    AgentKind agent;
    QString scope;
    QString project;
    QString file;
};

QList<Source> sources(const QStringList& projects) {
    const Locations at = AgentEnvironment::current();
    QList<Source> list{
        {AgentKind::claude,
         QStringLiteral("user"),
         {},
         at.dir(AgentKind::claude) + QStringLiteral("/settings.json")},
        {AgentKind::cursor,
         QStringLiteral("user"),
         {},
         at.dir(AgentKind::cursor) + QStringLiteral("/cli-config.json")},
    };
    for (const QString& project : projects) {
        list.append({AgentKind::claude, QStringLiteral("project"), project,
                     project + QStringLiteral("/.claude/settings.json")});
        list.append({AgentKind::claude, QStringLiteral("local"), project,
                     project + QStringLiteral("/.claude/settings.local.json")});
    }
    return list;
}

QString idFor(const QString& file, const QString& text) {
    const QByteArray key = file.toUtf8() + '\0' + text.toUtf8();
    return QString::fromLatin1(QCryptographicHash::hash(key, QCryptographicHash::Sha1).toHex().left(10));
}

void readSource(const Source& source, QList<Rule>& out) {
    const HookInstaller::ConfigFile config = HookInstaller::readConfig(source.file);
    Rule base{{}, source.agent, source.scope, source.project, source.file, {}, true, {}};
    auto unreadable = [&](const QString& problem, const QString& raw) {
        Rule rule = base;
        rule.readable = false;
        rule.problem = problem;
        rule.id = idFor(source.file, QStringLiteral("\x01") + raw);
        out.append(rule);
    };
    if (config.state == HookInstaller::ConfigFile::State::missing) {
        return;
    }
    if (config.state == HookInstaller::ConfigFile::State::unreadable) {
        unreadable(config.reason.isEmpty() ? QStringLiteral("the file does not parse") : config.reason, {});
        return;
    }
    const QJsonValue permissions = config.object.value(QStringLiteral("permissions"));
    if (permissions.isUndefined()) {
        return;
    }
    if (!permissions.isObject()) {
        unreadable(QStringLiteral("permissions is not an object"), QStringLiteral("permissions"));
        return;
    }
    const QJsonValue allow = permissions.toObject().value(QStringLiteral("allow"));
    if (allow.isUndefined()) {
        return;
    }
    if (!allow.isArray()) {
        unreadable(QStringLiteral("permissions.allow is not a list"), QStringLiteral("allow"));
        return;
    }
    for (const QJsonValue& entry : allow.toArray()) {
        if (!entry.isString()) {
            const QString raw = QString::fromUtf8(
                QJsonDocument(QJsonArray{entry}).toJson(QJsonDocument::Compact).chopped(1).mid(1));
            unreadable(QStringLiteral("an entry that is not text: ") + raw.left(80), raw);
            continue;
        }
        Rule rule = base;
        rule.rule = entry.toString();
        rule.id = idFor(source.file, rule.rule);
        out.append(rule);
    }
}

} // namespace

QList<Rule> list(const QStringList& projects) {
    QList<Rule> rules;
    for (const Source& source : sources(projects)) {
        readSource(source, rules);
    }
    return rules;
}

QJsonArray toJson(const QList<Rule>& rules) {
    QJsonArray array;
    for (const Rule& rule : rules) {
        QJsonObject object{{QStringLiteral("id"), rule.id},
                           {QStringLiteral("agent"), AgentKinds::rawValue(rule.agent)},
                           {QStringLiteral("scope"), rule.scope},
                           {QStringLiteral("project"), rule.project},
                           {QStringLiteral("file"), rule.file},
                           {QStringLiteral("readable"), rule.readable}};
        if (rule.readable) {
            object.insert(QStringLiteral("rule"), rule.rule);
        } else {
            object.insert(QStringLiteral("problem"), rule.problem);
        }
        array.append(object);
    }
    return array;
}

std::optional<Failure> remove(const QString& id, const QStringList& projects) {
    const QList<Rule> rules = list(projects);
    const auto found =
        std::find_if(rules.begin(), rules.end(), [&](const Rule& rule) { return rule.id == id; });
    if (found == rules.end()) {
        return Failure{Failure::Kind::unknownRule, QStringLiteral("no rule with id ") + id};
    }
    if (!found->readable) {
        return Failure{Failure::Kind::unreadable, found->file + QStringLiteral(": ") + found->problem +
                                                      QStringLiteral("; it is left as it is")};
    }
    // Read again right before the change: what we write is this reading less one entry.
    const HookInstaller::ConfigFile config = HookInstaller::readConfig(found->file);
    if (config.state != HookInstaller::ConfigFile::State::parsed) {
        return Failure{Failure::Kind::unreadable, found->file + QStringLiteral(" can no longer be read")};
    }
    QJsonObject root = config.object;
    QJsonObject permissions = root.value(QStringLiteral("permissions")).toObject();
    QJsonArray allow = permissions.value(QStringLiteral("allow")).toArray();
    bool removed = false;
    for (qsizetype i = 0; i < allow.size(); ++i) {
        if (allow.at(i) == QJsonValue(found->rule)) {
            allow.removeAt(i);
            removed = true;
            break;
        }
    }
    if (!removed) {
        return Failure{Failure::Kind::unknownRule, QStringLiteral("no rule with id ") + id};
    }
    permissions.insert(QStringLiteral("allow"), allow);
    root.insert(QStringLiteral("permissions"), permissions);
    HookResult backupError;
    const auto error = writeJsonAtomically(found->file, QJsonDocument(root), [&]() -> std::optional<QString> {
        backupError = HookInstaller::backup(found->file);
        return backupError ? std::optional(backupError->detail) : std::nullopt;
    });
    if (backupError || error) {
        return Failure{Failure::Kind::fileSystem,
                       found->file + QStringLiteral(": ") + (backupError ? backupError->detail : *error)};
    }
    return std::nullopt;
}

QStringList knownProjects(const QStringList& sessionFolders, const QString& supportDirectory) {
    QStringList projects;
    QSet<QString> seen;
    auto add = [&](const QString& folder) {
        if (!folder.isEmpty() && !seen.contains(folder) && projects.size() < 500) {
            seen.insert(folder);
            projects.append(folder);
        }
    };
    for (const QString& folder : sessionFolders) {
        add(folder);
    }
    DecisionLogReader::read(supportDirectory, {}, [&](const DecisionRecord& record, QByteArrayView) {
        add(record.cwd);
        return true;
    });
    return projects;
}

} // namespace mirrowisp::AlwaysAllowRules
