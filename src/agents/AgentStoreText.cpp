#include "agents/AgentStoreText.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QStringList>
#include <QTextBoundaryFinder>
#include <QUrl>
#include <algorithm>
#include <array>
#include <string_view>

namespace mirrowisp {

namespace {

// Compiled once, JIT included, before any thread can share it: the transcript reader condenses text
// off the main thread while hook events condense on it.
QRegularExpression compiled(const QString& pattern) {
    QRegularExpression expression(pattern, QRegularExpression::UseUnicodePropertiesOption);
    expression.optimize();
    return expression;
}

// Subjects here went through wellFormed, so the engine needn't check them again on every match:
// that check alone reads the rest of the subject each time.
constexpr QRegularExpression::MatchOptions wellFormedSubject =
    QRegularExpression::DontCheckSubjectStringMatchOption;

// JSON escapes can carry lone surrogates, which the pattern engine refuses. They become U+FFFD, as a
// decoder of well-formed text would have made them.
QString wellFormed(const QString& text) {
    // A plain scan first: almost every text has no surrogate at all, and this loop vectorises.
    const ushort* units = text.utf16();
    bool anySurrogate = false;
    for (qsizetype i = 0; i < text.size(); ++i) {
        anySurrogate |= (units[i] & 0xf800) == 0xd800;
    }
    if (!anySurrogate) {
        return text;
    }
    QString repaired = text;
    for (qsizetype i = 0; i < repaired.size(); ++i) {
        const QChar unit = repaired.at(i);
        if (unit.isHighSurrogate() && i + 1 < repaired.size() && repaired.at(i + 1).isLowSurrogate()) {
            ++i;
        } else if (unit.isSurrogate()) {
            repaired[i] = QChar::ReplacementCharacter;
        }
    }
    return repaired;
}

// Every match of `pattern` in the well-formed `text` replaced by `with`.
QString replaced(const QString& text, const QRegularExpression& pattern, QStringView with) {
    QRegularExpressionMatchIterator matches =
        pattern.globalMatch(text, 0, QRegularExpression::NormalMatch, wellFormedSubject);
    if (!matches.hasNext()) {
        return text;
    }
    QString result;
    qsizetype copied = 0;
    while (matches.hasNext()) {
        const QRegularExpressionMatch match = matches.next();
        result += QStringView(text).sliced(copied, match.capturedStart() - copied);
        result += with;
        copied = match.capturedEnd();
    }
    result += QStringView(text).sliced(copied);
    return result;
}

// condense, step by step. Steps 1 and 2: emphasis markers and backticks, then heading and list markers
// at line starts.
QString stripMarkup(const QString& text) {
    static const QRegularExpression emphasis = compiled(QStringLiteral(R"(\*\*|__|`)"));
    static const QRegularExpression lineMarkers =
        compiled(QStringLiteral(R"((?m)^\s*(#{1,6}|[-*+]|\d+\.)\s+)"));
    return replaced(replaced(text, emphasis, {}), lineMarkers, {});
}

// Step 3: a Markdown link keeps its text. The pass gives the linked text up to the end of the last
// link, `head`, and where in the input that link ended, `end`; the input after `end` is unchanged.
struct LinkPass {
    QString head;
    qsizetype end = 0;
};

LinkPass replaceLinks(const QString& text) {
    static const QRegularExpression link = compiled(QStringLiteral(R"(\[([^\]]+)\]\([^)]+\))"));
    LinkPass pass;
    QRegularExpressionMatchIterator matches =
        link.globalMatch(text, 0, QRegularExpression::NormalMatch, wellFormedSubject);
    while (matches.hasNext()) {
        const QRegularExpressionMatch match = matches.next();
        pass.head += QStringView(text).sliced(pass.end, match.capturedStart() - pass.end);
        pass.head += match.capturedView(1);
        pass.end = match.capturedEnd();
    }
    return pass;
}

// Steps 4 and 5: one blank for every run of white space, none at the ends.
QString collapseSpace(const QString& text) {
    static const QRegularExpression whitespace = compiled(QStringLiteral(R"(\s+)"));
    return replaced(text, whitespace, u" ").trimmed();
}

// Whether steps 1 and 2 can never match the code point: anything but white space, a decimal digit and
// the ASCII marks of emphasis, lists and headings. White space is taken broadly, past what \s holds.
bool survivesMarkup(char32_t c) {
    if (c < 0x80) {
        static constexpr auto table = [] {
            std::array<bool, 0x80> kept{};
            for (char ch = '!'; ch <= '~'; ++ch) {
                kept[static_cast<std::size_t>(ch)] = true;
            }
            for (const char ch : std::string_view("0123456789*_`#+-.")) {
                kept[static_cast<std::size_t>(ch)] = false;
            }
            return kept;
        }();
        return table[c];
    }
    if (c == 0x85 || c == 0x180e || QChar::isSurrogate(c)) {
        return false;
    }
    switch (QChar::category(c)) {
    case QChar::Separator_Space:
    case QChar::Separator_Line:
    case QChar::Separator_Paragraph:
    case QChar::Number_DecimalDigit:
        return false;
    default:
        return true;
    }
}

// The code point that ends just before `end`, or 0 (which no step keeps) at the start.
char32_t codePointBefore(const QString& text, qsizetype end) {
    if (end <= 0) {
        return 0;
    }
    const QChar last = text.at(end - 1);
    if (last.isLowSurrogate() && end >= 2 && text.at(end - 2).isHighSurrogate()) {
        return QChar::surrogateToUcs4(text.at(end - 2), last);
    }
    return last.unicode();
}

// The code point that starts at `start`, or 0 at the end or inside a pair.
char32_t codePointAt(const QString& text, qsizetype start) {
    if (start >= text.size() || text.at(start).isLowSurrogate()) {
        return 0;
    }
    const QChar first = text.at(start);
    if (first.isHighSurrogate() && start + 1 < text.size() && text.at(start + 1).isLowSurrogate()) {
        return QChar::surrogateToUcs4(first, text.at(start + 1));
    }
    return first.unicode();
}

// Proves, from the raw text alone, that the '[' at `open` starts no link: the link pattern needs a
// first ']' after it, not right next to it, followed directly by '('. Steps 1 and 2 never add or
// remove brackets, so a raw ']' followed by a character they keep decides it. `close` caches the
// ']' found last, so increasing `open`s scan the text once.
bool opensNoLink(const QString& raw, qsizetype open, qsizetype& close) {
    if (open + 1 < raw.size() && raw.at(open + 1) == QLatin1Char(']')) {
        return true;
    }
    if (close <= open) {
        close = raw.indexOf(QLatin1Char(']'), open + 1);
        if (close < 0) {
            close = raw.size();
        }
    }
    if (close + 1 >= raw.size()) {
        return true; // no ']' at all, or nothing after it
    }
    const char32_t next = codePointAt(raw, close + 1);
    return next != U'(' && survivesMarkup(next);
}

// The first place at or after `from` next to a character that steps 1 and 2 can never match, or -1.
// No match of theirs can reach across such a character, so they treat the text before it alike
// whatever comes after. It never falls inside a surrogate pair.
qsizetype quietSplit(const QString& text, qsizetype from) {
    for (qsizetype i = std::max<qsizetype>(from, 1); i < text.size(); ++i) {
        if (survivesMarkup(codePointAt(text, i)) || survivesMarkup(codePointBefore(text, i))) {
            return i;
        }
    }
    return -1;
}

// Only the first condensedLimit characters of condense's result are kept, yet the patterns run over
// everything, and each match costs allocations: far too slow for a long command on the main thread.
// So condense a prefix instead, where the prefix provably decides the result.
//
// The prefix ends next to a character that no pattern of steps 1 and 2 can match, so those steps give
// the same text up to there whatever follows. Step 3 looks arbitrarily far ahead, so the prefix's
// text counts only up to the first '[' after its last link that might still open a link past the
// prefix. Steps 4 and 5 of a prefix give a prefix of the result. If that settled text already holds
// more than the limit, with a real boundary inside it, it decides the result; otherwise the prefix
// grows, and a text without a usable end falls back to the whole pass.
std::optional<QString> condensedFromPrefix(const QString& text) {
    for (qsizetype window = 2 * AgentStoreText::condensedLimit; window < text.size(); window *= 4) {
        window = quietSplit(text, window);
        if (window < 0) {
            return std::nullopt;
        }
        const QString marked = stripMarkup(wellFormed(text.first(window)));
        const LinkPass links = replaceLinks(marked);

        // The k-th '[' of the marked prefix is the k-th '[' of the raw text.
        qsizetype settled = marked.size();
        qsizetype rawOpen = -1;
        qsizetype close = -1;
        for (qsizetype open = marked.indexOf(QLatin1Char('[')); open >= 0;
             open = marked.indexOf(QLatin1Char('['), open + 1)) {
            rawOpen = text.indexOf(QLatin1Char('['), rawOpen + 1);
            if (open >= links.end && !opensNoLink(text, rawOpen, close)) {
                settled = open;
                break;
            }
        }
        QString linked = links.head;
        linked += QStringView(marked).sliced(links.end, settled - links.end);
        const QString collapsed = collapseSpace(linked);
        if (const auto cut = AgentStoreText::graphemeCut(collapsed, AgentStoreText::condensedLimit)) {
            return collapsed.first(*cut) + QChar(0x2026);
        }
    }
    return std::nullopt;
}

std::optional<QString> stringValue(const QJsonObject& object, QLatin1StringView key) {
    const QJsonValue value = object.value(key);
    if (!value.isString()) {
        return std::nullopt;
    }
    return value.toString();
}

bool isShell(const QString& tool) {
    return tool == QLatin1StringView("Bash") || tool == QLatin1StringView("shell") ||
           tool == QLatin1StringView("exec_command") || tool == QLatin1StringView("local_shell");
}

bool isOneOf(const QString& tool, std::initializer_list<QLatin1StringView> names) {
    return std::any_of(names.begin(), names.end(), [&](QLatin1StringView name) { return tool == name; });
}

// Shell tools send the command as an argument vector or as one string, under one of two keys.
std::optional<QString> commandText(const QJsonObject& input) {
    const QJsonValue command = input.value(QLatin1StringView("command"));
    if (command.isArray()) {
        const QJsonArray parts = command.toArray();
        QStringList words;
        words.reserve(parts.size());
        bool allStrings = true;
        for (const QJsonValue& part : parts) {
            if (!part.isString()) {
                allStrings = false;
                break;
            }
            words.append(part.toString());
        }
        if (allStrings) {
            return words.join(QLatin1Char(' '));
        }
    }
    if (command.isString()) {
        return command.toString();
    }
    return stringValue(input, QLatin1StringView("cmd"));
}

QString patchText(const QJsonObject& input) {
    if (auto text = stringValue(input, QLatin1StringView("input"))) {
        return *text;
    }
    return stringValue(input, QLatin1StringView("patch")).value_or(QString());
}

// The first `count` lines of a text joined with newlines, which is the text up to its count-th line
// feed: found by scanning, so a long text isn't split into a list first.
QString firstLines(const QString& text, int count) {
    qsizetype end = -1;
    for (int line = 0; line < count; ++line) {
        end = text.indexOf(QLatin1Char('\n'), end + 1);
        if (end < 0) {
            return text;
        }
    }
    return text.left(end);
}

// Up to `count` lines of a text, each with a marker in front; an empty text is one empty line.
void appendMarkedLines(QStringList& out, const QString& text, int count, QLatin1StringView marker) {
    qsizetype start = 0;
    for (int line = 0; line < count; ++line) {
        const qsizetype end = text.indexOf(QLatin1Char('\n'), start);
        QString marked = marker;
        marked += QStringView(text).sliced(start, (end < 0 ? text.size() : end) - start);
        out.append(marked);
        if (end < 0) {
            return;
        }
        start = end + 1;
    }
}

// A copy of a JSON value cut down to what the first `budget` characters of its indented text can show.
// Every character the copy keeps before a cut stands for at least one character of the text, so the
// copy's text equals the whole value's text for at least `budget - 1` characters. Keys aren't cut:
// that could change their order.
class JsonShrinker {
public:
    explicit JsonShrinker(qsizetype budget) : remaining_(budget) {}

