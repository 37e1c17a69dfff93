#include "front/SettingsAgentHealth.h"

#include "app/AppModel.h"
#include "app/ConnectionPass.h"
#include "app/HookDoctor.h"
#include "base/Clock.h"
#include "base/MainQueue.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonObject>
#include <QPointer>

namespace mirrowisp {

namespace {

QString roundTripText(const QJsonObject& trip) {
    if (trip.isEmpty()) {
        return {};
    }
    return QStringLiteral("Hook round trip: median %1 ms, 95th percentile %2 ms over %3 events")
        .arg(trip.value(QLatin1StringView("medianMs")).toDouble(), 0, 'f', 1)
        .arg(trip.value(QLatin1StringView("p95Ms")).toDouble(), 0, 'f', 1)
        .arg(trip.value(QLatin1StringView("events")).toInt());
}

QString lastEventText(const QJsonValue& iso) {
    const QDateTime time = QDateTime::fromString(iso.toString(), Qt::ISODateWithMs);
    return time.isValid() ? time.toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")) : QString();
}

QVariantMap entries(const QJsonObject& report) {
    QVariantMap byAgent;
    for (const QJsonValue& value : report.value(QLatin1StringView("agents")).toArray()) {
        const QJsonObject agent = value.toObject();
        const QString hooks = agent.value(QLatin1StringView("hooks")).toString();
        const qsizetype supported = agent.value(QLatin1StringView("eventsSupported")).toArray().size();
        const qsizetype installed = agent.value(QLatin1StringView("eventsInstalled")).toArray().size();
        byAgent.insert(
            agent.value(QLatin1StringView("agent")).toString(),
            QVariantMap{
                {QStringLiteral("hooks"), hooks},
                // A plugin carries all its events or none: no count to show.
                {QStringLiteral("events"),
                 supported > 0 ? QStringLiteral("%1 of %2 events hooked").arg(installed).arg(supported)
                               : QString()},
                {QStringLiteral("lastEvent"), lastEventText(agent.value(QLatin1StringView("lastEvent")))},
                {QStringLiteral("roundTrip"),
                 roundTripText(agent.value(QLatin1StringView("roundTrip")).toObject())},
                {QStringLiteral("canRepair"), hooks == u"drifted" || hooks == u"missing"},
                {QStringLiteral("working"), false}});
    }
    return byAgent;
}

} // namespace

SettingsAgentHealth::SettingsAgentHealth(SettingsServices services, QObject* parent)
    : QObject(parent), services_(std::move(services)) {}

void SettingsAgentHealth::refresh() {
    const HookDoctor::Inputs inputs =
        HookDoctor::gather(services_.model.agents(), services_.model.defaults(), services_.clock.now());
    const int generation = ++generation_;
    QPointer<SettingsAgentHealth> self(this);
    HookDoctor::runOffMainThread([self, generation, inputs] {
        QVariantMap byAgent = entries(HookDoctor::report(inputs));
        postToMain([self, generation, byAgent = std::move(byAgent)]() mutable {
            if (!self || generation != self->generation_) {
                return;
            }
            for (auto it = byAgent.begin(); it != byAgent.end(); ++it) {
                QVariantMap entry = it->toMap();
                entry.insert(QStringLiteral("message"), self->messages_.value(it.key()));
                *it = entry;
            }
            self->byAgent_ = std::move(byAgent);
            self->loaded_ = true;
            Q_EMIT self->changed();
        });
    });
}

void SettingsAgentHealth::repair(const QString& agent) {
    setEntry(agent, QStringLiteral("working"), true);
    QPointer<SettingsAgentHealth> self(this);
    services_.pass.setConnectedInBackground(agent, true, [self, agent](std::optional<QString> error) {
        if (!self) {
            return;
        }
        const QString outcome = error.value_or(QStringLiteral("Repaired."));
        self->messages_.insert(agent, outcome);
        self->setEntry(agent, QStringLiteral("message"), outcome);
        Q_EMIT self->repairFinished(agent, error.value_or(QString()));
        self->refresh();
        // The island's drift mark follows the pass.
        self->services_.model.runConnectionPass();
    });
}

void SettingsAgentHealth::setEntry(const QString& agent, const QString& key, const QVariant& value) {
    QVariantMap entry = byAgent_.value(agent).toMap();
    entry.insert(key, value);
    byAgent_.insert(agent, entry);
    Q_EMIT changed();
}

} // namespace mirrowisp
