#pragma once

#include "base/AgentKind.h"

#include <QList>
#include <QString>
#include <optional>

namespace mirrowisp {

// The state of a session. Working: runningTool, thinking, compacting. Quiet: the rest.
struct AgentStatus {
    enum class Case { runningTool, idle, thinking, compacting, needsAttention, done, ended };

    Case kind = Case::idle;
    QString tool; // display name of the running tool; runningTool only

    static AgentStatus runningTool(QString tool) { return {Case::runningTool, std::move(tool)}; }
    static AgentStatus idle() { return {Case::idle, {}}; }
    static AgentStatus thinking() { return {Case::thinking, {}}; }
    static AgentStatus compacting() { return {Case::compacting, {}}; }
    static AgentStatus needsAttention() { return {Case::needsAttention, {}}; }
    static AgentStatus done() { return {Case::done, {}}; }
    static AgentStatus ended() { return {Case::ended, {}}; }

    bool isWorking() const;
    bool isQuiet() const { return !isWorking(); }
    // The case's name as scripts see it ("runningTool", "idle", …).
    QString caseName() const;

    bool operator==(const AgentStatus&) const = default;
};

struct AgentQuestion {
    struct Option {
        QString label;
        QString description;
        bool operator==(const Option&) const = default;
    };

    QString question;
    QString header;
    QList<Option> options;
    bool multiSelect = false;

    bool operator==(const AgentQuestion&) const = default;
};

size_t qHash(const AgentQuestion::Option& option, size_t seed = 0);
size_t qHash(const AgentQuestion& question, size_t seed = 0);

// What a waiting decision asks of the user.
struct DecisionKind {
    enum class Case { permission, question, plan };

    Case kind = Case::permission;
    // permission
    QString tool;
    QString summary;
    std::optional<QString> detail;
    // question
    QList<AgentQuestion> questions;
    // plan
    QString markdown;

    static DecisionKind permission(QString tool, QString summary, std::optional<QString> detail);
    static DecisionKind question(QList<AgentQuestion> questions);
    static DecisionKind plan(QString markdown);
    QString caseName() const;

    bool operator==(const DecisionKind&) const = default;
};

// What the store tells its owner about a session.
enum class AgentSignal { sessionStarted, promptSubmitted, needsAttention, finished, ended };

} // namespace mirrowisp
