#include "island/DecisionCardModel.h"

#include "agents/AgentStore.h"
#include "island/DecisionCardActions.h"

namespace mirrowisp {

DecisionCardModel::DecisionCardModel(const DecisionCardActions& actions, QString decisionId, QObject* parent)
    : QObject(parent), actions_(actions), decisionId_(std::move(decisionId)) {
    const auto [decision, session] = actions_.store().findDecision(decisionId_);
    if (!decision || !session) {
        return;
    }
    // A decision's kind never changes, so the card reads it once.
    decision_ = decision->kind();
    kind_ = decision_.caseName();
    title_ = decision_.kind == DecisionKind::Case::question
                 ? questionTitle(session->agent(), decision_.questions.size())
                 : permissionTitle(session->agent(), decision_.tool);
    hasAlwaysAllowSuggestion_ = decision->hasAlwaysAllowSuggestion();
    connect(decision, &PendingDecision::expiredChanged, this, &DecisionCardModel::expiredChanged);
}

QString DecisionCardModel::questionTitle(AgentKind agent, qsizetype count) {
    return AgentKinds::displayName(agent) +
           (count > 1 ? QStringLiteral(" has %1 questions").arg(count) : QStringLiteral(" has a question"));
}

QString DecisionCardModel::permissionTitle(AgentKind agent, const QString& tool) {
    return AgentKinds::displayName(agent) + QStringLiteral(" wants to use ") + tool;
}

QString DecisionCardModel::keepPlanningTitle() const {
    return showFeedback_ ? QStringLiteral("Send feedback") : QStringLiteral("Keep planning");
}

bool DecisionCardModel::isPending() const {
    return actions_.store().findDecision(decisionId_).first != nullptr;
}

bool DecisionCardModel::isExpired() const {
    const PendingDecision* decision = actions_.store().findDecision(decisionId_).first;
    return decision != nullptr && decision->isExpired();
}

void DecisionCardModel::act(const std::function<void(PendingDecision&, AgentSession&)>& action) {
    const auto [decision, session] = actions_.store().findDecision(decisionId_);
    if (!decision || !session) {
        return; // the agent gave up in the meantime; nothing is left to answer
    }
    action(*decision, *session);
    Q_EMIT isPendingChanged();
}

void DecisionCardModel::allow() {
    act([this](PendingDecision& d, AgentSession& s) { actions_.store().allow(d, s, false); });
}

void DecisionCardModel::answerWithKey(bool allow) {
    act([this, allow](PendingDecision& d, AgentSession& s) {
        if (allow) {
            actions_.store().allow(d, s, false, DecisionRoute::key);
        } else {
            actions_.store().deny(d, s, DecisionRoute::key);
        }
    });
}

void DecisionCardModel::alwaysAllow() {
    act([this](PendingDecision& d, AgentSession& s) { actions_.store().allow(d, s, true); });
}

void DecisionCardModel::deny() {
    act([this](PendingDecision& d, AgentSession& s) { actions_.store().deny(d, s); });
}

void DecisionCardModel::terminal() {
    act([this](PendingDecision& d, AgentSession& s) { actions_.store().handBack(d, s); });
}

void DecisionCardModel::approve() {
    act([this](PendingDecision& d, AgentSession& s) { actions_.store().approvePlan(d, s, false); });
}

void DecisionCardModel::approveAutoEdit() {
    act([this](PendingDecision& d, AgentSession& s) { actions_.store().approvePlan(d, s, true); });
}

void DecisionCardModel::keepPlanning(const QString& feedback) {
    if (!showFeedback_) {
        showFeedback_ = true;
        Q_EMIT showFeedbackChanged();
        return;
    }
    // The store trims the text and stands in its own words for an empty box.
    act([this, feedback](PendingDecision& d, AgentSession& s) {
        actions_.store().keepPlanning(d, s, feedback);
    });
}

} // namespace mirrowisp
