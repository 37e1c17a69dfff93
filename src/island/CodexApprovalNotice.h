#pragma once

#include "agents/CodexHookStatus.h"
#include "integration/CodexHookApproval.h"

#include <QObject>
#include <QString>
#include <QtQml/qqmlregistration.h>
#include <optional>

namespace mirrowisp {

class AgentStore;

// The notice above the session list while Codex does not run our hooks: without them its sessions
// never reach the island, and only the user can change that in Codex.
class CodexApprovalNotice : public QObject {
    Q_OBJECT
    // Its view in QML is CodexApprovalNotice.qml.
    QML_NAMED_ELEMENT(CodexApprovalNoticeModel)
    QML_UNCREATABLE("the island shell makes it")
    Q_PROPERTY(bool visible READ visible NOTIFY changed)
    Q_PROPERTY(QString title READ title NOTIFY changed)
    Q_PROPERTY(QString text READ text NOTIFY changed)

public:
    struct Texts {
        QString title;
        QString text;
        bool operator==(const Texts&) const = default;
    };

    // Nothing while the hooks run.
    static std::optional<Texts> texts(CodexHookStatus status, bool hasApp);

    CodexApprovalNotice(AgentStore& store, CodexHookApproval::AppLookup lookup, QObject* parent = nullptr);

    bool visible() const { return current().has_value(); }
    QString title() const { return current().value_or(Texts()).title; }
    QString text() const { return current().value_or(Texts()).text; }

    // The list appeared: read Codex's trust state again.
    Q_INVOKABLE void refresh();

Q_SIGNALS:
    void changed();

private:
    std::optional<Texts> current() const;

    AgentStore& store_;
    CodexHookApproval::AppLookup lookup_;
};

} // namespace mirrowisp
