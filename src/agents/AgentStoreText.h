#pragma once

#include <QJsonObject>
#include <QString>
#include <QStringView>
#include <optional>

namespace mirrowisp {

// The short texts a session keeps, made from what agents send raw: tool names, tool inputs, prompts
// and messages. Pure functions only; AgentStore inherits them, so callers write AgentStore::summary.
// Everything here runs on the main thread for every hook event, so long inputs must cost little:
// condense and the JSON detail read only as much of them as their short results need.
struct AgentStoreText {
    // Longest condensed text, and longest detail of the permission card, in user-perceived characters.
    static constexpr qsizetype condensedLimit = 400;
    static constexpr qsizetype detailLimit = 1200;

    // The name a tool is shown under: "Bash" for every shell, "Edit" for patches, the last word of an
    // MCP tool.
    static QString displayName(const QString& tool);

    // One line on what a tool call works on, condensed; nothing when the input lacks the value.
    static std::optional<QString> summary(const QString& tool, const QJsonObject& input);

    // A few lines for the permission card: diff, command, edit, file content or the input as JSON.
    static std::optional<QString> detail(const QString& tool, const QJsonObject& input);

    // A present-tense sentence for a tool's display name and its summary.
    static QString activity(const QString& tool, const std::optional<QString>& summary);

    // The prompt as the user typed it, or nothing for machine-made text.
    static std::optional<QString> promptPreview(const QString& prompt);

    // Markdown-free single-line text of at most condensedLimit characters and an ellipsis.
    static QString condense(const QString& text);

    // The file names that a patch adds, updates or deletes, joined with ", "; nothing without any.
    static std::optional<QString> patchFiles(const QString& patch);

    // The last component of a path; trailing slashes don't count, and "/" stays "/".
    static QString lastPathComponent(const QString& path);

    // Where the first `limit` grapheme clusters of `text` end, as a UTF-16 index, when the text has
    // more than `limit` of them; nothing when it fits.
    static std::optional<qsizetype> graphemeCut(QStringView text, qsizetype limit);
};

} // namespace mirrowisp
