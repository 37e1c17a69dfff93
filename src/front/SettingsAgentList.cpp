#include "front/SettingsAgentList.h"

#include "app/AppModel.h"
#include "app/ConnectionPass.h"
#include "base/Clock.h"
#include "base/MainQueue.h"
#include "base/UserDefaults.h"
#include "integration/AgentSetupCopy.h"
#include "integration/HookInstaller.h"

#include <QColor>
#include <QDesktopServices>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QPointer>
#include <QThreadPool>
#include <QUrl>

namespace mirrowisp {

namespace {

QString accentName(AgentKind kind) {
    const AccentColor accent = AgentKinds::accent(kind);
    return QColor::fromRgbF(float(accent.red), float(accent.green), float(accent.blue)).name();
}

bool isConnectedCase(const QString& setup) {
    return setup == u"connected" || setup == u"codexNeedsApproval" || setup == u"codexHooksOff";
}

// The rows as the worker reads them: only files and a copy of the store, never the store itself.
QVariantList readRows(const QJsonObject& stored, const QHash<AgentKind, Timestamp>& lastSeen,
                      const AgentConnector::Presence& isInstalled, Timestamp now) {
    // The copy sits in the registration domain of a store with no file, so nothing can be written.
    UserDefaults copy{QString()};
    copy.registerDefaults(stored);
    const QJsonArray agents = AgentConnector::agentsJson(copy, lastSeen, isInstalled, now);
    QVariantList rows;
    for (int i = 0; i < agents.size(); ++i) {
        const AgentKind kind = AgentKinds::all.at(size_t(i));
        QVariantMap row = agents.at(i).toObject().toVariantMap();
        const QString setup = row.value(QStringLiteral("setup")).toString();
        row.insert(QStringLiteral("accent"), accentName(kind));
        row.insert(QStringLiteral("detected"), isInstalled(kind) || lastSeen.contains(kind));
        row.insert(QStringLiteral("connected"), isConnectedCase(setup));
        QString file;
        QStringList steps;
        if (setup == u"unreadableConfig") {
            const auto seen = lastSeen.contains(kind) ? std::optional(lastSeen.value(kind)) : std::nullopt;
            const AgentSetup detail = HookInstaller::setup(kind, seen, copy, isInstalled);
            file = detail.file;
            steps = AgentSetupCopy::steps(SetupFix::fixSettingsFile, false);
        }
        row.insert(QStringLiteral("file"), file);
        row.insert(QStringLiteral("steps"), steps);
        row.insert(QStringLiteral("working"), false);
        rows.append(row);
    }
    return rows;
}

std::optional<SetupFix> codexFix(CodexHookStatus status) {
    switch (status) {
    case CodexHookStatus::ready:
        return std::nullopt;
    case CodexHookStatus::needsApproval:
        return SetupFix::approveInCodex;
    case CodexHookStatus::disabled:
        return SetupFix::turnOnInCodex;
    }
    return std::nullopt;
}

} // namespace

SettingsAgentList::SettingsAgentList(SettingsServices services, QObject* parent)
    : QObject(parent), services_(std::move(services)) {
    connect(&services_.model.agents(), &AgentStore::codexHookStatusChanged, this,
            &SettingsAgentList::codexChanged);
}

bool SettingsAgentList::codexDetected() const {
    for (const QVariant& row : rows_) {
        const QVariantMap map = row.toMap();
        if (map.value(QStringLiteral("agent")) == QStringLiteral("codex")) {
            return map.value(QStringLiteral("detected")).toBool();
        }
    }
    return false;
}

QString SettingsAgentList::codexStatus() const {
    return rawValue(services_.model.agents().codexHookStatus());
}

QString SettingsAgentList::codexHeading() const {
    const auto notice = AgentSetupCopy::codexNotice(services_.model.agents().codexHookStatus(), false);
    return notice ? notice->heading : QString();
}

QString SettingsAgentList::codexBody() const {
    const auto notice = AgentSetupCopy::codexNotice(services_.model.agents().codexHookStatus(), false);
    return notice ? notice->body : QString();
}

QStringList SettingsAgentList::codexSteps() const {
    const auto fix = codexFix(services_.model.agents().codexHookStatus());
    return fix ? AgentSetupCopy::steps(*fix, false) : QStringList();
}

void SettingsAgentList::refresh() {
    QJsonObject stored;
    const UserDefaults& defaults = services_.model.defaults();
    for (const QString& key : defaults.keys()) {
        stored.insert(key, defaults.object(key).value_or(QJsonValue()));
    }
    const int generation = ++generation_;
    QPointer<SettingsAgentList> self(this);
    QThreadPool::globalInstance()->start([self, generation, stored,
                                          lastSeen = services_.model.agents().lastSeen(),
                                          isInstalled = services_.isInstalled, now = services_.clock.now()] {
        QVariantList rows = readRows(stored, lastSeen, isInstalled, now);
        postToMain([self, generation, rows = std::move(rows)]() mutable {
            // An older reading that comes back late does not replace a newer one.
            if (!self || generation != self->generation_) {
                return;
            }
            for (QVariant& row : rows) {
                QVariantMap map = row.toMap();
                map.insert(QStringLiteral("message"),
                           self->messages_.value(map.value(QStringLiteral("agent")).toString()));
                row = map;
            }
            self->rows_ = std::move(rows);
            self->loaded_ = true;
            Q_EMIT self->rowsChanged();
        });
    });
    // Codex's trust is read on the pass's thread; asking starts a fresh reading.
    services_.model.agents().refreshCodexApproval();
}

void SettingsAgentList::setConnected(const QString& agent, bool connect) {
    setRow(agent, QStringLiteral("working"), true);
    QPointer<SettingsAgentList> self(this);
    services_.pass.setConnectedInBackground(
        agent, connect, [self, agent, connect](std::optional<QString> error) {
            if (!self) {
                return;
            }
            const QString outcome =
                error ? *error : (connect ? QStringLiteral("Connected.") : QStringLiteral("Disconnected."));
            self->messages_.insert(agent, outcome);
            self->setRow(agent, QStringLiteral("message"), outcome);
            self->services_.model.agents().refreshCodexApproval();
            Q_EMIT self->connectFinished(agent, error.value_or(QString()));
            self->refresh();
        });
}

void SettingsAgentList::showFile(const QString& path) const {
    // The folder, so the file manager shows the file among its neighbours.
    QDesktopServices::openUrl(QUrl::fromLocalFile(QFileInfo(path).absolutePath()));
}

void SettingsAgentList::setRow(const QString& agent, const QString& key, const QVariant& value) {
    for (QVariant& row : rows_) {
        QVariantMap map = row.toMap();
        if (map.value(QStringLiteral("agent")).toString() == agent) {
            map.insert(key, value);
            row = map;
            Q_EMIT rowsChanged();
            return;
        }
    }
}

} // namespace mirrowisp
