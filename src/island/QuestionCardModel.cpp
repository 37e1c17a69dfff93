#include "island/QuestionCardModel.h"

#include "agents/AgentStore.h"
#include "island/DecisionCardActions.h"

#include <QJsonObject>
#include <QStringList>
#include <QVariantMap>

namespace mirrowisp {

QuestionCardModel::QuestionCardModel(const DecisionCardActions& actions, QString decisionId, QObject* parent)
    : QObject(parent), actions_(actions), decisionId_(std::move(decisionId)) {
    if (const PendingDecision* decision = actions_.store().findDecision(decisionId_).first) {
        questions_ = decision->kind().questions;
    }
}

QVariantList QuestionCardModel::questionList() const {
    QVariantList list;
    for (const AgentQuestion& question : questions_) {
        const QSet<QString> selected = selections_.value(question.question);
        QVariantList options;
        for (const AgentQuestion::Option& option : question.options) {
            options.append(QVariantMap{{QStringLiteral("label"), option.label},
                                       {QStringLiteral("description"), option.description},
                                       {QStringLiteral("selected"), selected.contains(option.label)}});
        }
        list.append(QVariantMap{{QStringLiteral("header"), question.header},
                                {QStringLiteral("text"), question.question},
                                {QStringLiteral("multiSelect"), question.multiSelect},
                                {QStringLiteral("otherText"), otherText_.value(question.question)},
                                {QStringLiteral("options"), options}});
    }
    return list;
}

void QuestionCardModel::toggle(const QString& label, int questionIndex) {
    if (questionIndex < 0 || questionIndex >= questions_.size()) {
        return;
    }
    const AgentQuestion& question = questions_.at(questionIndex);
    QSet<QString> selected = selections_.value(question.question);
    if (question.multiSelect) {
        if (!selected.remove(label)) {
            selected.insert(label);
        }
    } else {
        selected = selected.contains(label) ? QSet<QString>() : QSet<QString>{label};
        // A picked option is the answer; text typed before it would contradict it.
        otherText_.remove(question.question);
    }
    const bool answersAtOnce = questions_.size() == 1 && !question.multiSelect && !selected.isEmpty();
    selections_.insert(question.question, selected);
    Q_EMIT changed();
    if (answersAtOnce) {
        submit();
    }
}

QString QuestionCardModel::otherText(int questionIndex) const {
    if (questionIndex < 0 || questionIndex >= questions_.size()) {
        return {};
    }
    return otherText_.value(questions_.at(questionIndex).question);
}

void QuestionCardModel::setOtherText(int questionIndex, const QString& text) {
    if (questionIndex < 0 || questionIndex >= questions_.size() || otherText(questionIndex) == text) {
        return;
    }
    otherText_.insert(questions_.at(questionIndex).question, text);
    Q_EMIT changed();
}

bool QuestionCardModel::isSelected(int questionIndex, const QString& label) const {
    if (questionIndex < 0 || questionIndex >= questions_.size()) {
        return false;
    }
    return selections_.value(questions_.at(questionIndex).question).contains(label);
}

std::optional<QString> QuestionCardModel::answer(const AgentQuestion& question) const {
    const QSet<QString> selected = selections_.value(question.question);
    QStringList parts;
    for (const AgentQuestion::Option& option : question.options) {
        if (selected.contains(option.label)) {
            parts.append(option.label);
        }
    }
    const QString typed = otherText_.value(question.question).trimmed();
    if (!typed.isEmpty()) {
        parts.append(typed);
    }
    if (parts.isEmpty()) {
        return std::nullopt;
    }
    return parts.join(QStringLiteral(", "));
}

bool QuestionCardModel::isComplete() const {
    return !questions_.isEmpty() &&
           std::all_of(questions_.begin(), questions_.end(),
                       [this](const AgentQuestion& question) { return answer(question).has_value(); });
}

void QuestionCardModel::submit() {
    const auto [decision, session] = actions_.store().findDecision(decisionId_);
    // An incomplete card sends nothing: the agent would take a missing answer as a refusal.
    if (!decision || !session || !isComplete()) {
        return;
    }
    QJsonObject answers;
    for (const AgentQuestion& question : questions_) {
        if (const std::optional<QString> text = answer(question)) {
            answers.insert(question.question, *text);
        }
    }
    actions_.store().answer(*decision, *session, answers);
}

void QuestionCardModel::terminal() {
    const auto [decision, session] = actions_.store().findDecision(decisionId_);
    if (!decision || !session) {
        return;
    }
    actions_.store().handBack(*decision, *session);
}

} // namespace mirrowisp
