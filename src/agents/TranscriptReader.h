#pragma once

#include "base/AgentKind.h"

#include <QJsonObject>
#include <QList>
#include <QString>
#include <optional>

namespace mirrowisp {

// Reads the end of an agent's transcript (JSON Lines, one object a line) for what hooks don't carry:
// the last assistant message, the last prompt, whether the turn is over. Only a fixed tail is ever
// read, so a transcript's length costs nothing; a missing, unreadable or foreign file gives no answer.
// Synchronous and stateless: callers keep it off the main thread.
//
// Codex writes records with a `payload` object; every other agent is read in Claude's shape.
namespace TranscriptReader {

inline constexpr qint64 turnIsOverBytes = 65536;
inline constexpr qint64 lastAssistantMessageBytes = 262144;
// A prompt sits before its turn's tool calls, results and answer, so it is usually further back than
// the last message, yet a tail this size holds it for all but the longest turns. It is also the first
// tail the store's prompt back-fill reads before it widens, so both look at the same bytes first.
inline constexpr qint64 lastUserPromptBytes = 262144;
inline constexpr qint64 codexLimitsBytes = 524288;

// The objects on the lines within the last `bytes` of the file, in file order. A line cut by the
// tail's start and lines that aren't JSON objects are left out.
QList<QJsonObject> tailObjects(const QString& path, qint64 bytes);

// The last assistant text within the tail, condensed.
std::optional<QString> lastAssistantMessage(const QString& path, AgentKind agent);
std::optional<QString> lastAssistantMessage(const QList<QJsonObject>& objects, AgentKind agent);

// The last prompt the user typed within the tail, cleaned and condensed. The list form serves a
// caller that reads wider tails itself.
std::optional<QString> lastUserPrompt(const QString& path, AgentKind agent);
std::optional<QString> lastUserPrompt(const QList<QJsonObject>& objects, AgentKind agent);

// Whether the last record that decides it says the turn ended; without one, it didn't.
bool turnIsOver(const QString& path, AgentKind agent);
bool turnIsOver(const QList<QJsonObject>& objects, AgentKind agent);

} // namespace TranscriptReader
} // namespace mirrowisp