    bool cutSomething() const { return cut_; }
    bool keyTooLong() const { return keyTooLong_; }

    QJsonObject shrink(const QJsonObject& object) {
        QJsonObject out;
        for (auto it = object.constBegin(); it != object.constEnd(); ++it) {
            if (!takeOne()) {
                break;
            }
            if (it.key().size() > remaining_) {
                keyTooLong_ = true;
                break;
            }
            remaining_ -= it.key().size();
            out.insert(it.key(), shrink(it.value()));
        }
        return out;
    }

private:
    QJsonValue shrink(const QJsonValue& value) {
        if (value.isObject()) {
            return shrink(value.toObject());
        }
        if (value.isArray()) {
            QJsonArray out;
            for (const QJsonValue& element : value.toArray()) {
                if (!takeOne()) {
                    break;
                }
                out.append(shrink(element));
            }
            return out;
        }
        if (value.isString()) {
            const QString text = value.toString();
            if (text.size() <= remaining_) {
                remaining_ -= text.size();
                return value;
            }
            qsizetype keep = remaining_;
            if (keep > 0 && text.at(keep - 1).isHighSurrogate()) {
                --keep; // a lone surrogate would write differently from the pair
            }
            remaining_ = 0;
            cut_ = true;
            return text.first(keep);
        }
        return value;
    }

