#include "island/QuestionCardModel.h"

#include "CardStoreFixture.h"

#include <QSignalSpy>
#include <QVariantMap>

using namespace mirrowisp;

namespace {

QJsonObject question(const char* text, std::initializer_list<const char*> labels, bool multiSelect = false) {
    QJsonArray options;
    for (const char* label : labels) {
        options.append(QJsonObject{
            {QStringLiteral("label"), QString::fromUtf8(label)},
            {QStringLiteral("description"), QStringLiteral("about ") + QString::fromUtf8(label)}});
    }
    return {{QStringLiteral("question"), QString::fromUtf8(text)},
            {QStringLiteral("header"), QStringLiteral("H")},
            {QStringLiteral("options"), options},
            {QStringLiteral("multiSelect"), multiSelect}};
}

} // namespace

class QuestionCardModelTest : public test::CardStoreFixture {
protected:
    Waiting ask(QJsonArray questions, const char* sessionID = "s1") {
        return request(AgentKind::claude, sessionID, "AskUserQuestion",
                       {{text("questions"), questions}, {text("keep"), text("me")}});
    }
    QJsonObject answersOf(Waiting& waiting) {
        const QJsonObject decision = decisionOf(waiting);
        EXPECT_EQ(decision[text("behavior")], text("allow"));
        EXPECT_EQ(decision[text("updatedInput")][text("keep")], text("me"))
            << "the rest of the input goes back";
        return decision[text("updatedInput")][text("answers")].toObject();
    }
};

// Typing never sends; one tap answers a single single-select question and clears the typed text.
TEST_F(QuestionCardModelTest, OneTapAnswersASingleSingleSelectQuestionAndTypingDoesNot) {
    Waiting waiting = ask({question("Which database?", {"SQLite", "Postgres"})});
    QuestionCardModel card(actions, waiting.id);
    QSignalSpy changed(&card, &QuestionCardModel::changed);
    card.setOtherText(0, text("MariaDB"));
    EXPECT_EQ(changed.count(), 1);
    EXPECT_TRUE(card.isComplete());
    EXPECT_TRUE(waiting.tool->stillWaiting());

    card.toggle(text("Postgres"), 0);
    EXPECT_TRUE(card.otherText(0).isEmpty());
    EXPECT_EQ(answersOf(waiting), (QJsonObject{{text("Which database?"), text("Postgres")}}));
    EXPECT_EQ(runScheduled(), std::vector<double>{0.25});
    EXPECT_EQ(closes, 1);
}

TEST_F(QuestionCardModelTest, MultiSelectAnswersInTheOptionsOrderWithTypedTextLast) {
    Waiting waiting = ask({question("Which checks?", {"lint", "test", "bench"}, true)});
    QuestionCardModel card(actions, waiting.id);
    card.toggle(text("bench"), 0);
    card.toggle(text("test"), 0);
    card.toggle(text("lint"), 0);
    card.toggle(text("test"), 0); // a second tap takes it back
    card.setOtherText(0, text("  fuzz \n"));
    EXPECT_TRUE(waiting.tool->stillWaiting()) << "multi-select taps never send on their own";
    EXPECT_TRUE(card.isSelected(0, text("lint")));
    EXPECT_FALSE(card.isSelected(0, text("test")));

    card.submit();
    EXPECT_EQ(answersOf(waiting), (QJsonObject{{text("Which checks?"), text("lint, bench, fuzz")}}));
}

TEST_F(QuestionCardModelTest, TwoQuestionsWaitForSubmitAndEachNeedsAnAnswer) {
    Waiting waiting = ask({question("Which database?", {"SQLite", "Postgres"}),
                           question("Which checks?", {"lint", "test"}, true)});
    QuestionCardModel card(actions, waiting.id);
    EXPECT_FALSE(card.isComplete());

    card.toggle(text("SQLite"), 0);
    EXPECT_TRUE(waiting.tool->stillWaiting()) << "with two questions a tap does not send";
    EXPECT_FALSE(card.isComplete());
    card.submit();
    EXPECT_TRUE(waiting.tool->stillWaiting()) << "an incomplete card sends nothing";

    card.setOtherText(1, text("   "));
    EXPECT_FALSE(card.isComplete()) << "blank text is no answer";
    card.toggle(text("test"), 1);
    EXPECT_TRUE(card.isComplete());
    card.toggle(text("SQLite"), 0);
    EXPECT_FALSE(card.isComplete()) << "tapping the chosen option again takes the answer back";
    card.toggle(text("Postgres"), 0);

    card.submit();
    EXPECT_EQ(answersOf(waiting), (QJsonObject{{text("Which database?"), text("Postgres")},
                                               {text("Which checks?"), text("test")}}));
}

TEST_F(QuestionCardModelTest, QuestionsWithTheSameTextShareTheirState) {
    Waiting waiting = ask({question("Same?", {"yes", "no"}, true), question("Same?", {"yes", "no"}, true)});
    QuestionCardModel card(actions, waiting.id);
    card.toggle(text("yes"), 0);
    EXPECT_TRUE(card.isSelected(1, text("yes")));
    card.setOtherText(1, text("maybe"));
    EXPECT_EQ(card.otherText(0), text("maybe"));
    EXPECT_TRUE(card.isComplete());
}

TEST_F(QuestionCardModelTest, QmlSeesQuestionsWithTheirSelections) {
    Waiting waiting = ask({question("Which checks?", {"lint", "test"}, true)});
    QuestionCardModel card(actions, waiting.id);
    card.toggle(text("test"), 0);
    card.setOtherText(0, text("more"));
    const QVariantList questions = card.questionList();
    ASSERT_EQ(questions.size(), 1);
    const QVariantMap first = questions.first().toMap();
    EXPECT_EQ(first[text("text")], text("Which checks?"));
    EXPECT_EQ(first[text("otherText")], text("more"));
    const QVariantList options = first[text("options")].toList();
    ASSERT_EQ(options.size(), 2);
    EXPECT_EQ(options[0].toMap()[text("selected")], false);
    EXPECT_EQ(options[1].toMap()[text("label")], text("test"));
    EXPECT_EQ(options[1].toMap()[text("selected")], true);
}

TEST_F(QuestionCardModelTest, TerminalHandsTheQuestionBackAndALateTapDoesNothing) {
    Waiting waiting = ask({question("Which database?", {"SQLite", "Postgres"})});
    Waiting other = request(AgentKind::claude, "s2", "Bash", {{text("command"), text("ls")}});
    QuestionCardModel card(actions, waiting.id);
    card.terminal();
    const std::optional<QJsonObject> reply = waiting.tool->reply();
    ASSERT_TRUE(reply.has_value());
    EXPECT_FALSE(reply->contains(text("stdout")));
    EXPECT_TRUE(scheduled.empty()) << "the other session's card still waits";

    card.toggle(text("SQLite"), 0);
    card.toggle(text("SQLite"), 7);
    card.setOtherText(-1, text("x"));
    EXPECT_TRUE(other.tool->stillWaiting());
    EXPECT_TRUE(scheduled.empty());
}
