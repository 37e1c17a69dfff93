#include "agents/AgentActivity.h"

#include "base/UserDefaults.h"

#include <QDate>
#include <QDateTime>
#include <QJsonObject>
#include <cmath>
#include <optional>

namespace mirrowisp::AgentActivity {

namespace {

constexpr int keptDays = 14;

std::optional<QDate> localDay(Timestamp at) {
    // Beyond ±2^53 ms a double no longer holds whole milliseconds, and QDateTime gives up long before.
    constexpr double limit = 9007199254740992.0;
    const double ms = std::floor(at * 1000.0);
    if (!std::isfinite(ms) || std::abs(ms) > limit) {
        return std::nullopt;
    }
    const QDateTime time = QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(ms), Qt::LocalTime);
    if (!time.isValid()) {
        return std::nullopt;
    }
    return time.date();
}

QString format(QDate day) {
    return QString::asprintf("%04d-%02d-%02d", day.year(), day.month(), day.day());
}

// The day string of `days` calendar days before `day`. When that day can't be formed, `day` itself,
// which keeps only the days after it.
QString cutOff(QDate day, int days) {
    const QDate earlier = day.addDays(-days);
    return format(earlier.isValid() ? earlier : day);
}

bool isWholeNumber(const QJsonValue& value) {
    constexpr double limit = 9007199254740992.0;
    const double number = value.toDouble();
    return value.isDouble() && std::trunc(number) == number && std::abs(number) <= limit;
}

// The stored ledger; anything but an object of whole counts reads as empty, and is replaced by the
// next record.
QJsonObject ledger(const UserDefaults& defaults, AgentKind kind) {
    const auto stored = defaults.dictionary(key(kind));
    if (!stored) {
        return {};
    }
    for (const QJsonValue count : *stored) {
        if (!isWholeNumber(count)) {
            return {};
        }
    }
    return *stored;
}

} // namespace

QString key(AgentKind kind) {
    return QStringLiteral("activity.") + AgentKinds::rawValue(kind);
}

QString dayString(Timestamp at) {
    const auto day = localDay(at);
    return day ? format(*day) : QString();
}

void recordPrompt(UserDefaults& defaults, AgentKind kind, Timestamp at) {
    const auto day = localDay(at);
    if (!day) {
        return;
    }
    QJsonObject entries = ledger(defaults, kind);
    const QString today = format(*day);
    entries.insert(today, entries.value(today).toInteger() + 1);

    const QString oldest = cutOff(*day, keptDays);
    for (auto it = entries.begin(); it != entries.end();) {
        it = it.key() > oldest ? it + 1 : entries.erase(it);
    }
    defaults.set(key(kind), entries);
}

qint64 prompts(const UserDefaults& defaults, AgentKind kind, int days, Timestamp now) {
    const auto day = localDay(now);
    if (!day) {
        return 0;
    }
    const QString oldest = cutOff(*day, days);
    const QJsonObject entries = ledger(defaults, kind);
    qint64 total = 0;
    for (auto it = entries.begin(); it != entries.end(); ++it) {
        if (it.key() > oldest) {
            total += it.value().toInteger();
        }
    }
    return total;
}

void recordPrompt(AgentKind kind, Timestamp at) {
    recordPrompt(UserDefaults::standard(), kind, at);
}

qint64 prompts(AgentKind kind, int days, Timestamp now) {
    return prompts(UserDefaults::standard(), kind, days, now);
}

} // namespace mirrowisp::AgentActivity
