#pragma once

#include <QJsonObject>
#include <QString>
#include <QStringView>
#include <optional>

namespace mirrowisp {

// The short texts a session keeps, made from what agents send raw: tool names, tool inputs, prompts
// and messages.
// Everything here runs on the main thread for every hook event, so long inputs must cost little:
// condense and the JSON detail read only as much of them as their short results need.
namespace AgentStoreText {
// Longest condensed text, and longest detail of the permission card, in user-perceived characters.
inline constexpr qsizetype condensedLimit = 400;
inline constexpr qsizetype detailLimit = 1200;

// The name a tool is shown under: "Bash" for every shell, "Edit" for patches, the last word of an
// MCP tool.
QString displayName(const QString& tool);

// One line on what a tool call works on, condensed; nothing when the input lacks the value.
std::optional<QString> summary(const QString& tool, const QJsonObject& input);

// A few lines for the permission card: diff, command, edit, file content or the input as JSON.
std::optional<QString> detail(const QString& tool, const QJsonObject& input);

// A present-tense sentence for a tool's display name and its summary.
QString activity(const QString& tool, const std::optional<QString>& summary);

// The prompt as the user typed it, or nothing for machine-made text.
std::optional<QString> promptPreview(const QString& prompt);

// Markdown-free single-line text of at most condensedLimit characters and an ellipsis.
QString condense(const QString& text);

// The file names that a patch adds, updates or deletes, joined with ", "; nothing without any.
std::optional<QString> patchFiles(const QString& patch);

// The last component of a path; trailing slashes don't count, and "/" stays "/".
QString lastPathComponent(const QString& path);

// Where the first `limit` grapheme clusters of `text` end, as a UTF-16 index, when the text has
// more than `limit` of them; nothing when it fits.
std::optional<qsizetype> graphemeCut(QStringView text, qsizetype limit);
} // namespace AgentStoreText

} // namespace mirrowisp
