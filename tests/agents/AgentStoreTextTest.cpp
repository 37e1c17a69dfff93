#include "agents/AgentStoreText.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QTextBoundaryFinder>
#include <gtest/gtest.h>
#include <random>

using namespace mirrowisp;
using namespace Qt::StringLiterals;

// Failures show texts as text.
static void PrintTo(const QString& text, std::ostream* out) {
    *out << '"' << text.toStdString() << '"';
}

namespace {

QString qs(const char* utf8) {
    return QString::fromUtf8(utf8);
}

// An expected optional text: nullptr stands for nothing.
std::optional<QString> maybe(const char* utf8) {
    return utf8 ? std::optional<QString>(qs(utf8)) : std::nullopt;
}

QJsonObject json(const char* text) {
    return QJsonDocument::fromJson(QByteArray(text)).object();
}

const QString ellipsis = u"\u2026"_s;

// The text up to where `limit` grapheme clusters end, and the marker, if there are more of them.
QString cutWhole(const QString& text, int limit, const QString& marker) {
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    qsizetype end = 0;
    for (int i = 0; i < limit && end >= 0; ++i) {
        end = finder.toNextBoundary();
    }
    return end >= 0 && end < text.size() ? text.left(end) + marker : text;
}

// The condensing steps applied literally to the whole text: the reference that condense's shortcut
// for long texts must agree with.
QString condensedReference(const QString& text) {
    const auto pattern = [](const char* source) {
        return QRegularExpression(QString::fromUtf8(source), QRegularExpression::UseUnicodePropertiesOption);
    };
    QString result = text;
    result.remove(pattern(R"(\*\*|__|`)"));
    result.remove(pattern(R"((?m)^\s*(#{1,6}|[-*+]|\d+\.)\s+)"));
    result.replace(pattern(R"(\[([^\]]+)\]\([^)]+\))"), u"\\1"_s);
    result.replace(pattern(R"(\s+)"), u" "_s);
    return cutWhole(result.trimmed(), 400, ellipsis);
}

// Long random texts of the pieces the patterns care about, so that markers, links and white space
// fall on every side of wherever condense stops reading.
QString markdownSoup(std::mt19937& random, qsizetype length) {
    static const QStringList pieces =
        qs("word|x| |  |\n|\t|**|*|__|_|`|# |###|- |+ |12. |7|.|[|]|(|)|](|[a](b)|,|"
           "é|e\u0301|\u00a0|😀|👩‍💻|🇫🇷|\u0663")
            .split(QLatin1Char('|'));
    std::uniform_int_distribution<qsizetype> pick(0, pieces.size() - 1);
    QString text;
    while (text.size() < length) {
        text += pieces.at(pick(random));
    }
    return text;
}

} // namespace

TEST(AgentStoreTextDisplayName, ShortNamesForMcpShellsAndPatches) {
    const std::pair<const char*, const char*> cases[] = {
        {"mcp__server__tool", "tool"},
        {"mcp__github__create_issue", "issue"},
        {"mcp__", "mcp"},
        {"mcp__s__tool__", "tool"},
        {"mcp_single", "mcp_single"},
        {"shell", "Bash"},
        {"exec_command", "Bash"},
        {"local_shell", "Bash"},
        {"apply_patch", "Edit"},
        {"Shell", "Shell"},
        {"Read", "Read"},
        {"", ""},
    };
    for (const auto& [tool, shown] : cases) {
        EXPECT_EQ(AgentStoreText::displayName(qs(tool)), qs(shown)) << tool;
    }
}

TEST(AgentStoreTextCondense, MarkdownBecomesOneLine) {
    const std::pair<const char*, const char*> cases[] = {
        {"**bold** __under__ `code`", "bold under code"},
        {"# Title\n\n- one\n* two\n  + three\n12. four\n###### six", "Title one two three four six"},
        {"see [the docs](https://x.example/a) and [b](c)", "see the docs and b"},
        {"  a \t\n\n b\u00a0\u2003c  ", "a b c"},
        // Markers count only at line starts and before white space; seven hashes are no heading.
        {"a - b\n####### seven\n-x\n3.5 kg", "a - b ####### seven -x 3.5 kg"},
        {"[] (x) [a] (b) [a]() *single* _one_ ***", "[] (x) [a] (b) [a]() *single* _one_ *"},
        // In order: emphasis uncovers a list marker, links see neither, markers go before blanks do.
        {"**- item**", "item"},
        {"[**a**](u) `[b](c)`", "a b"},
        {"x\n\n   \n  - y", "x y"},
        {"", ""},
    };
    for (const auto& [text, condensed] : cases) {
        EXPECT_EQ(AgentStoreText::condense(qs(text)), qs(condensed)) << text;
    }
}

