#include "usage/OtherUsage.h"

#include <QDate>
#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStringList>
#include <algorithm>
#include <array>
#include <cmath>
#include <sqlite3.h>
#include <tuple>

namespace mirrowisp::OtherUsage {

namespace {

constexpr const char* spendQuery = "SELECT COALESCE(SUM(json_extract(data, '$.cost')), 0) FROM message\n"
                                   "WHERE json_extract(data, '$.role') = 'assistant' AND time_created >= ?";

QString dollars(double amount) {
    return QString::asprintf("$%.2f", amount);
}

std::optional<double> number(const QRegularExpressionMatch& match, int group) {
    bool ok = false;
    const double value = match.captured(group).toDouble(&ok);
    return ok && std::isfinite(value) ? std::optional<double>(value) : std::nullopt;
}

} // namespace

std::optional<double> spend(const QString& database, Timestamp since) {
    // Read-only through a URI, so a running OpenCode keeps its write lock and its journal as they are.
    // A URI path ends at "?" or "#" and decodes "%": those three are escaped.
    QByteArray path = QFile::encodeName(database);
    path.replace('%', "%25").replace('?', "%3f").replace('#', "%23");
    const QByteArray uri = QByteArrayLiteral("file:") + path + QByteArrayLiteral("?mode=ro");
    sqlite3* db = nullptr;
    const int opened = sqlite3_open_v2(uri.constData(), &db, SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, nullptr);
    if (opened != SQLITE_OK) {
        sqlite3_close(db);
        return std::nullopt;
    }
    sqlite3_busy_timeout(db, busyTimeoutMs);
    std::optional<double> result;
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db, spendQuery, -1, &statement, nullptr) == SQLITE_OK) {
        // OpenCode stores milliseconds; a bind in seconds would count every message ever sent.
        sqlite3_bind_int64(statement, 1, static_cast<sqlite3_int64>(std::floor(since * 1000.0)));
        if (sqlite3_step(statement) == SQLITE_ROW) {
            result = sqlite3_column_double(statement, 0);
        }
    }
    sqlite3_finalize(statement);
    sqlite3_close(db);
    return result;
}

QList<UsageMeter> openCode(const QString& database, Timestamp now) {
    if (!QFileInfo(database).isFile()) {
        return {};
    }
    const QDateTime local = QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(std::floor(now * 1000.0)));
    const QDate today = local.date();
    const Timestamp todayStart = static_cast<Timestamp>(today.startOfDay().toMSecsSinceEpoch()) / 1000.0;
    const Timestamp weekStart =
        static_cast<Timestamp>(today.addDays(-6).startOfDay().toMSecsSinceEpoch()) / 1000.0;
    const std::optional<double> daySpend = spend(database, todayStart);
    if (!daySpend) {
        return {};
    }
    const std::optional<double> weekSpend = spend(database, weekStart);
    if (!weekSpend) {
        return {};
    }
    auto meter = [](const QString& label, double amount) {
        UsageMeter m;
        m.agent = AgentKind::opencode;
        m.label = label;
        m.percent = 0;
        m.severity = QString();
        m.text = dollars(amount);
        return m;
    };
    return {meter(QStringLiteral("Today"), *daySpend), meter(QStringLiteral("7 days"), *weekSpend)};
}

