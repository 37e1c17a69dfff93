#pragma once

#include <QList>
#include <QString>

namespace mirrowisp {

// The plan card's Markdown: a deliberately small subset, one block per line or run of lines. A plan
// is text an agent wrote, so every input renders; nothing here can fail.
namespace MarkdownView {

struct Block {
    enum class Kind { heading, bullet, code, quote, paragraph, rule };

    Kind kind = Kind::paragraph;
    QString text;   // everything but rule; code lines are joined by a line feed
    int level = 0;  // heading
    int indent = 0; // bullet: leading spaces / 2
    QString marker; // bullet: "•", or a number with its dot

    static Block heading(int level, QString text) { return {Kind::heading, std::move(text), level, 0, {}}; }
    static Block bullet(QString text, int indent, QString marker) {
        return {Kind::bullet, std::move(text), 0, indent, std::move(marker)};
    }
    static Block code(QString text) { return {Kind::code, std::move(text), 0, 0, {}}; }
    static Block quote(QString text) { return {Kind::quote, std::move(text), 0, 0, {}}; }
    static Block paragraph(QString text) { return {Kind::paragraph, std::move(text), 0, 0, {}}; }
    static Block rule() { return {Kind::rule, {}, 0, 0, {}}; }

    bool operator==(const Block&) const = default;
};

size_t qHash(const Block& block, size_t seed = 0);

// The blocks of a text, in one pass over its lines.
QList<Block> blocks(const QString& markdown);

// Inline Markdown (bold, italics, code, links, backslash escapes) as the small HTML subset that both a
// StyledText Text and a RichText TextEdit draw. Every other character is escaped, so the agent's text never
// becomes markup. Markers without their partner stay as typed.
QString inlineHtml(const QString& text);

// The text escaped for StyledText with its white space kept.
QString escapeHtml(QStringView text);

} // namespace MarkdownView
} // namespace mirrowisp
