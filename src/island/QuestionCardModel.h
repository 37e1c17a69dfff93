#pragma once

#include "agents/AgentModels.h"

#include <QHash>
#include <QObject>
#include <QSet>
#include <QVariantList>
#include <QtQml/qqmlregistration.h>
#include <optional>

namespace mirrowisp {

class DecisionCardActions;

// The question card's state: which options the user picked and what they typed, per question. Both
// are keyed by the question's text, so two questions that read the same share one answer.
class QuestionCardModel : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("the agents model hands them out")
    Q_PROPERTY(QString decisionId READ decisionId CONSTANT)
    // Each entry: header, text, multiSelect, otherText, and options as label, description, selected.
    Q_PROPERTY(QVariantList questions READ questionList NOTIFY changed)
    Q_PROPERTY(bool canSubmit READ isComplete NOTIFY changed)

public:
    QuestionCardModel(const DecisionCardActions& actions, QString decisionId, QObject* parent = nullptr);

    const QString& decisionId() const { return decisionId_; }
    const QList<AgentQuestion>& questions() const { return questions_; }
    QVariantList questionList() const;

    // A tap on an option. One tap answers a card of one single-select question.
    Q_INVOKABLE void toggle(const QString& label, int questionIndex);
    Q_INVOKABLE QString otherText(int questionIndex) const;
    Q_INVOKABLE void setOtherText(int questionIndex, const QString& text);
    Q_INVOKABLE bool isSelected(int questionIndex, const QString& label) const;
    // Sends every answered question, then lets the island go if nothing else waits.
    Q_INVOKABLE void submit();
    // "Terminal": the agent asks in its own prompt instead.
    Q_INVOKABLE void terminal();

    // The picked labels in the options' own order, then the typed text; nothing when both are empty.
    std::optional<QString> answer(const AgentQuestion& question) const;
    // Every question has an answer.
    bool isComplete() const;

Q_SIGNALS:
    void changed();

private:
    const DecisionCardActions& actions_;
    const QString decisionId_;
    QList<AgentQuestion> questions_;
    QHash<QString, QSet<QString>> selections_;
    QHash<QString, QString> otherText_;
};

} // namespace mirrowisp
