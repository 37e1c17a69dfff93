#pragma once

#include "base/AgentKind.h"
#include "base/Clock.h"

#include <QString>

namespace mirrowisp {

class UserDefaults;

// How many prompts the user sent each agent per local calendar day, kept for the last 14 days, so the
// usage meters can show the agents used most. Stored under "activity.<raw kind>" as an object from
// day string ("2027-01-15") to count. Day strings have a fixed width, so comparing them as text
// compares the days; no date is ever parsed back.
namespace AgentActivity {

QString key(AgentKind kind);
// The local calendar day of `at`; empty when `at` is no representable time.
QString dayString(Timestamp at);

// Adds one prompt on the day of `at`, and drops this agent's days that are 14 or more days older.
void recordPrompt(UserDefaults& defaults, AgentKind kind, Timestamp at);
// The prompts of the last `days` calendar days up to `now`, today included.
qint64 prompts(const UserDefaults& defaults, AgentKind kind, int days, Timestamp now);

// The same on the app's standard store.
void recordPrompt(AgentKind kind, Timestamp at);
qint64 prompts(AgentKind kind, int days, Timestamp now);

} // namespace AgentActivity
} // namespace mirrowisp
