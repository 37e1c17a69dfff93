#include "integration/AgentSetup.h"

#include <QFileInfo>
#include <cmath>

namespace mirrowisp {

namespace {

QString count(qint64 value, const char* unit) {
    return QString::number(value) + QLatin1Char(' ') + QString::fromLatin1(unit) + QStringLiteral(" ago");
}

} // namespace

QString relativePhrase(Timestamp then, Timestamp now) {
    constexpr double minute = 60, hour = 3600, day = 86400, week = 7 * day, month = 30.44 * day,
                     year = 365.25 * day;
    const double elapsed = std::max(0.0, now - then);
    const auto whole = [elapsed](double unit) { return static_cast<qint64>(std::floor(elapsed / unit)); };
    if (elapsed < minute) {
        return QStringLiteral("now");
    }
    if (elapsed < hour) {
        return count(whole(minute), "min.");
    }
    if (elapsed < day) {
        return count(whole(hour), "hr.");
    }
    if (elapsed < week) {
        const qint64 days = whole(day);
        return days == 1 ? QStringLiteral("yesterday") : count(days, "days");
    }
    if (elapsed < month) {
        const qint64 weeks = whole(week);
        return weeks == 1 ? QStringLiteral("last week") : count(weeks, "wk.");
    }
    if (elapsed < year) {
        const qint64 months = whole(month);
        return months == 1 ? QStringLiteral("last month") : count(months, "mo.");
    }
    const qint64 years = whole(year);
    return years == 1 ? QStringLiteral("last year") : count(years, "yr.");
}

QString AgentSetup::summary(Timestamp now, bool codexAppInstalled) const {
    switch (kind) {
    case Kind::unreadableConfig:
        if (unexpectedKey) {
            return QStringLiteral("Cannot install: ") + QFileInfo(file).fileName() +
                   QStringLiteral(" has an unexpected ") + *unexpectedKey;
        }
        return QStringLiteral("Cannot read ") + QFileInfo(file).fileName();
    case Kind::connected:
        if (!lastSeen) {
            return QStringLiteral("Connected. Start a session to test it.");
        }
        if (now - *lastSeen < 60) {
            return QStringLiteral("Connected. Working now.");
        }
        return QStringLiteral("Connected. Last seen ") + relativePhrase(*lastSeen, now) + QLatin1Char('.');
    case Kind::notInstalled:
        return QStringLiteral("Not installed");
    case Kind::disconnected:
        return QStringLiteral("Disconnected");
    case Kind::notConnected:
        return QStringLiteral("Not connected");
    case Kind::codexNeedsApproval:
        return codexAppInstalled ? QStringLiteral("Needs your approval in Codex")
                                 : QStringLiteral("Needs your approval. Run codex in Terminal.");
    case Kind::codexHooksOff:
        return codexAppInstalled ? QStringLiteral("Turned off in Codex")
                                 : QStringLiteral("Turned off in Codex. Type /hooks in codex.");
    }
    return {};
}

std::optional<SetupFix> AgentSetup::fix() const {
    switch (kind) {
    case Kind::unreadableConfig:
        return SetupFix::fixSettingsFile;
    case Kind::codexNeedsApproval:
        return SetupFix::approveInCodex;
    case Kind::codexHooksOff:
        return SetupFix::turnOnInCodex;
    case Kind::connected:
    case Kind::notInstalled:
    case Kind::disconnected:
    case Kind::notConnected:
        break;
    }
    return std::nullopt;
}

} // namespace mirrowisp
