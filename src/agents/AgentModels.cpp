#include "agents/AgentModels.h"

#include <QHash>

namespace mirrowisp {

bool AgentStatus::isWorking() const {
    return kind == Case::runningTool || kind == Case::thinking || kind == Case::compacting;
}

QString AgentStatus::caseName() const {
    switch (kind) {
    case Case::runningTool:
        return QStringLiteral("runningTool");
    case Case::idle:
        return QStringLiteral("idle");
    case Case::thinking:
        return QStringLiteral("thinking");
    case Case::compacting:
        return QStringLiteral("compacting");
    case Case::needsAttention:
        return QStringLiteral("needsAttention");
    case Case::done:
        return QStringLiteral("done");
    case Case::ended:
        return QStringLiteral("ended");
    }
    return {};
}

size_t qHash(const AgentQuestion::Option& option, size_t seed) {
    return qHashMulti(seed, option.label, option.description);
}

size_t qHash(const AgentQuestion& question, size_t seed) {
    seed = qHashMulti(seed, question.question, question.header, question.multiSelect);
    for (const auto& option : question.options) {
        seed = qHash(option, seed);
    }
    return seed;
}

DecisionKind DecisionKind::permission(QString tool, QString summary, std::optional<QString> detail) {
    DecisionKind kind;
    kind.kind = Case::permission;
    kind.tool = std::move(tool);
    kind.summary = std::move(summary);
    kind.detail = std::move(detail);
    return kind;
}

DecisionKind DecisionKind::question(QList<AgentQuestion> questions) {
    DecisionKind kind;
    kind.kind = Case::question;
    kind.questions = std::move(questions);
    return kind;
}

DecisionKind DecisionKind::plan(QString markdown) {
    DecisionKind kind;
    kind.kind = Case::plan;
    kind.markdown = std::move(markdown);
    return kind;
}

QString DecisionKind::caseName() const {
    switch (kind) {
    case Case::permission:
        return QStringLiteral("permission");
    case Case::question:
        return QStringLiteral("question");
    case Case::plan:
        return QStringLiteral("plan");
    }
    return {};
}

} // namespace mirrowisp
