#include "island/IslandUsageModel.h"

#include "base/Clock.h"

#include <QVariantMap>
#include <cmath>

namespace mirrowisp {

IslandUsageModel::IslandUsageModel(UsageTracker& tracker, QObject* parent)
    : QObject(parent), tracker_(tracker) {
    for (auto changed : {&UsageTracker::claudeChanged, &UsageTracker::codexChanged,
                         &UsageTracker::extraChanged, &UsageTracker::claudeStateChanged}) {
        connect(&tracker_, changed, this, &IslandUsageModel::refresh);
    }
    refresh();
}

void IslandUsageModel::refresh() {
    QVariantList agents = describe(tracker_, tracker_.islandAgents(), SystemClock::shared().now());
    if (agents != agents_) {
        agents_ = std::move(agents);
        Q_EMIT agentsChanged();
    }
}

QVariantList IslandUsageModel::describe(const UsageTracker& tracker, const QList<AgentKind>& agents,
                                        Timestamp now) {
    QVariantList list;
    for (AgentKind agent : agents) {
        QVariantList meters;
        for (const UsageMeter& meter : UsageTracker::fresh(tracker.meters(agent), now)) {
            meters.append(QVariantMap{
                {QStringLiteral("id"), meter.id()},
                {QStringLiteral("label"), meter.label},
                {QStringLiteral("fraction"), std::clamp(meter.percent, 0.0, 100.0) / 100.0},
                {QStringLiteral("value"),
                 meter.text.value_or(QString::number(std::lround(meter.percent)) + QLatin1Char('%'))},
                {QStringLiteral("severity"), meter.severity},
            });
        }
        QString empty;
        if (meters.isEmpty()) {
            const QString stateTitle =
                agent == AgentKind::claude ? ClaudeUsageStates::title(tracker.claudeState()) : QString();
            empty = stateTitle.isEmpty() ? UsageTracker::noDataText(agent) : stateTitle;
        }
        list.append(QVariantMap{
            {QStringLiteral("agent"), AgentKinds::rawValue(agent)},
            {QStringLiteral("name"), AgentKinds::displayName(agent)},
            {QStringLiteral("meters"), meters},
            {QStringLiteral("emptyText"), empty},
        });
    }
    return list;
}

} // namespace mirrowisp