    // Accounts for the first character of one more member; false once the budget is spent, and the
    // rest of the members is left out.
    bool takeOne() {
        if (remaining_ == 0) {
            cut_ = true;
            return false;
        }
        --remaining_;
        return true;
    }

    qsizetype remaining_;
    bool cut_ = false;
    bool keyTooLong_ = false;
};

QString indentedJson(const QJsonObject& object) {
    // Indented output sorts the keys; its closing line feed would only add an empty line to the card.
    QString json = QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Indented));
    if (json.endsWith(QLatin1Char('\n'))) {
        json.chop(1);
    }
    return json;
}

std::optional<QString> jsonDetail(const QJsonObject& input) {
    const auto cutDetail = [](QString json) {
        if (const auto cut = AgentStoreText::graphemeCut(json, AgentStoreText::detailLimit)) {
            json.truncate(*cut);
            json.append(QStringLiteral("\n\u2026"));
        }
        return json;
    };
    // Serialising a large input in full costs milliseconds on the main thread, for 1,200 characters.
    // A cut-down copy serves whenever its cut lies where its text still equals the whole text's.
    constexpr qsizetype budget = 8 * AgentStoreText::detailLimit;
    JsonShrinker shrinker(budget);
    const QJsonObject small = shrinker.shrink(input);
    if (!shrinker.keyTooLong()) {
        const QString json = indentedJson(small);
        if (!shrinker.cutSomething()) {
            return cutDetail(json);
        }
        if (const auto cut = AgentStoreText::graphemeCut(json, AgentStoreText::detailLimit);
            cut && *cut + 2 < budget) {
            return json.first(*cut) + QStringLiteral("\n\u2026");
        }
    }
    return cutDetail(indentedJson(input));
}

} // namespace

