#pragma once

#include "agents/AgentModels.h"

#include <QObject>
#include <QString>
#include <QtQml/qqmlregistration.h>
#include <functional>

namespace mirrowisp {

class AgentSession;
class DecisionCardActions;
class PendingDecision;

// One card's buttons for QML: permission and plan cards call these. Each press looks the decision up
// again by its id, so a press that comes after the agent gave up reaches nothing and does nothing.
class DecisionCardModel : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("the agents model hands them out")
    Q_PROPERTY(QString decisionId READ decisionId CONSTANT)
    Q_PROPERTY(QString kind READ kind CONSTANT)
    Q_PROPERTY(QString title READ title CONSTANT)
    Q_PROPERTY(QString tool READ tool CONSTANT)
    Q_PROPERTY(QString summary READ summary CONSTANT)
    Q_PROPERTY(QString detail READ detail CONSTANT)
    Q_PROPERTY(bool hasDetail READ hasDetail CONSTANT)
    Q_PROPERTY(bool hasAlwaysAllowSuggestion READ hasAlwaysAllowSuggestion CONSTANT)
    Q_PROPERTY(QString markdown READ markdown CONSTANT)
    Q_PROPERTY(bool showFeedback READ showFeedback NOTIFY showFeedbackChanged)
    Q_PROPERTY(QString keepPlanningTitle READ keepPlanningTitle NOTIFY showFeedbackChanged)
    Q_PROPERTY(bool isPending READ isPending NOTIFY isPendingChanged)
    Q_PROPERTY(bool expired READ isExpired NOTIFY expiredChanged)

public:
    static inline const QString planTitle = QStringLiteral("Plan ready for review");
    static inline const QString feedbackPlaceholder = QStringLiteral("What should change?");

    DecisionCardModel(const DecisionCardActions& actions, QString decisionId, QObject* parent = nullptr);

    const QString& decisionId() const { return decisionId_; }
    // "permission", "question" or "plan"; empty when the decision was already gone.
    const QString& kind() const { return kind_; }
    // The permission card's title: the agent's name, " wants to use " and the tool.
    const QString& title() const { return title_; }
    const QString& tool() const { return decision_.tool; }
    const QString& summary() const { return decision_.summary; }
    QString detail() const { return decision_.detail.value_or(QString()); }
    bool hasDetail() const { return decision_.detail.has_value(); }
    bool hasAlwaysAllowSuggestion() const { return hasAlwaysAllowSuggestion_; }
    const QString& markdown() const { return decision_.markdown; }
    bool showFeedback() const { return showFeedback_; }
    QString keepPlanningTitle() const;
    // Whether the decision still waits in the store.
    bool isPending() const;
    // Whether it waited past the agent's hook time-out: an answer would reach nobody.
    bool isExpired() const;

    static QString permissionTitle(AgentKind agent, const QString& tool);
    // The question card's title: "Claude Code has a question", "… has 2 questions".
    static QString questionTitle(AgentKind agent, qsizetype count);

    Q_INVOKABLE void allow();
    Q_INVOKABLE void alwaysAllow();
    Q_INVOKABLE void deny();
    // "Terminal": the agent's own prompt takes over.
    Q_INVOKABLE void terminal();
    Q_INVOKABLE void approve();
    Q_INVOKABLE void approveAutoEdit();
    // The first press shows the feedback box; the next sends what is in it.
    Q_INVOKABLE void keepPlanning(const QString& feedback = {});
    // y / n over the island: allow or deny, logged as answered by key.
    void answerWithKey(bool allow);

Q_SIGNALS:
    void showFeedbackChanged();
    void isPendingChanged();
    void expiredChanged();

private:
    // Runs `action` on the decision if it still waits, then lets the island go if it was the last.
    void act(const std::function<void(PendingDecision&, AgentSession&)>& action);

    const DecisionCardActions& actions_;
    const QString decisionId_;
    DecisionKind decision_;
    QString kind_;
    QString title_;
    bool hasAlwaysAllowSuggestion_ = false;
    bool showFeedback_ = false;
};

} // namespace mirrowisp