TEST(AgentStoreTextCondense, CutsAfterFourHundredCharacters) {
    const QString letters(400, QLatin1Char('a'));
    EXPECT_EQ(AgentStoreText::condense(letters), letters);
    EXPECT_EQ(AgentStoreText::condense(letters + QLatin1Char('b')), letters + ellipsis);
    EXPECT_EQ(AgentStoreText::condense(u"**"_s + letters + u"**\n\n  "_s), letters);

    // Characters are what a reader sees: emoji sequences, flags, letters with combining marks.
    for (const QString& unit : {qs("👩‍👩‍👧‍👦"), qs("🇯🇵"), u"e\u0301\u0302"_s}) {
        EXPECT_EQ(AgentStoreText::condense(unit.repeated(400)), unit.repeated(400));
        EXPECT_EQ(AgentStoreText::condense(unit.repeated(401)), unit.repeated(400) + ellipsis);
    }
    const QString family = qs("👩‍👩‍👧‍👦");
    EXPECT_EQ(AgentStoreText::condense(QString(399, QLatin1Char('a')) + family + u"z"_s),
              QString(399, QLatin1Char('a')) + family + ellipsis);
}

TEST(AgentStoreTextCondense, LongTextsMatchTheWholePass) {
    std::mt19937 random(20240611);
    for (int round = 0; round < 250; ++round) {
        const QString text = markdownSoup(random, 300 + round * 97);
        ASSERT_EQ(AgentStoreText::condense(text), condensedReference(text)) << "round " << round;
    }
    const QString filler = u"lorem ipsum dolor "_s.repeated(400);
    const QStringList farReaching = {
        u"intro ["_s + filler + u"](https://example.com) tail"_s,
        u"["_s + u"1, 2, [3, 4], "_s.repeated(800) + u"5]"_s,
        u"if [ -f x ]; then "_s + filler + u" fi"_s,
        u"["_s + filler + u"]"_s,
        u"["_s + filler,
        u"["_s + filler + u"]**(x)"_s,
        u"start "_s + u"- * "_s.repeated(3000),
        u"\n"_s.repeated(5000) + u"- item "_s + filler,
        u"`"_s.repeated(3000) + filler,
        u"1, "_s.repeated(4000),
    };
    for (const QString& text : farReaching) {
        EXPECT_EQ(AgentStoreText::condense(text), condensedReference(text)) << text.left(40).toStdString();
    }
}

TEST(AgentStoreTextCondense, MarkupEndingALongTextLeavesNoEllipsis) {
    // Four hundred letters, then only markup, moved across where a long text might be read in part.
    const QString letters(400, QLatin1Char('a'));
    for (const char* tail :
         {"**", "__", "`", "\n- ", "\n+ ", "\n* ", "\n# ", "\n12. ", "\n\n  - **[x](y)**"}) {
        const QString expected =
            QString::fromLatin1(tail).contains(QLatin1Char('x')) ? letters + ellipsis : letters;
        for (int pad = 380; pad < 420; ++pad) {
            const QString text = letters + QString(pad, QLatin1Char(' ')) + QString::fromLatin1(tail);
            ASSERT_EQ(AgentStoreText::condense(text), expected) << tail << " after " << pad;
        }
    }
}

TEST(AgentStoreTextCondense, LoneSurrogatesBecomeReplacementCharacters) {
    const QString broken = u"a "_s + QChar(0xd800) + u"  **b** "_s + QChar(0xdc00);
    EXPECT_EQ(AgentStoreText::condense(broken), u"a \ufffd b \ufffd"_s);
    const QString condensed = AgentStoreText::condense(QChar(0xd83d) + u" word"_s.repeated(300));
    EXPECT_EQ(condensed, (u"\ufffd"_s + u" word"_s.repeated(80)).left(400) + ellipsis);
}

