#include "island/HomeWidgetsViewModel.h"

#include "app/AppModel.h"
#include "app/Preferences.h"
#include "widgets/CalendarService.h"
#include "widgets/PullRequestService.h"
#include "widgets/RemindersService.h"

#include <QDateTime>
#include <QDesktopServices>
#include <QUrl>

namespace mirrowisp {

namespace {

QPointer<AppModel> shared;

constexpr int minuteHandMilliseconds = 15000;

QString reviewText(PullRequest::Review review) {
    switch (review) {
    case PullRequest::Review::changesRequested:
        return QStringLiteral("Changes requested");
    case PullRequest::Review::required:
        return QStringLiteral("Review requested");
    case PullRequest::Review::approved:
        return QStringLiteral("Approved");
    case PullRequest::Review::none:
        break;
    }
    return {};
}

void appendRows(const QList<PullRequest>& prs, bool reviewRequested, QVariantList& out) {
    for (const PullRequest& pr : prs) {
        out.append(
            QVariantMap{{QStringLiteral("number"), pr.number},
                        {QStringLiteral("title"), pr.title},
                        {QStringLiteral("url"), pr.url},
                        {QStringLiteral("repository"), pr.repository},
                        {QStringLiteral("isDraft"), pr.isDraft},
                        {QStringLiteral("checks"), PullRequest::checksName(pr.checks)},
                        {QStringLiteral("reviewText"),
                         reviewRequested ? QStringLiteral("Review requested") : reviewText(pr.review)}});
    }
}

// "09:30", "Tomorrow 09:30", "All day", "Tomorrow, all day".
QString whenText(const CalendarItem& item, Timestamp now) {
    const QDateTime start = QDateTime::fromSecsSinceEpoch(static_cast<qint64>(item.start));
    const QDate today = QDateTime::fromSecsSinceEpoch(static_cast<qint64>(now)).date();
    const bool tomorrow = start.date() > today;
    if (item.isAllDay) {
        return tomorrow ? QStringLiteral("Tomorrow, all day") : QStringLiteral("All day");
    }
    const QString time = start.toString(QStringLiteral("HH:mm"));
    return tomorrow ? QStringLiteral("Tomorrow ") + time : time;
}

} // namespace

HomeWidgetsViewModel::HomeWidgetsViewModel(AppModel* app, QObject* parent) : QObject(parent), app_(app) {
    if (app_ == nullptr) {
        return;
    }
    connect(&app_->prefs(), &Preferences::homeWidgetsChanged, this, &HomeWidgetsViewModel::orderChanged);
    connect(&app_->prefs(), &Preferences::homeWidgetSelectionChanged, this,
            &HomeWidgetsViewModel::orderChanged);
    if (CalendarService* calendar = app_->calendarService()) {
        connect(calendar, &CalendarService::upcomingChanged, this, &HomeWidgetsViewModel::eventsChanged);
        connect(calendar, &CalendarService::liveEventChanged, this, &HomeWidgetsViewModel::eventsChanged);
        connect(calendar, &CalendarService::authorizedChanged, this, &HomeWidgetsViewModel::eventsChanged);
        connect(&minuteHand_, &QTimer::timeout, this, &HomeWidgetsViewModel::eventsChanged);
        minuteHand_.start(minuteHandMilliseconds);
    }
    if (PullRequestService* prs = app_->pullRequestService()) {
        connect(prs, &PullRequestService::changed, this, &HomeWidgetsViewModel::pullRequestsChanged);
    }
    if (RemindersService* reminders = app_->remindersService()) {
        connect(reminders, &RemindersService::itemsChanged, this, &HomeWidgetsViewModel::remindersChanged);
        connect(reminders, &RemindersService::availableChanged, this,
                &HomeWidgetsViewModel::remindersChanged);
    }
}

void HomeWidgetsViewModel::setShared(AppModel* app) {
    shared = app;
}

HomeWidgetsViewModel* HomeWidgetsViewModel::create(QQmlEngine*, QJSEngine*) {
    return new HomeWidgetsViewModel(shared); // the engine owns it
}

QStringList HomeWidgetsViewModel::order() const {
    QStringList shown = app_ ? app_->prefs().homeWidgetsRaw() : QStringList();
    if (!app_ || !app_->remindersService()) {
        shown.removeAll(HomeWidgets::rawValue(HomeWidget::reminders));
    }
    return shown;
}

QString HomeWidgetsViewModel::selection() const {
    return app_ ? app_->prefs().homeWidgetSelection() : QString();
}

void HomeWidgetsViewModel::setSelection(const QString& selection) {
    if (app_) {
        app_->prefs().setHomeWidgetSelection(selection);
    }
}

bool HomeWidgetsViewModel::calendarAvailable() const {
    return app_ && app_->calendarService() && app_->calendarService()->authorized() &&
           app_->prefs().calendarEnabled();
}

QVariantList HomeWidgetsViewModel::events() const {
    QVariantList out;
    const CalendarService* calendar = app_ ? app_->calendarService() : nullptr;
    if (calendar == nullptr) {
        return out;
    }
    const Timestamp now = static_cast<Timestamp>(QDateTime::currentMSecsSinceEpoch()) / 1000.0;
    const auto& live = calendar->liveEvent();
    for (const CalendarItem& item : calendar->upcoming()) {
        out.append(QVariantMap{{QStringLiteral("id"), item.id},
                               {QStringLiteral("title"), item.title},
                               {QStringLiteral("when"), whenText(item, now)},
                               {QStringLiteral("color"), item.color},
                               {QStringLiteral("caption"), item.joinCaption(now)},
                               {QStringLiteral("joinable"), item.isJoinable(now)},
                               {QStringLiteral("live"), live && live->id == item.id},
                               {QStringLiteral("allDay"), item.isAllDay}});
    }
    return out;
}

QVariantList HomeWidgetsViewModel::pullRequests() const {
    QVariantList out;
    if (const PullRequestService* prs = app_ ? app_->pullRequestService() : nullptr) {
        appendRows(prs->mine(), false, out);
        appendRows(prs->reviewRequested(), true, out);
    }
    return out;
}

QString HomeWidgetsViewModel::pullRequestState() const {
    const PullRequestService* prs = app_ ? app_->pullRequestService() : nullptr;
    return PullRequestService::stateName(prs ? prs->state() : PullRequestService::State::loading);
}

QString HomeWidgetsViewModel::pullRequestText() const {
    const PullRequestService* prs = app_ ? app_->pullRequestService() : nullptr;
    return prs ? prs->stateText() : QString();
}

QVariantList HomeWidgetsViewModel::reminders() const {
    QVariantList out;
    const RemindersService* reminders = app_ ? app_->remindersService() : nullptr;
    if (reminders == nullptr) {
        return out;
    }
    const QDateTime now = QDateTime::currentDateTime();
    const auto today = static_cast<Timestamp>(now.date().startOfDay().toSecsSinceEpoch());
    for (const Reminder& task : reminders->items()) {
        const QDateTime due = QDateTime::fromSecsSinceEpoch(static_cast<qint64>(*task.due));
        const bool overdue = *task.due < today;
        QString when = overdue ? due.toString(QStringLiteral("d MMM")) : QStringLiteral("Today");
        if (!task.isDueDate && !overdue) {
            when = due.toString(QStringLiteral("HH:mm"));
        }
        out.append(QVariantMap{
            {QStringLiteral("id"), task.id()},
            {QStringLiteral("title"), task.title.isEmpty() ? QStringLiteral("Untitled") : task.title},
            {QStringLiteral("when"), when},
            {QStringLiteral("color"), task.color.isEmpty() ? QStringLiteral("#0a84ff") : task.color},
            {QStringLiteral("overdue"), overdue}});
    }
    return out;
}

QString HomeWidgetsViewModel::remindersText() const {
    const RemindersService* reminders = app_ ? app_->remindersService() : nullptr;
    if (reminders == nullptr || !reminders->available()) {
        return QStringLiteral("No task lists. Add one in your calendar app.");
    }
    return reminders->items().isEmpty() ? QStringLiteral("Nothing due today") : QString();
}

void HomeWidgetsViewModel::completeReminder(const QString& id) {
    if (app_ && app_->remindersService()) {
        app_->remindersService()->complete(id);
    }
}

void HomeWidgetsViewModel::openEvent(const QString& id) {
    if (app_ && app_->calendarService()) {
        app_->calendarService()->open(id);
    }
}

void HomeWidgetsViewModel::joinEvent(const QString& id) {
    if (app_ && app_->calendarService()) {
        app_->calendarService()->join(id);
    }
}

void HomeWidgetsViewModel::openPullRequest(const QString& url) {
    const QUrl address(url);
    if (address.scheme() == QLatin1String("https")) {
        QDesktopServices::openUrl(address);
    }
}

void HomeWidgetsViewModel::refreshPullRequests() {
    if (app_ && app_->pullRequestService()) {
        app_->pullRequestService()->refresh(true);
    }
}

} // namespace mirrowisp
