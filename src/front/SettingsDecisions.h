#pragma once

#include "front/SettingsServices.h"

#include <QObject>
#include <QStringList>
#include <QVariantList>
#include <QtQml/qqmlregistration.h>

namespace mirrowisp {

// The Decisions page: the decision log newest first, filtered by agent and outcome, and the
// always-allow rules the agents keep, each removable. The log and the agents' files are read off
// the main thread; rows change when the answers come back.
class SettingsDecisions : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("the settings window makes it")
    // Each: time, agent, name, outcome, route, tool, summary, project, answer.
    Q_PROPERTY(QVariantList records READ records NOTIFY recordsChanged)
    Q_PROPERTY(bool recordsLoaded READ recordsLoaded NOTIFY recordsChanged)
    // More records matched than are shown.
    Q_PROPERTY(bool truncated READ truncated NOTIFY recordsChanged)
    // Raw names; empty for every agent or every outcome.
    Q_PROPERTY(QString agentFilter READ agentFilter WRITE setAgentFilter NOTIFY filterChanged)
    Q_PROPERTY(QString outcomeFilter READ outcomeFilter WRITE setOutcomeFilter NOTIFY filterChanged)
    // The filters' choices, "" (every one) first. Untyped for the views, which treat them as script arrays.
    Q_PROPERTY(QVariant agents READ agentsValue CONSTANT)
    Q_PROPERTY(QVariant outcomes READ outcomesValue CONSTANT)
    // Each: id, agent, name, scope, project, file, rule, readable, problem.
    Q_PROPERTY(QVariantList rules READ rules NOTIFY rulesChanged)
    Q_PROPERTY(bool rulesLoaded READ rulesLoaded NOTIFY rulesChanged)
    // What the last removal came to, in a sentence.
    Q_PROPERTY(QString ruleMessage READ ruleMessage NOTIFY ruleMessageChanged)

public:
    // The newest records kept for the page; the log itself may hold far more.
    static constexpr int maxRecords = 200;

    explicit SettingsDecisions(SettingsServices services, QObject* parent = nullptr);

    QVariantList records() const { return records_; }
    bool recordsLoaded() const { return recordsLoaded_; }
    bool truncated() const { return truncated_; }
    QString agentFilter() const { return agentFilter_; }
    void setAgentFilter(const QString& agent);
    QString outcomeFilter() const { return outcomeFilter_; }
    void setOutcomeFilter(const QString& outcome);
    QStringList agents() const;
    QStringList outcomes() const;
    QVariant agentsValue() const { return agents(); }
    QVariant outcomesValue() const { return outcomes(); }
    QVariantList rules() const { return rules_; }
    bool rulesLoaded() const { return rulesLoaded_; }
    QString ruleMessage() const { return ruleMessage_; }

    // Reads the log and the rules again.
    Q_INVOKABLE void refresh();
    Q_INVOKABLE void removeRule(const QString& id);

Q_SIGNALS:
    void recordsChanged();
    void filterChanged();
    void rulesChanged();
    void ruleMessageChanged();
    // One removal finished: its error text, empty when it worked.
    void ruleRemoved(const QString& id, const QString& error);

private:
    void readRecords();
    void readRules();
    QStringList sessionFolders() const;

    SettingsServices services_;
    QString agentFilter_;
    QString outcomeFilter_;
    QVariantList records_;
    bool recordsLoaded_ = false;
    bool truncated_ = false;
    int recordsGeneration_ = 0;
    QVariantList rules_;
    bool rulesLoaded_ = false;
    int rulesGeneration_ = 0;
    QString ruleMessage_;
};

} // namespace mirrowisp