namespace {

const QRegularExpression& ampPattern(int which) {
    static const std::array<QRegularExpression, 5> patterns{
        QRegularExpression(QStringLiteral(R"(\$(\d+(?:\.\d+)?)\s*/\s*\$(\d+(?:\.\d+)?)\s+remaining)")),
        QRegularExpression(QStringLiteral(R"(\$(\d+(?:\.\d+)?)\s+remaining)")),
        QRegularExpression(QStringLiteral(R"(remaining \((\d+(?:\.\d+)?)%\))")),
        QRegularExpression(QStringLiteral(R"((\d+(?:\.\d+)?)%\s+remaining)")),
        QRegularExpression(QStringLiteral(R"(in (\d+) days?)")),
    };
    return patterns.at(static_cast<std::size_t>(which));
}

enum AmpPattern { leftOfTotal, leftOnly, percentInParens, percentRemaining, days };

QStringList trimmedLines(const QString& text) {
    QStringList lines;
    for (const QString& raw : text.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        const QString line = raw.trimmed();
        if (!line.isEmpty()) {
            lines.append(line);
        }
    }
    return lines;
}

// "in N days" on any line: when the balance resets.
std::optional<Timestamp> ampReset(const QStringList& lines, Timestamp now) {
    for (const QString& line : lines) {
        const QRegularExpressionMatch match = ampPattern(days).match(line);
        bool ok = false;
        const qint64 count = match.hasMatch() ? match.captured(1).toLongLong(&ok) : 0;
        if (ok) {
            return now + static_cast<double>(count) * 86400.0;
        }
    }
    return std::nullopt;
}

// The share of the balance used, from whichever form the line gives: a percentage left, or the
// amount left of a total.
std::optional<double> ampUsedPercent(const QString& line) {
    for (AmpPattern pattern : {percentInParens, percentRemaining}) {
        const QRegularExpressionMatch match = ampPattern(pattern).match(line);
        if (match.hasMatch()) {
            if (const auto left = number(match, 1)) {
                return std::clamp(100.0 - *left, 0.0, 100.0);
            }
        }
    }
    const QRegularExpressionMatch pair = ampPattern(leftOfTotal).match(line);
    if (pair.hasMatch()) {
        const auto left = number(pair, 1);
        const auto total = number(pair, 2);
        if (left && total && *total > 0) {
            return std::clamp(100.0 * (1.0 - *left / *total), 0.0, 100.0);
        }
    }
    return std::nullopt;
}

// The amount left as written ("$4.20"), or nothing.
std::optional<QString> ampAmountLeft(const QString& line) {
    const QRegularExpressionMatch pair = ampPattern(leftOfTotal).match(line);
    const QRegularExpressionMatch single = pair.hasMatch() ? pair : ampPattern(leftOnly).match(line);
    if (single.hasMatch()) {
        return QLatin1Char('$') + single.captured(1);
    }
    return std::nullopt;
}

// The meters one line gives, as label, share used and the text shown instead of the share.
QList<std::tuple<QString, double, std::optional<QString>>> ampLineMeters(const QString& line) {
    const std::optional<double> percent = ampUsedPercent(line);
    if (line.startsWith(QStringLiteral("Amp Free:"))) {
        // The free plan's allowance: the share used, or what is left when only an amount is given.
        const std::optional<QString> left = ampAmountLeft(line);
        if (!percent && !left) {
            return {};
        }
        return {{QStringLiteral("Free"), percent.value_or(0), percent ? std::nullopt : left}};
    }
    if (line.contains(QStringLiteral("Tier:")) || line.toLower().contains(QStringLiteral("credits:"))) {
        // A paid balance: the share used when a percentage or a total says it, and the amount left as
        // written.
        QList<std::tuple<QString, double, std::optional<QString>>> found;
        if (percent) {
            found.append({QStringLiteral("Plan"), *percent, std::nullopt});
        }
        if (const std::optional<QString> left = ampAmountLeft(line)) {
            found.append({QStringLiteral("Left"), percent.value_or(0), left});
        }
        return found;
    }
    // Any other line with a share left counts against today's allowance.
    if (percent) {
        return {{QStringLiteral("Today"), *percent, std::nullopt}};
    }
    return {};
}

} // namespace

QList<UsageMeter> parseAmp(const QString& text, Timestamp now) {
    const QStringList lines = trimmedLines(text);
    const std::optional<Timestamp> resetsAt = ampReset(lines, now);
    QList<UsageMeter> meters;
    for (const QString& line : lines) {
        for (auto& [label, percent, shown] : ampLineMeters(line)) {
            // One meter per label, the first line that gives it: ids must stay unique for the views.
            const bool seen = std::any_of(meters.cbegin(), meters.cend(),
                                          [&](const UsageMeter& m) { return m.label == label; });
            if (seen) {
                continue;
            }
            UsageMeter meter;
            meter.agent = AgentKind::amp;
            meter.label = label;
            meter.percent = percent;
            meter.resetsAt = resetsAt;
            meter.severity = severityFor(percent);
            meter.text = shown;
            meters.append(meter);
        }
    }
    return meters;
}

} // namespace mirrowisp::OtherUsage
