// Reading the meters out of the text that `claude -p /usage` prints.

#include "usage/ClaudeUsageProbe.h"

#include <QDateTime>
#include <QRegularExpression>
#include <array>
#include <cmath>

namespace mirrowisp::ClaudeUsageProbe {

namespace {

QString labelFor(const QString& kind, const QString& scope) {
    if (kind == QLatin1String("session")) {
        return QStringLiteral("5-hour");
    }
    if (scope.isEmpty() || scope == QLatin1String("all models")) {
        return QStringLiteral("Weekly");
    }
    return QStringLiteral("Weekly · ") + scope;
}

// The month as an English three-letter abbreviation, any case; 0 when it is none.
int monthNumber(const QString& name) {
    static const std::array<const char*, 12> names = {"jan", "feb", "mar", "apr", "may", "jun",
                                                      "jul", "aug", "sep", "oct", "nov", "dec"};
    const QString lowered = name.toLower();
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (lowered == QLatin1String(names[i])) {
            return static_cast<int>(i) + 1;
        }
    }
    return 0;
}

Timestamp seconds(const QDateTime& at) {
    return static_cast<double>(at.toMSecsSinceEpoch()) / 1000.0;
}

} // namespace

QList<UsageMeter> parse(const QString& text, Timestamp now) {
    static const QRegularExpression line(
        QStringLiteral("^Current (session|week)(?: \\((.+?)\\))?: ([0-9.]+)% used(?: · resets (.+?)(?: "
                       "\\(([^)]+)\\))?)?$"));
    QList<UsageMeter> meters;
    for (const QString& raw : text.split(QLatin1Char('\n'))) {
        const QRegularExpressionMatch match = line.match(raw.trimmed());
        if (!match.hasMatch()) {
            continue;
        }
        bool ok = false;
        const double percent = match.captured(3).toDouble(&ok);
        if (!ok) {
            continue;
        }
        UsageMeter meter;
        meter.agent = AgentKind::claude;
        meter.label = labelFor(match.captured(1), match.captured(2));
        meter.percent = percent;
        meter.severity = severityFor(percent);
        if (const QString reset = match.captured(4); !reset.isEmpty()) {
            // An unknown zone name leaves the zone invalid, and resetDate falls back on the system's.
            meter.resetsAt = resetDate(reset, QTimeZone(match.captured(5).toUtf8()), now);
        }
        meters.append(meter);
    }
    return meters;
}

std::optional<Timestamp> resetDate(const QString& text, const QTimeZone& zone, Timestamp now) {
    // One pattern for the formats "MMM d h:mma", "MMM d ha", "MMM d, yyyy h:mma", "MMM d, yyyy ha",
    // "h:mma" and "ha", with "am"/"pm" in any case; a blank before the marker is let through too.
    static const QRegularExpression format(
        QStringLiteral("^(?:([A-Za-z]{3}) (\\d{1,2})(?:, (\\d{4}))? )?(\\d{1,2})(?::(\\d{2}))? ?([ap]m)$"),
        QRegularExpression::CaseInsensitiveOption);
    const QTimeZone tz = zone.isValid() ? zone : QTimeZone::systemTimeZone();
    QString cleaned = text;
    cleaned.replace(QStringLiteral(" at "), QStringLiteral(" "));
    const QRegularExpressionMatch match = format.match(cleaned.trimmed());
    if (!match.hasMatch()) {
        return std::nullopt;
    }
    const int hour12 = match.captured(4).toInt();
    const int minute = match.hasCaptured(5) ? match.captured(5).toInt() : 0;
    if (hour12 < 1 || hour12 > 12) {
        return std::nullopt;
    }
    const bool pm = match.captured(6).toLower() == QLatin1String("pm");
    const QTime time(hour12 % 12 + (pm ? 12 : 0), minute);
    if (!time.isValid()) {
        return std::nullopt;
    }
    const QDateTime current = QDateTime::fromMSecsSinceEpoch(std::llround(now * 1000.0), tz);

    if (match.hasCaptured(1)) {
        const int month = monthNumber(match.captured(1));
        const int day = match.captured(2).toInt();
        if (month == 0) {
            return std::nullopt;
        }
        if (match.hasCaptured(3)) {
            const QDateTime at(QDate(match.captured(3).toInt(), month, day), time, tz);
            return at.isValid() ? std::optional(seconds(at)) : std::nullopt;
        }
        const QDateTime at(QDate(current.date().year(), month, day), time, tz);
        if (!at.isValid()) {
            return std::nullopt;
        }
        // A date more than a day behind is next year's: a reset read in late December for "Jan 2".
        if (seconds(at) < now - 86400) {
            const QDateTime next(QDate(current.date().year() + 1, month, day), time, tz);
            return next.isValid() ? std::optional(seconds(next)) : std::nullopt;
        }
        return seconds(at);
    }

    QDateTime at(current.date(), time, tz);
    if (at.isValid() && seconds(at) <= now) {
        at = QDateTime(current.date().addDays(1), time, tz);
    }
    if (!at.isValid()) {
        return std::nullopt;
    }
    Timestamp result = seconds(at);
    if (result < now) {
        result += 86400;
    }
    return result;
}

} // namespace mirrowisp::ClaudeUsageProbe
