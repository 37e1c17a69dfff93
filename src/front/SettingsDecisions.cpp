#include "front/SettingsDecisions.h"

#include "agents/DecisionLogReader.h"
#include "app/AppModel.h"
#include "app/HookDoctor.h"
#include "base/MainQueue.h"
#include "bridge/BridgeProtocol.h"
#include "integration/AlwaysAllowRules.h"
#include "integration/HookInstaller.h"

#include <QDateTime>
#include <QPointer>
#include <QThreadPool>
#include <deque>

namespace mirrowisp {

namespace {

QString localTime(Timestamp time) {
    return QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(time * 1000))
        .toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
}

QVariantMap recordRow(const DecisionRecord& record) {
    return {{QStringLiteral("time"), localTime(record.askedAt)},
            {QStringLiteral("agent"), AgentKinds::rawValue(record.agent)},
            {QStringLiteral("name"), AgentKinds::displayName(record.agent)},
            {QStringLiteral("outcome"), DecisionNames::outcome(record.outcome)},
            {QStringLiteral("route"), DecisionNames::route(record.route)},
            {QStringLiteral("tool"), record.tool},
            {QStringLiteral("summary"), record.summary},
            {QStringLiteral("project"), record.cwd},
            {QStringLiteral("answer"), record.answer}};
}

struct RecordsRead {
    QVariantList rows;
    bool truncated = false;
};

// The newest `maxRecords` matching records, newest first: the log is read oldest first, line by line,
// keeping only the tail, so a large log costs time but not memory.
RecordsRead readNewest(const QString& directory, const DecisionLogReader::Filter& filter, int limit) {
    std::deque<DecisionRecord> newest;
    const qint64 matched =
        DecisionLogReader::read(directory, filter, [&](const DecisionRecord& record, QByteArrayView) {
            newest.push_back(record);
            if (newest.size() > size_t(limit)) {
                newest.pop_front();
            }
            return true;
        });
    RecordsRead read;
    read.truncated = matched > limit;
    for (auto it = newest.rbegin(); it != newest.rend(); ++it) {
        read.rows.append(recordRow(*it));
    }
    return read;
}

QVariantList ruleRows(const QList<AlwaysAllowRules::Rule>& rules) {
    QVariantList rows;
    for (const AlwaysAllowRules::Rule& rule : rules) {
        rows.append(QVariantMap{{QStringLiteral("id"), rule.id},
                                {QStringLiteral("agent"), AgentKinds::rawValue(rule.agent)},
                                {QStringLiteral("name"), AgentKinds::displayName(rule.agent)},
                                {QStringLiteral("scope"), rule.scope},
                                {QStringLiteral("project"), rule.project},
                                {QStringLiteral("file"), rule.file},
                                {QStringLiteral("rule"), rule.rule},
                                {QStringLiteral("readable"), rule.readable},
                                {QStringLiteral("problem"), rule.problem}});
    }
    return rows;
}

} // namespace

SettingsDecisions::SettingsDecisions(SettingsServices services, QObject* parent)
    : QObject(parent), services_(std::move(services)) {}

void SettingsDecisions::setAgentFilter(const QString& agent) {
    if (agent != agentFilter_) {
        agentFilter_ = agent;
        Q_EMIT filterChanged();
        readRecords();
    }
}

void SettingsDecisions::setOutcomeFilter(const QString& outcome) {
    if (outcome != outcomeFilter_) {
        outcomeFilter_ = outcome;
        Q_EMIT filterChanged();
        readRecords();
    }
}

QStringList SettingsDecisions::agents() const {
    QStringList names{QString()};
    for (const AgentKind kind : AgentKinds::all) {
        names.append(AgentKinds::rawValue(kind));
    }
    return names;
}

QStringList SettingsDecisions::outcomes() const {
    QStringList names{QString()};
    for (int i = 0; i <= int(DecisionOutcome::expired); ++i) {
        names.append(DecisionNames::outcome(DecisionOutcome(i)));
    }
    return names;
}

void SettingsDecisions::refresh() {
    readRecords();
    readRules();
}

void SettingsDecisions::readRecords() {
    DecisionLogReader::Filter filter;
    filter.agent = AgentKinds::fromRawValue(QStringView(agentFilter_));
    filter.outcome = DecisionNames::outcome(QStringView(outcomeFilter_));
    const int generation = ++recordsGeneration_;
    QPointer<SettingsDecisions> self(this);
    QThreadPool::globalInstance()->start(
        [self, generation, filter, directory = BridgeProtocol::supportDirectory()] {
            RecordsRead read = readNewest(directory, filter, maxRecords);
            postToMain([self, generation, read = std::move(read)]() mutable {
                // A reading for an older filter that comes back late does not replace a newer one.
                if (!self || generation != self->recordsGeneration_) {
                    return;
                }
                self->records_ = std::move(read.rows);
                self->truncated_ = read.truncated;
                self->recordsLoaded_ = true;
                Q_EMIT self->recordsChanged();
            });
        });
}

QStringList SettingsDecisions::sessionFolders() const {
    QStringList folders;
    for (const auto& session : services_.model.agents().sessions()) {
        folders.append(session->cwd());
    }
    return folders;
}

void SettingsDecisions::readRules() {
    const int generation = ++rulesGeneration_;
    QPointer<SettingsDecisions> self(this);
    // On the doctor's thread, where `ctl rules` reads and removes too: one change at a time.
    HookDoctor::runOffMainThread(
        [self, generation, folders = sessionFolders(), directory = BridgeProtocol::supportDirectory()] {
            QVariantList rows =
                ruleRows(AlwaysAllowRules::list(AlwaysAllowRules::knownProjects(folders, directory)));
            postToMain([self, generation, rows = std::move(rows)]() mutable {
                if (!self || generation != self->rulesGeneration_) {
                    return;
                }
                self->rules_ = std::move(rows);
                self->rulesLoaded_ = true;
                Q_EMIT self->rulesChanged();
            });
        });
}

void SettingsDecisions::removeRule(const QString& id) {
    QPointer<SettingsDecisions> self(this);
    HookDoctor::runOffMainThread(
        [self, id, folders = sessionFolders(), directory = BridgeProtocol::supportDirectory()] {
            const auto failure =
                AlwaysAllowRules::remove(id, AlwaysAllowRules::knownProjects(folders, directory));
            const QString done = QStringLiteral("Removed; the file as it was is backed up in ") +
                                 HookInstaller::backupsDirectory();
            postToMain([self, id, done, error = failure ? failure->text : QString()] {
                if (!self) {
                    return;
                }
                self->ruleMessage_ = error.isEmpty() ? done : error;
                Q_EMIT self->ruleMessageChanged();
                Q_EMIT self->ruleRemoved(id, error);
                self->readRules();
            });
        });
}

} // namespace mirrowisp
