#pragma once

#include "base/AgentKind.h"
#include "base/Clock.h"

#include <QHashFunctions>
#include <QString>
#include <optional>

namespace mirrowisp {

// One usage limit of one agent, as the island and the settings show it.
struct UsageMeter {
    AgentKind agent = AgentKind::claude;
    QString label;                     // "5-hour", "Weekly", …
    double percent = 0;                // used, 0 to 100
    std::optional<Timestamp> resetsAt; // when the limit resets, if known
    QString severity;                  // "normal", "warning" or "critical"
    std::optional<QString> text;       // shown instead of the percent, for limits that are no percentage

    // Stable across refreshes, so views keep their rows when the numbers move.
    QString id() const { return AgentKinds::rawValue(agent) + QLatin1Char('.') + label; }

    bool operator==(const UsageMeter&) const = default;
};

// How close a limit is: "critical" from 90 % used, "warning" from 75 %, else "normal".
inline QString severityFor(double percent) {
    if (percent >= 90) {
        return QStringLiteral("critical");
    }
    if (percent >= 75) {
        return QStringLiteral("warning");
    }
    return QStringLiteral("normal");
}

inline size_t qHash(const UsageMeter& meter, size_t seed = 0) {
    return qHashMulti(seed, static_cast<int>(meter.agent), meter.label, meter.percent,
                      meter.resetsAt.value_or(-1), meter.severity, meter.text.value_or(QString()));
}

} // namespace mirrowisp
