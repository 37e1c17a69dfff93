#include "widgets/RemindersService.h"

#include <QDateTime>
#include <QJsonArray>
#include <QPointer>
#include <algorithm>

namespace mirrowisp {

RemindersService::RemindersService(EvolutionStore& store, const Clock& clock, QObject* parent)
    : QObject(parent), store_(store), clock_(clock) {
    connect(&store_, &EvolutionStore::tasksChanged, this, &RemindersService::reload);
    connect(&store_, &EvolutionStore::taskListsChanged, this, &RemindersService::availableChanged);
    connect(&timer_, &QTimer::timeout, this, &RemindersService::reload);
}

void RemindersService::start() {
    timer_.start(static_cast<int>(reloadSeconds * 1000));
    reload();
}

void RemindersService::setListID(const QString& listID) {
    if (listID != listID_) {
        listID_ = listID;
        reload();
    }
}

void RemindersService::reload() {
    const quint64 generation = ++generation_;
    QPointer<RemindersService> self(this);
    store_.fetchTasks(listID_, [self, generation](std::vector<Reminder> tasks) {
        if (self && generation == self->generation_) {
            self->apply(std::move(tasks));
        }
    });
}

void RemindersService::apply(std::vector<Reminder> tasks) {
    const QDateTime now = QDateTime::fromSecsSinceEpoch(static_cast<qint64>(clock_.now()));
    const auto tomorrow = static_cast<Timestamp>(now.date().addDays(1).startOfDay().toSecsSinceEpoch());
    QList<Reminder> due;
    for (Reminder& task : tasks) {
        if (task.due && *task.due < tomorrow) {
            due.append(std::move(task));
        }
    }
    std::sort(due.begin(), due.end(), [](const Reminder& a, const Reminder& b) {
        return std::tie(*a.due, a.title, a.uid) < std::tie(*b.due, b.title, b.uid);
    });
    if (due != items_) {
        items_ = std::move(due);
        Q_EMIT itemsChanged();
    }
}

void RemindersService::complete(const QString& id) {
    const auto found =
        std::find_if(items_.begin(), items_.end(), [&](const Reminder& r) { return r.id() == id; });
    if (found == items_.end()) {
        return;
    }
    const Reminder task = *found;
    items_.erase(found);
    Q_EMIT itemsChanged();
    QPointer<RemindersService> self(this);
    store_.complete(task, clock_.now(), [self](bool written) {
        if (self && !written) {
            self->reload();
        }
    });
}

QJsonObject RemindersService::toJson() const {
    QJsonArray items;
    for (const Reminder& task : items_) {
        items.append(QJsonObject{
            {QStringLiteral("id"), task.id()},
            {QStringLiteral("title"), task.title},
            {QStringLiteral("due"),
             QDateTime::fromSecsSinceEpoch(static_cast<qint64>(*task.due), Qt::UTC).toString(Qt::ISODate)},
            {QStringLiteral("isDueDate"), task.isDueDate},
            {QStringLiteral("color"), task.color}});
    }
    return {{QStringLiteral("available"), available()},
            {QStringLiteral("listID"), listID_},
            {QStringLiteral("items"), items}};
}

} // namespace mirrowisp
