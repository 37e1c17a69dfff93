#include "island/MarkdownView.h"

#include <QHash>
#include <QRegularExpression>
#include <QSet>
#include <QStringList>
#include <algorithm>
#include <optional>
#include <vector>

namespace mirrowisp::MarkdownView {

size_t qHash(const Block& block, size_t seed) {
    return qHashMulti(seed, static_cast<int>(block.kind), block.text, block.level, block.indent,
                      block.marker);
}

namespace {

bool isBlank(QChar c) {
    return c == QLatin1Char(' ') || c == QLatin1Char('\t');
}

// Only spaces and tabs count: a line's other white space is part of what the agent wrote.
QStringView trimBlanks(QStringView line) {
    qsizetype start = 0;
    qsizetype end = line.size();
    while (start < end && isBlank(line[start])) {
        ++start;
    }
    while (end > start && isBlank(line[end - 1])) {
        --end;
    }
    return line.sliced(start, end - start);
}

int leadingSpaces(QStringView line) {
    int count = 0;
    while (count < line.size() && line[count] == QLatin1Char(' ')) {
        ++count;
    }
    return count;
}

const QRegularExpression& bulletPattern() {
    static const QRegularExpression pattern(QStringLiteral(R"(^([-*+]|\d+\.)\s+(.*)$)"),
                                            QRegularExpression::DotMatchesEverythingOption);
    return pattern;
}

} // namespace

QList<Block> blocks(const QString& markdown) {
    QList<Block> result;
    QStringList paragraph;
    std::optional<QStringList> fence;
    auto flush = [&] {
        if (!paragraph.isEmpty()) {
            result.append(Block::paragraph(paragraph.join(QLatin1Char(' '))));
            paragraph.clear();
        }
    };

    for (QStringView line : QStringView(markdown).split(QLatin1Char('\n'))) {
        const QStringView trimmed = trimBlanks(line);
        if (trimmed.startsWith(QLatin1StringView("```"))) {
            if (fence) {
                result.append(Block::code(fence->join(QLatin1Char('\n'))));
                fence.reset();
            } else {
                flush();
                fence.emplace();
            }
        } else if (fence) {
            fence->append(line.toString());
        } else if (trimmed.isEmpty()) {
            flush();
        } else if (trimmed.startsWith(QLatin1Char('#'))) {
            flush();
            int level = 0;
            while (level < trimmed.size() && trimmed[level] == QLatin1Char('#')) {
                ++level;
            }
            result.append(Block::heading(level, trimBlanks(trimmed.sliced(level)).toString()));
        } else if (trimmed == QLatin1StringView("---") || trimmed == QLatin1StringView("***")) {
            flush();
            result.append(Block::rule());
        } else if (trimmed.startsWith(QLatin1StringView("> "))) {
            flush();
            result.append(Block::quote(trimmed.sliced(2).toString()));
        } else if (const QRegularExpressionMatch match = bulletPattern().match(trimmed); match.hasMatch()) {
            flush();
            const QString first = match.captured(1);
            const QString marker = first.front().isDigit() ? first : QStringLiteral("•");
            result.append(Block::bullet(match.captured(2), leadingSpaces(line) / 2, marker));
        } else {
            paragraph.append(trimmed.toString());
        }
    }
    if (fence) {
        // An unterminated fence keeps what it collected rather than swallowing the plan's end.
        result.append(Block::code(fence->join(QLatin1Char('\n'))));
    }
    flush();
    return result;
}

namespace {

// Emphasis closers look this far down the stack of openers; deeper ones stay literal. It keeps a
// text of many unmatched markers linear instead of quadratic.
constexpr qsizetype closerReach = 64;

const QString codeColor = QStringLiteral("#f0b27a");

// Builds StyledText. StyledText folds runs of white space and drops leading blanks, so every blank
// after the first of a run becomes a non-breaking space; NUL would end its parse early.
class Writer {
public:
    void text(QChar c) {
        switch (c.unicode()) {
        case '<':
            put(QStringLiteral("&lt;"));
            break;
        case '>':
            put(QStringLiteral("&gt;"));
            break;
        case '&':
            put(QStringLiteral("&amp;"));
            break;
        case '"':
            put(QStringLiteral("&quot;"));
            break;
        case ' ':
            out_ += afterBlank_ ? QStringLiteral("&nbsp;") : QStringLiteral(" ");
            afterBlank_ = true;
            break;
        case '\t':
            out_ += QStringLiteral("&nbsp;&nbsp;&nbsp;&nbsp;");
            afterBlank_ = true;
            break;
        case '\n':
            out_ += QStringLiteral("<br>");
            afterBlank_ = true;
            break;
        case '\r':
            break;
        case 0:
            put(QChar(QChar::ReplacementCharacter));
            break;
        default:
            put(c);
        }
    }
    void text(QStringView s) {
        for (QChar c : s) {
            text(c);
        }
    }
    void markup(const QString& tag) { out_ += tag; }
    // Starts a piece that can later be swapped for a tag: an emphasis marker that may find its partner.
    qsizetype beginPiece() {
        pieces_.push_back(std::move(out_));
        out_.clear();
        return static_cast<qsizetype>(pieces_.size());
    }
    void replacePiece(qsizetype index, const QString& with) {
        // The piece at `index` starts with the literal marker; a closed pair turns it into a tag.
        QString& piece = index < static_cast<qsizetype>(pieces_.size()) ? pieces_[index] : out_;
        piece.replace(0, markerLength_[index], with);
    }
    void marker(qsizetype index, QStringView literal) {
        markerLength_.resize(std::max<size_t>(markerLength_.size(), index + 1));
        markerLength_[index] = literal.size();
        out_ += literal;
        afterBlank_ = false;
    }
    QString result() {
        QString all;
        for (const QString& piece : pieces_) {
            all += piece;
        }
        return all + out_;
    }

private:
    template <typename T> void put(const T& value) {
        out_ += value;
        afterBlank_ = false;
    }

