#pragma once

#include "widgets/CalendarProvider.h"
#include "widgets/Reminder.h"

#include <QList>
#include <QTimer>
#include <memory>

namespace mirrowisp {

// The calendars and task lists of the desktop's calendar server (Evolution Data Server, where the
// online accounts, the mail client and the calendar app keep theirs): every enabled one. A thread of
// its own owns every connection to the server and receives its change notices, so no call to the
// server ever waits on the main thread; answers and notices arrive on the main thread.
class EvolutionStore final : public CalendarProvider {
    Q_OBJECT

public:
    struct Source {
        QString uid;
        QString name;
        QString color; // "#rrggbb"; empty for none
        bool operator==(const Source&) const = default;
    };
    using TasksAnswer = std::function<void(std::vector<Reminder>)>;

    explicit EvolutionStore(QObject* parent = nullptr);
    ~EvolutionStore() override;

    // Reaches for the server, which is retried on every fetch while it cannot be reached.
    void start();

    QStringList calendars() const override;
    void fetch(Timestamp from, Timestamp to, Answer answer) override;

    const QList<Source>& calendarSources() const { return calendars_; }
    const QList<Source>& taskLists() const { return taskLists_; }
    // The open tasks of the list `listID`, or of every list when it is empty.
    void fetchTasks(const QString& listID, TasksAnswer answer);
    // Marks the task completed at `at` on the server; `done` hears whether that was written.
    void complete(const Reminder& task, Timestamp at, std::function<void(bool)> done);

Q_SIGNALS:
    void tasksChanged();
    void taskListsChanged();

private:
    struct Worker;
    void publish(QList<Source> calendars, QList<Source> taskLists);

    QList<Source> calendars_;
    QList<Source> taskLists_;
    // A change on the server comes as a burst of notices: one reload after it.
    QTimer eventsSettle_;
    QTimer tasksSettle_;
    std::unique_ptr<Worker> worker_;
};

} // namespace mirrowisp
