#pragma once

#include "base/Clock.h"
#include "usage/UsageMeter.h"

#include <QList>
#include <QString>
#include <optional>

namespace mirrowisp::OtherUsage {

// Milliseconds OpenCode may hold its database before a read gives up: a running OpenCode is
// never waited on for longer.
inline constexpr int busyTimeoutMs = 500;

// The dollars OpenCode's assistant messages cost since `since`; nothing when the database is
// missing, locked past the busy time-out, or no database at all.
std::optional<double> spend(const QString& database, Timestamp since);

// "Today" and "7 days" (today and the six days before it, local time) as dollar texts; empty when
// the database is missing or unreadable.
QList<UsageMeter> openCode(const QString& database, Timestamp now);

// Meters from the text of `amp usage`; empty when nothing is recognised.
QList<UsageMeter> parseAmp(const QString& text, Timestamp now = SystemClock::shared().now());

} // namespace mirrowisp::OtherUsage