QString AgentStoreText::displayName(const QString& tool) {
    if (tool.startsWith(QLatin1StringView("mcp__"))) {
        // Every underscore splits, so a tool called create_issue shows as "issue": short beats exact
        // on a one-line island. The prefix itself is a piece, so there always is a last one.
        qsizetype stop = tool.size();
        while (tool.at(stop - 1) == QLatin1Char('_')) {
            --stop;
        }
        const qsizetype start = tool.lastIndexOf(QLatin1Char('_'), stop - 1) + 1;
        return tool.sliced(start, stop - start);
    }
    if (tool == QLatin1StringView("shell") || tool == QLatin1StringView("exec_command") ||
        tool == QLatin1StringView("local_shell")) {
        return QStringLiteral("Bash");
    }
    if (tool == QLatin1StringView("apply_patch")) {
        return QStringLiteral("Edit");
    }
    return tool;
}

std::optional<QString> AgentStoreText::summary(const QString& tool, const QJsonObject& input) {
    std::optional<QString> text;
    if (isShell(tool)) {
        text = commandText(input);
    } else if (isOneOf(tool,
                       {QLatin1StringView("Read"), QLatin1StringView("Edit"), QLatin1StringView("Write"),
                        QLatin1StringView("MultiEdit"), QLatin1StringView("NotebookEdit")})) {
        if (const auto path = stringValue(input, QLatin1StringView("file_path"))) {
            text = lastPathComponent(*path);
        }
    } else if (tool == QLatin1StringView("Glob") || tool == QLatin1StringView("Grep")) {
        text = stringValue(input, QLatin1StringView("pattern"));
    } else if (tool == QLatin1StringView("WebFetch")) {
        text = stringValue(input, QLatin1StringView("url"));
    } else if (tool == QLatin1StringView("WebSearch")) {
        text = stringValue(input, QLatin1StringView("query"));
    } else if (tool == QLatin1StringView("Task") || tool == QLatin1StringView("Agent")) {
        text = stringValue(input, QLatin1StringView("description"));
    } else if (tool == QLatin1StringView("apply_patch")) {
        text = patchFiles(patchText(input));
    } else {
        // Keys come in sorted order; which string wins matters less than showing one at all.
        for (auto it = input.constBegin(); it != input.constEnd(); ++it) {
            if (it.value().isString()) {
                text = it.value().toString();
                break;
            }
        }
    }
    if (!text) {
        return std::nullopt;
    }
    return condense(*text);
}

