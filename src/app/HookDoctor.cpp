#include "app/HookDoctor.h"

#include "agents/AgentStore.h"
#include "agents/DecisionLogReader.h"
#include "app/BuildInfo.h"
#include "base/ProcessRunner.h"
#include "base/SerialQueue.h"
#include "base/UserDefaults.h"
#include "bridge/BridgeProtocol.h"
#include "integration/AgentEnvironment.h"
#include "integration/HookInstaller.h"
#include "integration/LineDiff.h"

#include <QDateTime>
#include <QFileInfo>
#include <QJsonArray>

namespace mirrowisp::HookDoctor {

namespace {

QJsonValue isoTime(std::optional<Timestamp> time) {
    if (!time) {
        return QJsonValue();
    }
    return QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(*time * 1000), Qt::UTC)
        .toString(Qt::ISODateWithMs);
}

QJsonObject bridgeJson() {
    const QString link = HookInstaller::bridgeLinkPath();
    const QFileInfo info(link);
    QJsonObject bridge{
        {QStringLiteral("link"), link},
        {QStringLiteral("target"), info.isSymLink() ? info.symLinkTarget() : QString()},
        {QStringLiteral("usable"), AgentEnvironment::isExecutableFile(info.canonicalFilePath())},
        {QStringLiteral("appVersion"), BuildInfo::version()}};
    QJsonValue version;
    if (bridge.value(QStringLiteral("usable")).toBool()) {
        const ProcessRunner::RunResult run = ProcessRunner::run(link, {QStringLiteral("--version")}, 3.0);
        const QString text = run.output.trimmed();
        // A tool from before --version prints nothing and exits as it always does.
        if (run.ok() && text.startsWith(QLatin1StringView("mirrowisp-bridge "))) {
            version = text.mid(17);
        }
    }
    bridge.insert(QStringLiteral("toolVersion"), version);
    return bridge;
}

QJsonArray expiredJson(const Inputs& inputs) {
    QJsonArray list;
    DecisionLogReader::Filter filter;
    filter.since = inputs.now - 86400;
    filter.outcome = DecisionOutcome::expired;
    DecisionLogReader::read(
        inputs.supportDirectory, filter, [&](const DecisionRecord& record, QByteArrayView) {
            list.append(QJsonObject{{QStringLiteral("agent"), AgentKinds::rawValue(record.agent)},
                                    {QStringLiteral("session"), record.sessionID},
                                    {QStringLiteral("tool"), record.tool},
                                    {QStringLiteral("summary"), record.summary},
                                    {QStringLiteral("askedAt"), isoTime(record.askedAt)}});
            return list.size() < 1000;
        });
    return list;
}

} // namespace

Inputs gather(const AgentStore& store, const UserDefaults& defaults, Timestamp now) {
    Inputs inputs;
    inputs.lastSeen = store.lastSeen();
    for (AgentKind kind : AgentKinds::all) {
        if (const auto summary = store.hookTimings().summary(kind)) {
            inputs.timings.insert(kind, *summary);
        }
        if (HookInstaller::isDisconnectedByUser(kind, defaults)) {
            inputs.disconnected.insert(kind);
        }
    }
    inputs.supportDirectory = BridgeProtocol::supportDirectory();
    inputs.now = now;
    return inputs;
}

QString hookState(AgentKind kind, bool disconnectedByUser) {
    if (disconnectedByUser) {
        return QStringLiteral("disconnected");
    }
    const HookInstaller::PlannedChange planned = HookInstaller::plan(kind);
    if (planned.refused) {
        return QStringLiteral("unreadable");
    }
    if (!planned.changes) {
        return QStringLiteral("installed");
    }
    const bool oursThere = HookInstaller::integration(kind).kind == HookInstaller::Integration::Kind::plugin
                               ? HookInstaller::hasPluginFile(kind)
                               : !HookInstaller::installedEvents(kind).isEmpty();
    return oursThere ? QStringLiteral("drifted") : QStringLiteral("missing");
}

QJsonObject report(const Inputs& inputs) {
    const Locations locations = AgentEnvironment::current();
    QJsonArray agents;
    for (AgentKind kind : AgentKinds::all) {
        const HookInstaller::Integration wiring = HookInstaller::integration(kind);
        const bool plugin = wiring.kind == HookInstaller::Integration::Kind::plugin;
        const QString state = hookState(kind, inputs.disconnected.contains(kind));
        QString where = locations.clis.value(kind);
        if (where.isEmpty() && QFileInfo::exists(locations.dir(kind))) {
            where = locations.dir(kind);
        }
        QJsonValue roundTrip;
        if (const auto it = inputs.timings.constFind(kind); it != inputs.timings.constEnd()) {
            roundTrip = QJsonObject{{QStringLiteral("events"), it->count},
                                    {QStringLiteral("medianMs"), it->medianMs},
                                    {QStringLiteral("p95Ms"), it->p95Ms},
                                    {QStringLiteral("arrivalMedianMs"), it->arrivalMedianMs}};
        }
        const QStringList supported = plugin ? QStringList() : wiring.events;
        // A plugin carries every event it knows or none.
        const QStringList installedOfSupported =
            plugin ? QStringList() : HookInstaller::installedEvents(kind);
        agents.append(QJsonObject{
            {QStringLiteral("agent"), AgentKinds::rawValue(kind)},
            {QStringLiteral("name"), AgentKinds::displayName(kind)},
            {QStringLiteral("found"), AgentEnvironment::isInstalled(kind)},
            {QStringLiteral("where"), where},
            {QStringLiteral("file"), wiring.file},
            {QStringLiteral("hooks"), state},
            {QStringLiteral("eventsSupported"), QJsonArray::fromStringList(supported)},
            {QStringLiteral("eventsInstalled"), QJsonArray::fromStringList(installedOfSupported)},
            {QStringLiteral("lastEvent"),
             inputs.lastSeen.contains(kind) ? isoTime(inputs.lastSeen.value(kind)) : QJsonValue()},
            {QStringLiteral("roundTrip"), roundTrip},
        });
    }
    return QJsonObject{{QStringLiteral("agents"), agents},
                       {QStringLiteral("bridge"), bridgeJson()},
                       {QStringLiteral("expiredLastDay"), expiredJson(inputs)}};
}

QString connectPreview(AgentKind kind) {
    const HookInstaller::PlannedChange planned = HookInstaller::plan(kind);
    if (planned.refused) {
        return QStringLiteral("connect would refuse ") + planned.file + QStringLiteral(": ") +
               planned.refused->message() + QLatin1Char('\n');
    }
    if (!planned.changes) {
        return QStringLiteral("connect would change nothing in ") + planned.file + QLatin1Char('\n');
    }
    return LineDiff::unified(planned.before.value_or(QByteArray()), planned.after,
                             planned.before ? planned.file : QStringLiteral("/dev/null"), planned.file);
}

void runOffMainThread(std::function<void()> work) {
    static SerialQueue queue("mirrowisp.doctor");
    queue.async(std::move(work));
}

} // namespace mirrowisp::HookDoctor
