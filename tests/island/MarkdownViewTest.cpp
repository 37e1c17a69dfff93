#include "island/MarkdownView.h"

#include "island/MarkdownModel.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <gtest/gtest.h>

using namespace mirrowisp;
using MarkdownView::Block;

namespace {

QString text(const char* s) {
    return QString::fromUtf8(s);
}

QList<Block> parse(const char* markdown) {
    return MarkdownView::blocks(text(markdown));
}

QString html(const char* markdown) {
    return MarkdownView::inlineHtml(text(markdown));
}

} // namespace

TEST(MarkdownBlocks, ParagraphsJoinLinesAndBlankLinesSplitThem) {
    EXPECT_TRUE(parse("").isEmpty());
    EXPECT_TRUE(parse("\n \t\n").isEmpty());
    EXPECT_EQ(parse("first line\n  second line  "),
              QList<Block>{Block::paragraph(text("first line second line"))});
    EXPECT_EQ(parse("one\n\ntwo"),
              (QList<Block>{Block::paragraph(text("one")), Block::paragraph(text("two"))}));
}

TEST(MarkdownBlocks, FencesKeepTheirLinesAsWritten) {
    EXPECT_EQ(parse("intro\n```sh\n  # not a heading\n\n- nor a bullet\n```\nafter"),
              (QList<Block>{Block::paragraph(text("intro")),
                            Block::code(text("  # not a heading\n\n- nor a bullet")),
                            Block::paragraph(text("after"))}));
    EXPECT_EQ(parse("```\n```"), QList<Block>{Block::code(QString())});
    EXPECT_EQ(parse("text\n```\nlet x = 1\n  y"),
              (QList<Block>{Block::paragraph(text("text")), Block::code(text("let x = 1\n  y"))}))
        << "an unterminated fence keeps everything after its opening line";
}

TEST(MarkdownBlocks, HeadingsNeedNoSpaceAndHaveNoLevelCap) {
    EXPECT_EQ(parse("#Title"), QList<Block>{Block::heading(1, text("Title"))});
    EXPECT_EQ(parse("##"), QList<Block>{Block::heading(2, QString())});
    EXPECT_EQ(parse("  ####### \tDeep\t "), QList<Block>{Block::heading(7, text("Deep"))});
    EXPECT_EQ(parse("para\n# Head\nmore"),
              (QList<Block>{Block::paragraph(text("para")), Block::heading(1, text("Head")),
                            Block::paragraph(text("more"))}));
}

TEST(MarkdownBlocks, OnlyExactlyThreeDashesOrStarsMakeARule) {
    EXPECT_EQ(parse("---"), QList<Block>{Block::rule()});
    EXPECT_EQ(parse("  ***  "), QList<Block>{Block::rule()});
    EXPECT_EQ(parse("----"), QList<Block>{Block::paragraph(text("----"))});
    EXPECT_EQ(parse("___"), QList<Block>{Block::paragraph(text("___"))});
}

TEST(MarkdownBlocks, QuotesNeedTheSpaceAndStayOneBlockPerLine) {
    EXPECT_EQ(parse("> one\n> two"), (QList<Block>{Block::quote(text("one")), Block::quote(text("two"))}));
    EXPECT_EQ(parse(">word"), QList<Block>{Block::paragraph(text(">word"))});
}

TEST(MarkdownBlocks, BulletsTakeIndentAndMarkerFromTheLine) {
    EXPECT_EQ(parse("- a\n  * b\n   + c\n    - d"),
              (QList<Block>{Block::bullet(text("a"), 0, text("•")), Block::bullet(text("b"), 1, text("•")),
                            Block::bullet(text("c"), 1, text("•")), Block::bullet(text("d"), 2, text("•"))}));
    EXPECT_EQ(parse("12. twelfth"), QList<Block>{Block::bullet(text("twelfth"), 0, text("12."))});
    EXPECT_EQ(parse("  \t  - tabbed"), QList<Block>{Block::bullet(text("tabbed"), 1, text("•"))})
        << "a tab ends the count of spaces";
    EXPECT_EQ(parse("-word"), QList<Block>{Block::paragraph(text("-word"))});
    EXPECT_EQ(parse("1.5 litres"), QList<Block>{Block::paragraph(text("1.5 litres"))});
}

