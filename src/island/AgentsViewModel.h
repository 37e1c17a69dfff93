#pragma once

#include "agents/AgentStore.h"

#include <QAbstractListModel>
#include <QHash>
#include <QPointer>
#include <QtQml/qqmlregistration.h>
#include <functional>
#include <vector>

namespace mirrowisp {

class CodexApprovalNotice;
class DecisionCardActions;
class DecisionCardModel;
class QuestionCardModel;

// The agents tab as QML sees it: one row per visible session, in the store's order, with the card
// of the oldest decision it waits for. Rows are rebuilt once per turn of the event loop however many
// session changes arrived in it.
class AgentsViewModel : public QAbstractListModel {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("the island shell makes it")
    Q_PROPERTY(QAbstractListModel* sessions READ sessions CONSTANT)
    Q_PROPERTY(QObject* codexNotice READ codexNotice CONSTANT)
    Q_PROPERTY(QString summary READ summary NOTIFY summaryChanged)

public:
    enum Role {
        SessionKeyRole = Qt::UserRole + 1,
        AgentRole,
        ProjectRole,
        SubtitleRole,
        ActivityRole,
        AgeRole,
        BadgeRole,
        SubagentsRole,
        HostLineRole,
        DecisionIDRole,
        DecisionKindRole,
    };

    using Jump = std::function<void(const AgentSession&)>;

    AgentsViewModel(AgentStore& store, const DecisionCardActions& actions, CodexApprovalNotice& notice,
                    const Clock& clock, Jump jump, QObject* parent = nullptr);
    ~AgentsViewModel() override;

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    QAbstractListModel* sessions() { return this; }
    QObject* codexNotice() const;
    // "2 agents working · 1 needs you", for the home tab.
    const QString& summary() const { return summary_; }

    // The buttons of a decision's card, made once per decision and kept while it waits.
    Q_INVOKABLE QObject* card(const QString& decisionID);
    Q_INVOKABLE QObject* questionCard(const QString& decisionID);
    Q_INVOKABLE void jump(const QString& sessionKey);
    Q_INVOKABLE void hide(const QString& sessionKey);
    Q_INVOKABLE void refreshCodexApproval();
    // Age labels move with the clock; the open tab asks for them now and then.
    Q_INVOKABLE void refreshAges();
    // Rebuilds the rows now (the store's changes schedule this on their own).
    void rebuild();

Q_SIGNALS:
    void summaryChanged();

private:
    struct Row {
        QString key, agent, project, subtitle, activity, age, badge, hostLine, decisionID, decisionKind;
        int subagents = 0;
        bool operator==(const Row&) const = default;
    };
    Row rowFor(const AgentSession& session) const;
    void scheduleRebuild();
    void watch(AgentSession& session);
    void dropStaleCards();

    AgentStore& store_;
    const DecisionCardActions& actions_;
    CodexApprovalNotice& notice_;
    const Clock& clock_;
    Jump jump_;
    std::vector<Row> rows_;
    QString summary_;
    bool rebuildQueued_ = false;
    QHash<QString, QPointer<DecisionCardModel>> cards_;
    QHash<QString, QPointer<QuestionCardModel>> questionCards_;
    QHash<const AgentSession*, QMetaObject::Connection> watched_;
};

} // namespace mirrowisp
