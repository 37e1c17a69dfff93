#pragma once

#include "usage/UsageTracker.h"

#include <QObject>
#include <QVariantList>
#include <QtQml/qqmlregistration.h>

namespace mirrowisp {

// The usage meters the open island shows, ranked as the tracker says, in a shape QML binds to:
// per agent its raw name, display name, meters and, without meters, the words that stand instead.
class IslandUsageModel : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("the island shell makes it")
    Q_PROPERTY(QVariantList agents READ agents NOTIFY agentsChanged)

public:
    explicit IslandUsageModel(UsageTracker& tracker, QObject* parent = nullptr);

    const QVariantList& agents() const { return agents_; }
    // Rebuilds from the tracker; notifies only when something a view shows changed.
    void refresh();

    static QVariantList describe(const UsageTracker& tracker, const QList<AgentKind>& agents, Timestamp now);

Q_SIGNALS:
    void agentsChanged();

private:
    UsageTracker& tracker_;
    QVariantList agents_;
};

} // namespace mirrowisp