std::optional<QString> AgentStoreText::detail(const QString& tool, const QJsonObject& input) {
    if (const auto diff = stringValue(input, QLatin1StringView("diff")); diff && !diff->isEmpty()) {
        return firstLines(*diff, 30);
    }
    if (isShell(tool)) {
        return commandText(input);
    }
    if (tool == QLatin1StringView("Edit")) {
        QStringList lines;
        appendMarkedLines(lines, stringValue(input, QLatin1StringView("old_string")).value_or(QString()), 12,
                          QLatin1StringView("- "));
        appendMarkedLines(lines, stringValue(input, QLatin1StringView("new_string")).value_or(QString()), 12,
                          QLatin1StringView("+ "));
        return lines.join(QLatin1Char('\n'));
    }
    if (tool == QLatin1StringView("Write")) {
        return firstLines(stringValue(input, QLatin1StringView("content")).value_or(QString()), 20);
    }
    if (tool == QLatin1StringView("apply_patch")) {
        return firstLines(patchText(input), 30);
    }
    return jsonDetail(input);
}

QString AgentStoreText::activity(const QString& tool, const std::optional<QString>& summary) {
    struct Phrase {
        QLatin1StringView tool, lead, without; // no lead: the same sentence either way
    };
    static constexpr Phrase phrases[] = {
        {QLatin1StringView("Read"), QLatin1StringView("Reading "), QLatin1StringView("Reading")},
        {QLatin1StringView("Write"), QLatin1StringView("Writing "), QLatin1StringView("Writing")},
        {QLatin1StringView("Edit"), QLatin1StringView("Editing "), QLatin1StringView("Editing")},
        {QLatin1StringView("MultiEdit"), QLatin1StringView("Editing "), QLatin1StringView("Editing")},
        {QLatin1StringView("NotebookEdit"), QLatin1StringView("Editing "), QLatin1StringView("Editing")},
        {QLatin1StringView("Bash"), QLatin1StringView("Running "), QLatin1StringView("Running a command")},
        {QLatin1StringView("Glob"), QLatin1StringView("Searching for "), QLatin1StringView("Searching")},
        {QLatin1StringView("Grep"), QLatin1StringView("Searching for "), QLatin1StringView("Searching")},
        {QLatin1StringView("WebSearch"), QLatin1StringView("Searching the web for "),
         QLatin1StringView("Searching the web")},
        {QLatin1StringView("Task"), QLatin1StringView("Subagent: "),
         QLatin1StringView("Starting a subagent")},
        {QLatin1StringView("Agent"), QLatin1StringView("Subagent: "),
         QLatin1StringView("Starting a subagent")},
        {QLatin1StringView("TodoWrite"), {}, QLatin1StringView("Updating the to-do list")},
        {QLatin1StringView("AskUserQuestion"), {}, QLatin1StringView("Asking you a question")},
        {QLatin1StringView("ExitPlanMode"), {}, QLatin1StringView("Finishing the plan")},
    };
    // An empty summary reads like none: "Reading " with nothing after it says less than "Reading".
    const bool has = summary.has_value() && !summary->isEmpty();
    if (tool == QLatin1StringView("WebFetch")) {
        if (!has) {
            return QStringLiteral("Reading a web page");
        }
        const QString host = QUrl(*summary).host();
        return QStringLiteral("Reading ") + (host.isEmpty() ? *summary : host);
    }
    for (const Phrase& phrase : phrases) {
        if (tool == phrase.tool) {
            return has && !phrase.lead.isEmpty() ? phrase.lead + *summary : QString(phrase.without);
        }
    }
    return QStringLiteral("Using ") + tool;
}

