#include "control/CtlDoctor.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace mirrowisp {

namespace {

QString str(const QJsonValue& value) {
    return value.toString();
}

QString milliseconds(double value) {
    return QString::number(value, 'f', value < 10 ? 2 : 1) + QStringLiteral(" ms");
}

} // namespace

QString formatDoctorReport(const QByteArray& json) {
    const QJsonObject report = QJsonDocument::fromJson(json).object();
    QString out;
    const QJsonObject bridge = report.value(QStringLiteral("bridge")).toObject();
    out += QStringLiteral("bridge link  %1 -> %2 (%3)\n")
               .arg(str(bridge.value(QStringLiteral("link"))),
                    str(bridge.value(QStringLiteral("target"))).isEmpty()
                        ? QStringLiteral("nothing")
                        : str(bridge.value(QStringLiteral("target"))),
                    bridge.value(QStringLiteral("usable")).toBool()
                        ? QStringLiteral("works")
                        : QStringLiteral("BROKEN: hooks do nothing"));
    const QJsonValue tool = bridge.value(QStringLiteral("toolVersion"));
    out += QStringLiteral("tool         %1, app %2\n\n")
               .arg(tool.isString() ? str(tool) : QStringLiteral("version unknown"),
                    str(bridge.value(QStringLiteral("appVersion"))));
    for (const QJsonValue& value : report.value(QStringLiteral("agents")).toArray()) {
        const QJsonObject agent = value.toObject();
        const bool found = agent.value(QStringLiteral("found")).toBool();
        out += str(agent.value(QStringLiteral("name"))) + QStringLiteral(" (") +
               str(agent.value(QStringLiteral("agent"))) + QStringLiteral(")\n");
        out += QStringLiteral("  found      ") +
               (found ? QStringLiteral("yes") +
                            (str(agent.value(QStringLiteral("where"))).isEmpty()
                                 ? QString()
                                 : QStringLiteral(", ") + str(agent.value(QStringLiteral("where"))))
                      : QStringLiteral("no")) +
               QLatin1Char('\n');
        out += QStringLiteral("  hooks      %1 in %2\n")
                   .arg(str(agent.value(QStringLiteral("hooks"))), str(agent.value(QStringLiteral("file"))));
        const QJsonArray supported = agent.value(QStringLiteral("eventsSupported")).toArray();
        if (!supported.isEmpty()) {
            const QJsonArray installed = agent.value(QStringLiteral("eventsInstalled")).toArray();
            QStringList missing;
            for (const QJsonValue& event : supported) {
                if (!installed.contains(event)) {
                    missing.append(event.toString());
                }
            }
            out += QStringLiteral("  events     %1 of %2").arg(installed.size()).arg(supported.size()) +
                   (missing.isEmpty() ? QString()
                                      : QStringLiteral(" (missing: ") + missing.join(QStringLiteral(", ")) +
                                            QLatin1Char(')')) +
                   QLatin1Char('\n');
        }
        const QJsonValue last = agent.value(QStringLiteral("lastEvent"));
        out += QStringLiteral("  last event ") + (last.isString() ? str(last) : QStringLiteral("never")) +
               QLatin1Char('\n');
        const QJsonValue trip = agent.value(QStringLiteral("roundTrip"));
        if (trip.isObject()) {
            const QJsonObject t = trip.toObject();
            out += QStringLiteral("  round trip median %1, p95 %2 over %3 events\n")
                       .arg(milliseconds(t.value(QStringLiteral("medianMs")).toDouble()),
                            milliseconds(t.value(QStringLiteral("p95Ms")).toDouble()))
                       .arg(t.value(QStringLiteral("events")).toInt());
        }
        out += QLatin1Char('\n');
    }
    const QJsonArray expired = report.value(QStringLiteral("expiredLastDay")).toArray();
    out += QStringLiteral("stuck decisions in the last day: %1\n").arg(expired.size());
    for (const QJsonValue& value : expired) {
        const QJsonObject entry = value.toObject();
        out +=
            QStringLiteral("  %1  %2  %3  %4\n")
                .arg(str(entry.value(QStringLiteral("askedAt"))), str(entry.value(QStringLiteral("agent"))),
                     str(entry.value(QStringLiteral("tool"))), str(entry.value(QStringLiteral("summary"))));
    }
    return out;
}

QString formatRules(const QByteArray& json) {
    QString out;
    QString group;
    for (const QJsonValue& value : QJsonDocument::fromJson(json).array()) {
        const QJsonObject rule = value.toObject();
        const QString project = str(rule.value(QStringLiteral("project")));
        const QString heading = str(rule.value(QStringLiteral("agent"))) + QStringLiteral(" · ") +
                                (project.isEmpty() ? QStringLiteral("all projects") : project) +
                                QStringLiteral(" (") + str(rule.value(QStringLiteral("file"))) +
                                QLatin1Char(')');
        if (heading != group) {
            group = heading;
            out += (out.isEmpty() ? QString() : QStringLiteral("\n")) + heading + QLatin1Char('\n');
        }
        out += QStringLiteral("  ") + str(rule.value(QStringLiteral("id"))) + QStringLiteral("  ") +
               (rule.value(QStringLiteral("readable")).toBool()
                    ? str(rule.value(QStringLiteral("rule")))
                    : QStringLiteral("(unreadable: ") + str(rule.value(QStringLiteral("problem"))) +
                          QLatin1Char(')')) +
               QLatin1Char('\n');
    }
    return out.isEmpty() ? QStringLiteral("no always-allow rules\n") : out;
}

} // namespace mirrowisp