    QString out_;
    std::vector<QString> pieces_;
    std::vector<qsizetype> markerLength_;
    bool afterBlank_ = true;
};

// The next occurrence of one character at or after a position. Positions asked for only grow, so
// one answer serves every later question until it is passed: a text full of "[" stays linear.
class NextIndex {
public:
    explicit NextIndex(QChar c) : c_(c) {}
    qsizetype from(const QString& text, qsizetype position) {
        if (known_ == -1 || (known_ >= position && searched_ <= position)) {
            return known_;
        }
        searched_ = position;
        known_ = text.indexOf(c_, position);
        return known_;
    }

private:
    QChar c_;
    qsizetype known_ = -2;
    qsizetype searched_ = 0;
};

bool isAsciiPunctuation(QChar c) {
    const char16_t u = c.unicode();
    return u < 128 && (c.isPunct() || c.isSymbol());
}

qsizetype runLength(const QString& text, qsizetype at) {
    qsizetype end = at;
    while (end < text.size() && text[end] == text[at]) {
        ++end;
    }
    return end - at;
}

// Where the code span opened by `length` backticks at `from` closes, if it does. Lengths that found
// no closer are remembered, since a later opener of that length cannot find one either.
std::optional<qsizetype> codeSpanEnd(const QString& text, qsizetype from, qsizetype length,
                                     QSet<qsizetype>& unclosed) {
    if (unclosed.contains(length)) {
        return std::nullopt;
    }
    qsizetype at = text.indexOf(QLatin1Char('`'), from);
    while (at >= 0) {
        const qsizetype run = runLength(text, at);
        if (run == length) {
            return at;
        }
        at = text.indexOf(QLatin1Char('`'), at + run);
    }
    unclosed.insert(length);
    return std::nullopt;
}

struct Opener {
    QChar marker;
    qsizetype length;
    qsizetype piece;
};

} // namespace

QString escapeHtml(QStringView text) {
    Writer writer;
    writer.text(text);
    return writer.result();
}

QString inlineHtml(const QString& text) {
    Writer writer;
    std::vector<Opener> openers;
    QSet<qsizetype> unclosedCode;
    NextIndex nextOpenBracket(QLatin1Char('['));
    NextIndex nextCloseBracket(QLatin1Char(']'));
    NextIndex nextCloseParen(QLatin1Char(')'));
    const qsizetype size = text.size();

    qsizetype i = 0;
    while (i < size) {
        const QChar c = text[i];
        if (c == QLatin1Char('\\') && i + 1 < size && isAsciiPunctuation(text[i + 1])) {
            writer.text(text[i + 1]);
            i += 2;
        } else if (c == QLatin1Char('`')) {
            const qsizetype length = runLength(text, i);
            const std::optional<qsizetype> end = codeSpanEnd(text, i + length, length, unclosedCode);
            if (!end) {
                writer.text(QStringView(text).sliced(i, length));
                i += length;
                continue;
            }
            QString code = text.mid(i + length, *end - i - length);
            code.replace(QLatin1Char('\n'), QLatin1Char(' '));
            if (code.size() > 1 && code.startsWith(QLatin1Char(' ')) && code.endsWith(QLatin1Char(' ')) &&
                !code.trimmed().isEmpty()) {
                code = code.mid(1, code.size() - 2);
            }
            writer.markup(QStringLiteral("<font color=\"%1\">").arg(codeColor));
            writer.text(code);
            writer.markup(QStringLiteral("</font>"));
            i = *end + length;
        } else if (c == QLatin1Char('[')) {
            const qsizetype close = nextCloseBracket.from(text, i + 1);
            const qsizetype reopen = nextOpenBracket.from(text, i + 1);
            const bool plainText = close > i && (reopen < 0 || reopen > close);
            const qsizetype paren = plainText && close + 1 < size && text[close + 1] == QLatin1Char('(')
                                        ? nextCloseParen.from(text, close + 2)
                                        : -1;
            const QStringView url = paren > close
                                        ? QStringView(text).sliced(close + 2, paren - close - 2).trimmed()
                                        : QStringView();
            const bool isLink = paren > close && !url.isEmpty() &&
                                std::none_of(url.begin(), url.end(), [](QChar u) { return u.isSpace(); });
            if (!isLink) {
                writer.text(c);
                ++i;
                continue;
            }
            writer.markup(QStringLiteral("<a href=\""));
            writer.text(url);
            writer.markup(QStringLiteral("\">"));
            writer.text(QStringView(text).sliced(i + 1, close - i - 1));
            writer.markup(QStringLiteral("</a>"));
            i = paren + 1;
        } else if (c == QLatin1Char('*') || c == QLatin1Char('_')) {
            const qsizetype length = runLength(text, i);
            const QChar before = i > 0 ? text[i - 1] : QLatin1Char(' ');
            const QChar after = i + length < size ? text[i + length] : QLatin1Char(' ');
            // Underscores inside a word are part of it, as in snake_case names.
            const bool inWord = c == QLatin1Char('_');
            const bool canOpen = !after.isSpace() && !(inWord && before.isLetterOrNumber());
            const bool canClose = !before.isSpace() && !(inWord && after.isLetterOrNumber());
            const QStringView literal = QStringView(text).sliced(i, length);
            i += length;
            if (length > 2) {
                writer.text(literal);
                continue;
            }
            std::optional<size_t> match;
            if (canClose) {
                const size_t reach = std::min<size_t>(openers.size(), closerReach);
                for (size_t k = 0; k < reach; ++k) {
                    const Opener& o = openers[openers.size() - 1 - k];
                    if (o.marker == c && o.length == length) {
                        match = openers.size() - 1 - k;
                        break;
                    }
                }
            }
            if (match) {
                const QString tag = length == 2 ? QStringLiteral("b") : QStringLiteral("i");
                writer.replacePiece(openers[*match].piece, QLatin1Char('<') + tag + QLatin1Char('>'));
                writer.markup(QStringLiteral("</") + tag + QLatin1Char('>'));
                // Openers above the match never found a partner inside it and stay literal.
                openers.resize(*match);
            } else if (canOpen) {
                const qsizetype piece = writer.beginPiece();
                writer.marker(piece, literal);
                openers.push_back({c, length, piece});
            } else {
                writer.text(literal);
            }
        } else {
            writer.text(c);
            ++i;
        }
    }
    return writer.result();
}

} // namespace mirrowisp::MarkdownView
