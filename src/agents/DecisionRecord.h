#pragma once

#include "base/AgentKind.h"
#include "base/Clock.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QJsonObject>
#include <QString>
#include <optional>

namespace mirrowisp {

// How a permission request, question or plan ended.
enum class DecisionOutcome {
    allowed,
    alwaysAllowed,
    denied,
    answered,
    planApproved,
    planApprovedAutoEdit,
    keptPlanning,
    terminal,  // answered in the agent's own prompt
    withdrawn, // the agent gave up waiting (its hook ended)
    stale,     // a new prompt, the end of the turn or of the session came first
    expired,   // waited past the agent's own hook time-out
};

// Who ended it.
enum class DecisionRoute {
    island,     // a click on the card
    key,        // y / n over the island
    ctl,        // mirrowisp ctl or the bus interface
    setupGuide, // the setup guide's sample request
    agent,      // the agent itself: it moved on, gave up or was answered there
};

namespace DecisionNames {
QString outcome(DecisionOutcome outcome);
std::optional<DecisionOutcome> outcome(QStringView raw);
QString route(DecisionRoute route);
std::optional<DecisionRoute> route(QStringView raw);
} // namespace DecisionNames

// One ended decision as the log keeps it. Built on the main thread from what the store already has;
// the costly part (summarising and masking the tool input) happens in toJsonLine, on the log's thread.
struct DecisionRecord {
    Timestamp askedAt = 0;
    Timestamp endedAt = 0;
    AgentKind agent = AgentKind::claude;
    QString sessionID;
    QString cwd;
    QString kind; // permission, question, plan
    QString tool;
    QString summary;
    DecisionOutcome outcome = DecisionOutcome::allowed;
    DecisionRoute route = DecisionRoute::island;
    QString answer;        // the answers given, the plan feedback
    QJsonObject toolInput; // raw; only its masked summary is written

    // One JSON line with its newline; secrets masked, long texts cut.
    QByteArray toJsonLine() const;
    // A line as written by toJsonLine; nothing for anything that does not parse or lacks a member.
    static std::optional<DecisionRecord> fromJsonLine(QByteArrayView line);
    // The masked input summary stored in the line ("input"), kept when read back.
    QString inputSummary;

    bool operator==(const DecisionRecord&) const = default;
};

namespace DecisionText {
inline constexpr qsizetype inputLimit = 200;
// Values of environment-looking assignments (KEY=value), of --token/--password style options and
// of Authorization headers become "***".
QString maskSecrets(const QString& text);
// The input as compact JSON, masked, cut to inputLimit characters.
QString inputSummary(const QJsonObject& input);
} // namespace DecisionText

} // namespace mirrowisp