std::optional<QString> AgentStoreText::promptPreview(const QString& prompt) {
    static const QRegularExpression commandName =
        compiled(QStringLiteral(R"((?s)<command-name>\s*(.*?)\s*</command-name>)"));
    static const QRegularExpression commandArgs =
        compiled(QStringLiteral(R"((?s)<command-args>\s*(.*?)\s*</command-args>)"));
    static const QRegularExpression paste =
        compiled(QStringLiteral(R"((?s)<pasted_content\b[^>]*>.*?</pasted_content>)"));
    static const QRegularExpression unterminatedPaste =
        compiled(QStringLiteral(R"((?s)<pasted_content\b[^>]*>.*$)"));
    static const QRegularExpression taggedText = compiled(QStringLiteral(R"(^<[a-z][a-z0-9_-]*[\s>])"));

    const QString subject = wellFormed(prompt);
    // A slash command arrives wrapped in tags; show it as the user typed it.
    const QRegularExpressionMatch name =
        commandName.match(subject, 0, QRegularExpression::NormalMatch, wellFormedSubject);
    if (name.hasMatch()) {
        QString command = name.captured(1);
        if (!command.startsWith(QLatin1Char('/'))) {
            command.prepend(QLatin1Char('/'));
        }
        const QString arguments =
            commandArgs.match(subject, 0, QRegularExpression::NormalMatch, wellFormedSubject).captured(1);
        if (!arguments.isEmpty()) {
            command += QLatin1Char(' ') + arguments;
        }
        return condense(command);
    }

    const QString text = condense(
        replaced(replaced(subject, paste, u" [Pasted text] "), unterminatedPaste, u" [Pasted text] "));
    // Reminders and hook output come as text in a tag: nothing the user typed.
    if (text.isEmpty() || taggedText.match(text).hasMatch()) {
        return std::nullopt;
    }
    return text;
}

QString AgentStoreText::condense(const QString& text) {
    if (auto fromPrefix = condensedFromPrefix(text)) {
        return *fromPrefix;
    }
    const QString marked = stripMarkup(wellFormed(text));
    const LinkPass links = replaceLinks(marked);
    QString linked = links.head;
    linked += QStringView(marked).sliced(links.end);
    QString result = collapseSpace(linked);
    if (const auto cut = graphemeCut(result, condensedLimit)) {
        result.truncate(*cut);
        result.append(QChar(0x2026));
    }
    return result;
}

std::optional<QString> AgentStoreText::patchFiles(const QString& patch) {
    static constexpr QLatin1StringView headers[] = {QLatin1StringView("*** Update File:"),
                                                    QLatin1StringView("*** Add File:"),
                                                    QLatin1StringView("*** Delete File:")};
    QStringList files;
    qsizetype start = 0;
    while (start <= patch.size()) {
        qsizetype end = patch.indexOf(QLatin1Char('\n'), start);
        if (end < 0) {
            end = patch.size();
        }
        const QStringView line = QStringView(patch).sliced(start, end - start);
        for (const QLatin1StringView header : headers) {
            if (line.startsWith(header)) {
                const QStringView path = line.sliced(line.indexOf(QLatin1Char(':')) + 1).trimmed();
                files.append(lastPathComponent(path.toString()));
                break;
            }
        }
        start = end + 1;
    }
    if (files.isEmpty()) {
        return std::nullopt;
    }
    return files.join(QLatin1StringView(", "));
}

QString AgentStoreText::lastPathComponent(const QString& path) {
    qsizetype end = path.size();
    while (end > 1 && path.at(end - 1) == QLatin1Char('/')) {
        --end;
    }
    if (end == 1 && path.at(0) == QLatin1Char('/')) {
        return QStringLiteral("/");
    }
    const qsizetype start = path.lastIndexOf(QLatin1Char('/'), end - 1) + 1;
    return path.sliced(start, end - start);
}

std::optional<qsizetype> AgentStoreText::graphemeCut(QStringView text, qsizetype limit) {
    limit = std::max<qsizetype>(limit, 0);
    // Every cluster holds at least one UTF-16 unit, so a short text is proven to fit without looking.
    if (text.size() <= limit) {
        return std::nullopt;
    }
    // The finder classifies its whole input up front. A boundary inside a prefix doesn't depend on
    // what follows the prefix, so look at a window that grows until it settles the question.
    qsizetype window = std::min(text.size(), 2 * limit + 64);
    for (;;) {
        if (window < text.size() && text.at(window - 1).isHighSurrogate()) {
            ++window; // keep pairs whole, or the window's edge would read as a lone surrogate
        }
        QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text.first(window));
        qsizetype position = 0;
        qsizetype clusters = 0;
        while (clusters < limit && (position = finder.toNextBoundary()) >= 0) {
            ++clusters;
        }
        if (clusters == limit && position < window) {
            return position; // a real boundary with text after it
        }
        if (window == text.size()) {
            return std::nullopt;
        }
        window = std::min(text.size(), window * 2);
    }
}

} // namespace mirrowisp