TEST(AgentStoreTextPromptPreview, TypedTextSlashCommandsAndPastes) {
    const std::pair<const char*, const char*> cases[] = {
        {"<command-name>clear</command-name>", "/clear"},
        {"<command-name>/clear</command-name>", "/clear"},
        {"<command-message>clear</command-message>\n<command-name>/clear</command-name>\n"
         "<command-args>x y</command-args>",
         "/clear x y"},
        {"<command-name>\n review \n</command-name><command-args>  \n </command-args>", "/review"},
        {"<pasted_content id=\"1\">a\nb</pasted_content> explain", "[Pasted text] explain"},
        {"look <pasted_content>x</pasted_content>and<pasted_content>y</pasted_content> here",
         "look [Pasted text] and [Pasted text] here"},
        {"see <pasted_content lines=9>never closed\n**", "see [Pasted text]"},
        {"## Fix\n- the **bug** in `main`", "Fix the bug in main"},
        {"<Upper>case", "<Upper>case"},
        {"<a", "<a"},
        {"text <tag>later", "text <tag>later"},
        // Machine-made text in a tag, and nothing at all, give nothing.
        {"<system-reminder>be brief</system-reminder>", nullptr},
        {"  <user_prompt_hook>\nx", nullptr},
        {"<br>", nullptr},
        {"<pasted_contents>x</pasted_contents>", nullptr},
        {" \n\t ", nullptr},
        {"**``**", nullptr},
    };
    for (const auto& [prompt, preview] : cases) {
        EXPECT_EQ(AgentStoreText::promptPreview(qs(prompt)), maybe(preview)) << prompt;
    }
    EXPECT_EQ(AgentStoreText::promptPreview(u"please "_s.repeated(100)),
              u"please "_s.repeated(58).left(400) + ellipsis);
}

