#include "island/MarkdownView.h"

#include "island/MarkdownModel.h"
#include "support/TestSupport.h"

#include <QSignalSpy>
#include <gtest/gtest.h>

using namespace mirrowisp;
using MarkdownView::Block;

namespace {

using mirrowisp::test::text;

QList<Block> parse(const char* markdown) {
    return MarkdownView::blocks(text(markdown));
}

QString html(const char* markdown) {
    return MarkdownView::inlineHtml(text(markdown));
}

} // namespace

TEST(MarkdownBlocks, EachKindOfLineMakesItsBlocks) {
    using B = Block;
    const auto t = text;
    const struct {
        const char* markdown;
        QList<Block> blocks;
    } cases[] = {
        // Paragraphs join lines; blank lines split them.
        {"", {}},
        {"\n \t\n", {}},
        {"first line\n  second line  ", {B::paragraph(t("first line second line"))}},
        {"one\n\ntwo", {B::paragraph(t("one")), B::paragraph(t("two"))}},
        // Fences keep their lines as written; an unterminated one keeps everything after it.
        {"intro\n```sh\n  # not a heading\n\n- nor a bullet\n```\nafter",
         {B::paragraph(t("intro")), B::code(t("  # not a heading\n\n- nor a bullet")),
          B::paragraph(t("after"))}},
        {"```\n```", {B::code(QString())}},
        {"text\n```\nlet x = 1\n  y", {B::paragraph(t("text")), B::code(t("let x = 1\n  y"))}},
        // Headings need no space and have no level cap.
        {"#Title", {B::heading(1, t("Title"))}},
        {"##", {B::heading(2, QString())}},
        {"  ####### \tDeep\t ", {B::heading(7, t("Deep"))}},
        {"para\n# Head\nmore", {B::paragraph(t("para")), B::heading(1, t("Head")), B::paragraph(t("more"))}},
        // Only exactly three dashes or stars make a rule.
        {"---", {B::rule()}},
        {"  ***  ", {B::rule()}},
        {"----", {B::paragraph(t("----"))}},
        {"___", {B::paragraph(t("___"))}},
        // Quotes need the space and stay one block per line.
        {"> one\n> two", {B::quote(t("one")), B::quote(t("two"))}},
        {">word", {B::paragraph(t(">word"))}},
        // Bullets take indent and marker from the line; a tab ends the count of spaces.
        {"- a\n  * b\n   + c\n    - d",
         {B::bullet(t("a"), 0, t("•")), B::bullet(t("b"), 1, t("•")), B::bullet(t("c"), 1, t("•")),
          B::bullet(t("d"), 2, t("•"))}},
        {"12. twelfth", {B::bullet(t("twelfth"), 0, t("12."))}},
        {"  \t  - tabbed", {B::bullet(t("tabbed"), 1, t("•"))}},
        {"-word", {B::paragraph(t("-word"))}},
        {"1.5 litres", {B::paragraph(t("1.5 litres"))}},
        // A list item ends the paragraph before it.
        {"Steps:\n1. build\n2. test\nthen ship",
         {B::paragraph(t("Steps:")), B::bullet(t("build"), 0, t("1.")), B::bullet(t("test"), 0, t("2.")),
          B::paragraph(t("then ship"))}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(parse(c.markdown), c.blocks) << c.markdown;
    }
}

TEST(MarkdownBlocks, BlocksCompareAndHashByValue) {
    EXPECT_NE(Block::quote(text("x")), Block::paragraph(text("x")));
    EXPECT_NE(Block::heading(1, text("x")), Block::heading(2, text("x")));
    EXPECT_EQ(qHash(Block::bullet(text("x"), 1, text("•"))), qHash(Block::bullet(text("x"), 1, text("•"))));
    EXPECT_NE(qHash(Block::bullet(text("x"), 1, text("•"))), qHash(Block::bullet(text("x"), 2, text("•"))));
}

TEST(MarkdownInline, MarkupBecomesStyledTextAndTheRestIsEscapedOrShownAsTyped) {
    const std::pair<const char*, const char*> cases[] = {
        {"<script>alert('x')</script> & \"q\"",
         "&lt;script&gt;alert('x')&lt;/script&gt; &amp; &quot;q&quot;"},
        {"a  b\tc\nd", "a &nbsp;b&nbsp;&nbsp;&nbsp;&nbsp;c<br>d"},
        {" lead", "&nbsp;lead"}, // StyledText would drop a leading blank
        {"**bold** and __also__", "<b>bold</b> and <b>also</b>"},
        {"*it* _it_ **bold *both***", "<i>it</i> <i>it</i> **bold *both***"}, // three markers: no guess
        {"**bold *and* it**", "<b>bold <i>and</i> it</b>"},
        {"run `a <b> **c**` now", "run <font color=\"#f0b27a\">a &lt;b&gt; **c**</font> now"},
        {"``a ` b``", "<font color=\"#f0b27a\">a ` b</font>"},
        {"see [the docs](https://example.com/a?b=1&c=\"2\")",
         "see <a href=\"https://example.com/a?b=1&amp;c=&quot;2&quot;\">the docs</a>"},
        {"[a [b](c)", "[a <a href=\"c\">b</a>"},
        {"**unbalanced", "**unbalanced"},
        {"a ** b ** c", "a ** b ** c"},
        {"snake_case_name and 2*3*4", "snake_case_name and 2<i>3</i>4"},
        {"`open code", "`open code"},
        {"[text](no close", "[text](no close"},
        {"[text] (url)", "[text] (url)"},
        {"[text](has space)", "[text](has space)"},
        {"\\*not\\* \\[x\\] \\q", "*not* [x] \\q"},
        {"**a *b** c*", "<b>a *b</b> c*"}, // tags always nest
    };
    for (const auto& [markdown, expected] : cases) {
        EXPECT_EQ(html(markdown), text(expected)) << markdown;
    }
}

// Two megabytes of unclosed markup per case: a renderer that backtracks runs into the test's time-out.
TEST(MarkdownInline, LargeAndHostileInputRendersWhole) {
    for (const char* unit : {"**a *b _c `d [e](", "*", "[", "`", "[x](", "_a "}) {
        QString input;
        while (input.size() < 2'000'000) {
            input += text(unit);
        }
        const QString out = MarkdownView::inlineHtml(input);
        EXPECT_GE(out.size(), input.size() / 2);
        EXPECT_FALSE(MarkdownView::blocks(input).isEmpty());
    }
}

TEST(MarkdownModel, ExposesOneRowPerBlockWithItsRoles) {
    MarkdownModel model;
    QSignalSpy changed(&model, &MarkdownModel::markdownChanged);
    model.setMarkdown(text("## Plan\n  - **first**\n```\n<b>\n```\n---"));
    model.setMarkdown(text("## Plan\n  - **first**\n```\n<b>\n```\n---"));
    EXPECT_EQ(changed.count(), 1);
    ASSERT_EQ(model.rowCount(), 4);

    const QHash<int, QByteArray> roles = model.roleNames();
    auto value = [&](int row, const char* role) { return model.data(model.index(row), roles.key(role)); };
    EXPECT_EQ(value(0, "kind"), text("heading"));
    EXPECT_EQ(value(0, "level"), 2);
    EXPECT_EQ(value(1, "kind"), text("bullet"));
    EXPECT_EQ(value(1, "indent"), 1);
    EXPECT_EQ(value(1, "marker"), text("•"));
    EXPECT_EQ(value(1, "html"), text("<b>first</b>"));
    EXPECT_EQ(value(1, "text"), text("**first**"));
    EXPECT_EQ(value(2, "kind"), text("code"));
    EXPECT_EQ(value(2, "html"), text("&lt;b&gt;")) << "code is escaped, never parsed";
    EXPECT_EQ(value(3, "kind"), text("rule"));
    EXPECT_FALSE(model.data(model.index(4), roles.key("kind")).isValid());
}
