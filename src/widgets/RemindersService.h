#pragma once

#include "widgets/EvolutionStore.h"
#include "widgets/Reminder.h"

#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QTimer>

namespace mirrowisp {

// The tasks due today or overdue, from one task list of the calendar server or from all of them.
// Main thread only.
class RemindersService : public QObject {
    Q_OBJECT

public:
    static constexpr double reloadSeconds = 60;

    RemindersService(EvolutionStore& store, const Clock& clock, QObject* parent = nullptr);

    // Reloads now, on every change the server reports and once a minute (the day rolls over).
    void start();
    void reload();

    // The list to show; empty for every list. A list that does not exist shows nothing.
    void setListID(const QString& listID);
    const QString& listID() const { return listID_; }

    // The server has task lists.
    bool available() const { return !store_.taskLists().isEmpty(); }
    const QList<EvolutionStore::Source>& taskLists() const { return store_.taskLists(); }
    // Overdue first, then by due time; tasks without a due date are not reminders of today.
    const QList<Reminder>& items() const { return items_; }

    // Ticks the task off: it leaves the list at once and is written back as completed; a write
    // that fails brings it back with the next reading.
    void complete(const QString& id);

    // available, listID and the items (due as ISO 8601 UTC), for `mirrowisp ctl calendar`.
    QJsonObject toJson() const;

Q_SIGNALS:
    void itemsChanged();
    void availableChanged();

private:
    void apply(std::vector<Reminder> tasks);

    EvolutionStore& store_;
    const Clock& clock_;
    QString listID_;
    QList<Reminder> items_;
    QTimer timer_;
    quint64 generation_ = 0;
};

} // namespace mirrowisp