TEST(MarkdownBlocks, AListItemEndsTheParagraphBeforeIt) {
    EXPECT_EQ(
        parse("Steps:\n1. build\n2. test\nthen ship"),
        (QList<Block>{Block::paragraph(text("Steps:")), Block::bullet(text("build"), 0, text("1.")),
                      Block::bullet(text("test"), 0, text("2.")), Block::paragraph(text("then ship"))}));
}

TEST(MarkdownBlocks, BlocksCompareAndHashByValue) {
    EXPECT_NE(Block::quote(text("x")), Block::paragraph(text("x")));
    EXPECT_NE(Block::heading(1, text("x")), Block::heading(2, text("x")));
    EXPECT_EQ(qHash(Block::bullet(text("x"), 1, text("•"))), qHash(Block::bullet(text("x"), 1, text("•"))));
    EXPECT_NE(qHash(Block::bullet(text("x"), 1, text("•"))), qHash(Block::bullet(text("x"), 2, text("•"))));
}

TEST(MarkdownInline, EverythingButTheMarkupIsEscaped) {
    EXPECT_EQ(html("<script>alert('x')</script> & \"q\""),
              text("&lt;script&gt;alert('x')&lt;/script&gt; &amp; &quot;q&quot;"));
    EXPECT_EQ(html("a  b\tc\nd"), text("a &nbsp;b&nbsp;&nbsp;&nbsp;&nbsp;c<br>d"));
    EXPECT_EQ(html(" lead"), text("&nbsp;lead")) << "StyledText would drop a leading blank";
}

TEST(MarkdownInline, EmphasisCodeAndLinks) {
    EXPECT_EQ(html("**bold** and __also__"), text("<b>bold</b> and <b>also</b>"));
    EXPECT_EQ(html("*it* _it_ **bold *both***"), text("<i>it</i> <i>it</i> **bold *both***"))
        << "a run of three markers is not guessed at";
    EXPECT_EQ(html("**bold *and* it**"), text("<b>bold <i>and</i> it</b>"));
    EXPECT_EQ(html("run `a <b> **c**` now"),
              text("run <font color=\"#f0b27a\">a &lt;b&gt; **c**</font> now"));
    EXPECT_EQ(html("``a ` b``"), text("<font color=\"#f0b27a\">a ` b</font>"));
    EXPECT_EQ(html("see [the docs](https://example.com/a?b=1&c=\"2\")"),
              text("see <a href=\"https://example.com/a?b=1&amp;c=&quot;2&quot;\">the docs</a>"));
    EXPECT_EQ(html("[a [b](c)"), text("[a <a href=\"c\">b</a>"));
}

TEST(MarkdownInline, WhatDoesNotParseShowsAsTyped) {
    EXPECT_EQ(html("**unbalanced"), text("**unbalanced"));
    EXPECT_EQ(html("a ** b ** c"), text("a ** b ** c"));
    EXPECT_EQ(html("snake_case_name and 2*3*4"), text("snake_case_name and 2<i>3</i>4"));
    EXPECT_EQ(html("`open code"), text("`open code"));
    EXPECT_EQ(html("[text](no close"), text("[text](no close"));
    EXPECT_EQ(html("[text] (url)"), text("[text] (url)"));
    EXPECT_EQ(html("[text](has space)"), text("[text](has space)"));
    EXPECT_EQ(html("\\*not\\* \\[x\\] \\q"), text("*not* [x] \\q"));
    EXPECT_EQ(html("**a *b** c*"), text("<b>a *b</b> c*")) << "tags always nest";
}

TEST(MarkdownInline, LargeAndHostileInputStaysFast) {
    QElapsedTimer timer;
    timer.start();
    for (const char* unit : {"**a *b _c `d [e](", "*", "[", "`", "[x](", "_a "}) {
        QString input;
        while (input.size() < 2'000'000) {
            input += text(unit);
        }
        const QString out = MarkdownView::inlineHtml(input);
        EXPECT_GE(out.size(), input.size() / 2);
        EXPECT_FALSE(MarkdownView::blocks(input).isEmpty());
    }
    EXPECT_LT(timer.elapsed(), 20'000) << "inline rendering must stay near linear";
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