TEST(AgentStoreTextSummary, ByToolAndInput) {
    struct Case {
        const char* tool;
        const char* input;
        const char* summary;
    };
    const Case cases[] = {
        {"Bash", R"({"command":"git   status\n--short"})", "git status --short"},
        {"exec_command", R"({"command":["bash","-lc","ls -la"]})", "bash -lc ls -la"},
        {"local_shell", R"({"cmd":"make test"})", "make test"},
        {"shell", R"({"command":["ls",1],"cmd":"pwd"})", "pwd"}, // not all strings: no argument vector
        {"shell", R"({"command":["ls",null]})", nullptr},
        {"Bash", R"({"command":42,"cmd":{"a":"b"}})", nullptr},
        {"Bash", R"({"command":[]})", ""},
        {"Read", R"({"file_path":"/home/u/src/main.cpp"})", "main.cpp"},
        {"NotebookEdit", R"({"file_path":"dir/sub//"})", "sub"},
        {"Write", R"({"file_path":"/"})", "/"},
        {"Write", R"({"file_path":"///"})", "/"},
        {"Read", R"({"file_path":"c.txt"})", "c.txt"},
        {"Read", R"({"file_path":""})", ""},
        {"Edit", R"({"file_path":7,"path":"x"})", nullptr},
        {"Grep", R"({"pattern":"fn\\s+main","path":"src"})", "fn\\s+main"},
        {"Glob", R"({"pattern":"**/*.cpp"})", "/*.cpp"},
        {"Glob", R"({"query":"q"})", nullptr},
        {"WebFetch", R"({"url":"https://qt.io/x","prompt":"p"})", "https://qt.io/x"},
        {"WebSearch", R"({"query":"qt  6.4"})", "qt 6.4"},
        {"Task", R"({"description":"Find uses","prompt":"p"})", "Find uses"},
        {"Agent", R"({"description":false,"prompt":"p"})", nullptr},
        {"apply_patch",
         R"({"input":"*** Begin Patch\n*** Update File: src/app/main.cpp\n@@\n-a\n*** Add File:  docs/new.md \r\n)"
         R"(+hi\n*** Delete File: /tmp/old.txt\n*** End Patch"})",
         "main.cpp, new.md, old.txt"},
        {"apply_patch", R"({"input":5,"patch":"*** Add File: a/b.txt\n"})", "b.txt"},
        {"apply_patch", R"({"input":"*** Update File: x.c","patch":"*** Add File: y.c"})", "x.c"},
        {"apply_patch", R"({"input":" *** Update File: x.c\n*** Move to: y.c"})", nullptr},
        // Any other tool: the first string in key order. The raw name decides, so an MCP Read is "other".
        {"mcp__db__query", R"({"a":5,"b":"**second** key","c":"third","0":null})", "second key"},
        {"mcp__fs__Read", R"({"file_path":"/a/b.txt"})", "/a/b.txt"},
        {"TodoWrite", R"({"todos":[{"content":"x"}]})", nullptr},
        {"Unknown", "{}", nullptr},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(AgentStoreText::summary(qs(c.tool), json(c.input)), maybe(c.summary)) << c.tool << c.input;
    }
    const QString command = u"echo "_s + QString(70000, QLatin1Char('x'));
    EXPECT_EQ(AgentStoreText::summary(u"Bash"_s, {{u"command"_s, command}}), command.left(400) + ellipsis);
}

TEST(AgentStoreTextDetail, ByToolAndInput) {
    QStringList lines;
    for (int i = 0; i < 50; ++i) {
        lines << u"l%1"_s.arg(i);
    }
    const auto first = [&](int count) { return lines.mid(0, count).join(QLatin1Char('\n')); };
    const QString all = first(50);
    const auto detail = [](const char* tool, const QJsonObject& input) {
        return AgentStoreText::detail(qs(tool), input);
    };

    // A diff wins whatever the tool; an empty one doesn't count. Thirty lines and a final line feed
    // leave out the empty thirty-first.
    for (const char* tool : {"Edit", "Bash", "mcp__x__y"}) {
        EXPECT_EQ(detail(tool, {{u"diff"_s, all}, {u"command"_s, u"ls"_s}}), first(30));
    }
    EXPECT_EQ(detail("Write", {{u"diff"_s, first(30) + QLatin1Char('\n')}}), first(30));
    EXPECT_EQ(detail("Bash", json(R"({"diff":"","command":"ls"})")), u"ls"_s);

    const QString script = u"cat <<'EOF'\n**not bold**\n\n"_s + QString(2000, QLatin1Char('y'));
    EXPECT_EQ(detail("Bash", {{u"command"_s, script}}), script);
    EXPECT_EQ(detail("exec_command", json(R"({"command":["git","log","-1"]})")), u"git log -1"_s);
    EXPECT_EQ(detail("shell", json(R"({"command":3})")), std::nullopt);

    EXPECT_EQ(detail("Edit", json(R"({"old_string":"a\n\nb","new_string":"c"})")), u"- a\n- \n- b\n+ c"_s);
    EXPECT_EQ(detail("Edit", json(R"({"old_string":1,"new_string":"x\n"})")), u"- \n+ x\n+ "_s);
    QStringList twelveEach;
    for (const char* marker : {"- ", "+ "}) {
        for (int i = 0; i < 12; ++i) {
            twelveEach << QString::fromLatin1(marker) + lines.at(i);
        }
    }
    EXPECT_EQ(detail("Edit", {{u"old_string"_s, all}, {u"new_string"_s, all}}),
              twelveEach.join(QLatin1Char('\n')));

    EXPECT_EQ(detail("Write", {{u"content"_s, all}}), first(20));
    EXPECT_EQ(detail("Write", json(R"({"file_path":"a"})")), QString());
    EXPECT_EQ(detail("apply_patch", {{u"patch"_s, all}}), first(30));
    EXPECT_EQ(detail("apply_patch", json(R"({"input":"a\n\nb","patch":"no"})")), u"a\n\nb"_s);

    EXPECT_EQ(
        detail("MultiEdit", json(R"({"z":[1,"two"],"a":{"k":null},"m":"é/x"})")),
        qs("{\n    \"a\": {\n        \"k\": null\n    },\n    \"m\": \"é/x\",\n    \"z\": [\n        1,\n"
           "        \"two\"\n    ]\n}"));
}

TEST(AgentStoreTextDetail, JsonIsCutAfterTwelveHundredCharacters) {
    // {"k":"…"} prints as twelve characters, the value, and three more.
    const auto printed = [](const QString& value) { return u"{\n    \"k\": \""_s + value + u"\"\n}"_s; };
    const auto detail = [](const QString& value) {
        return AgentStoreText::detail(u"X"_s, {{u"k"_s, value}});
    };
    const QString fits(1200 - 15, QLatin1Char('v'));
    EXPECT_EQ(detail(fits), printed(fits));
    const QString over = fits + QLatin1Char('w');
    EXPECT_EQ(detail(over), printed(over).left(1200) + u"\n\u2026"_s);
    const QString marked = u"a\u0301"_s.repeated(1200 - 15);
    EXPECT_EQ(detail(marked), printed(marked));
}

TEST(AgentStoreTextDetail, LargeInputsCutLikeTheirWholeText) {
    QJsonArray numbers;
    QJsonObject manyKeys;
    QJsonArray nested;
    for (int i = 0; i < 20000; ++i) {
        numbers.append(i);
        manyKeys.insert(u"key%1"_s.arg(i, 5, 10, QLatin1Char('0')), i % 3 ? QJsonValue(i) : QJsonValue());
        if (i < 300) {
            nested.append(QJsonArray{QString(i * 7, QLatin1Char('n')), QJsonObject{{u"deep"_s, i}}});
        }
    }
    QList<QJsonObject> inputs = {
        {{u"content"_s, QString(1 << 20, QLatin1Char('c'))}, {u"path"_s, u"/a"_s}},
        {{u"a"_s, u"x\n\"y\"\t\\"_s.repeated(50000)}},
        {{u"numbers"_s, numbers}},
        manyKeys,
        {{u"nested"_s, nested}},
        {{u"emoji"_s, qs("👩‍💻").repeated(100000)}},
        {{QString(20000, QLatin1Char('k')), 1}, {u"z"_s, QString(30000, QLatin1Char('z'))}},
    };
    // A long character just before the 1,200th: wherever a shortened copy ends inside it, the cut must
    // come out where the whole text puts it.
    for (const int marks : {500, 8000, 9000, 12000, 40000}) {
        inputs.append({{u"k"_s, QString(1185, QLatin1Char('a')) + QLatin1Char('y') +
                                    QString(marks, QChar(0x0301)) + QString(5000, QLatin1Char('b'))}});
    }
    for (const QJsonObject& input : inputs) {
        QString whole = QString::fromUtf8(QJsonDocument(input).toJson(QJsonDocument::Indented));
        whole.chop(1);
        EXPECT_EQ(AgentStoreText::detail(u"mcp__x__y"_s, input), cutWhole(whole, 1200, u"\n\u2026"_s))
            << input.keys().join(QLatin1Char(',')).left(40).toStdString();
    }
}

TEST(AgentStoreTextActivity, SentencesWithAndWithoutSummary) {
    struct Case {
        const char* tool;
        const char* with;
        const char* without;
    };
    // One tool of each kind of sentence: the sentences themselves are copy.
    const Case cases[] = {
        {"Read", "Reading main.cpp", "Reading"},
        {"Edit", "Editing main.cpp", "Editing"},
        {"Bash", "Running main.cpp", "Running a command"},
        {"Glob", "Searching for main.cpp", "Searching"},
        {"WebFetch", "Reading main.cpp", "Reading a web page"},
        {"Task", "Subagent: main.cpp", "Starting a subagent"},
        {"TodoWrite", "Updating the to-do list", "Updating the to-do list"},
        {"issue", "Using issue", "Using issue"},
        {"read", "Using read", "Using read"},
    };
    for (const Case& c : cases) {
        const QString tool = qs(c.tool);
        EXPECT_EQ(AgentStoreText::activity(tool, u"main.cpp"_s), qs(c.with)) << c.tool;
        EXPECT_EQ(AgentStoreText::activity(tool, std::nullopt), qs(c.without)) << c.tool;
        EXPECT_EQ(AgentStoreText::activity(tool, QString()), qs(c.without)) << c.tool;
    }
    const QString fetch = u"WebFetch"_s;
    EXPECT_EQ(AgentStoreText::activity(fetch, u"https://doc.qt.io/qt-6/qurl.html?x=1"_s),
              u"Reading doc.qt.io"_s);
    EXPECT_EQ(AgentStoreText::activity(fetch, u"http://user@[::1]:8080/"_s), u"Reading ::1"_s);
    EXPECT_EQ(AgentStoreText::activity(fetch, u"example.com/page"_s), u"Reading example.com/page"_s);
}

TEST(AgentStoreTextHelpers, PatchFilesAndGraphemeCuts) {
    EXPECT_EQ(AgentStoreText::patchFiles(u"*** Update File:\n"_s), QString());

    const QString cluster = u"x"_s + QString(5000, QChar(0x0301));
    const QString text = cluster.repeated(3) + u"end"_s;
    EXPECT_EQ(AgentStoreText::graphemeCut(text, 1), cluster.size());
    EXPECT_EQ(AgentStoreText::graphemeCut(text, 5), text.size() - 1);
    EXPECT_EQ(AgentStoreText::graphemeCut(text, 6), std::nullopt);
    EXPECT_EQ(AgentStoreText::graphemeCut(u"ab"_s, 0), 0);
    // A skin tone whose surrogate pair straddles the first place looked at still joins its emoji.
    const QString toned = (u"x"_s + QString(8, QChar(0x0301))).repeated(9) + qs("👍🏻zz");
    EXPECT_EQ(AgentStoreText::graphemeCut(toned, 10), 9 * 9 + 4);
}
