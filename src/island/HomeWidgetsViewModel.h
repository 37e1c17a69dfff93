#pragma once

#include <QObject>
#include <QPointer>
#include <QStringList>
#include <QTimer>
#include <QVariantList>
#include <QtQml/qqmlregistration.h>

class QQmlEngine;
class QJSEngine;

namespace mirrowisp {

class AppModel;

// The home tab's widgets: the next events, the user's pull requests, the tasks due today, in the order
// the settings give. One per QML engine; they all read the app model's services.
class HomeWidgetsViewModel : public QObject {
    Q_OBJECT
    QML_NAMED_ELEMENT(HomeWidgets)
    QML_SINGLETON
    // The widgets shown, in the settings' order.
    Q_PROPERTY(QStringList order READ order NOTIFY orderChanged)
    Q_PROPERTY(QString selection READ selection WRITE setSelection NOTIFY orderChanged)
    Q_PROPERTY(bool calendarAvailable READ calendarAvailable NOTIFY eventsChanged)
    // Each: id, title, when, color, caption, joinable, live, allDay.
    Q_PROPERTY(QVariantList events READ events NOTIFY eventsChanged)
    // The user's own, then those waiting for their review, in the order GitHub gave. Each: number,
    // title, url, repository, isDraft, checks, reviewText.
    Q_PROPERTY(QVariantList pullRequests READ pullRequests NOTIFY pullRequestsChanged)
    // "loading", "ready", "ghMissing", "signedOut", "failed"; and the words the widget shows for it.
    Q_PROPERTY(QString pullRequestState READ pullRequestState NOTIFY pullRequestsChanged)
    Q_PROPERTY(QString pullRequestText READ pullRequestText NOTIFY pullRequestsChanged)
    // The tasks due today or overdue. Each: id, title, when, color, overdue.
    Q_PROPERTY(QVariantList reminders READ reminders NOTIFY remindersChanged)
    // What the reminders widget says instead of rows; empty while it has rows.
    Q_PROPERTY(QString remindersText READ remindersText NOTIFY remindersChanged)

public:
    explicit HomeWidgetsViewModel(AppModel* app, QObject* parent = nullptr);

    // The model the views of every engine made from now on read; the app sets it.
    static void setShared(AppModel* app);
    static HomeWidgetsViewModel* create(QQmlEngine* engine, QJSEngine*);

    QStringList order() const;
    QString selection() const;
    void setSelection(const QString& selection);
    bool calendarAvailable() const;
    QVariantList events() const;
    QVariantList pullRequests() const;
    QString pullRequestState() const;
    QString pullRequestText() const;
    QVariantList reminders() const;
    QString remindersText() const;

    Q_INVOKABLE void openEvent(const QString& id);
    Q_INVOKABLE void joinEvent(const QString& id);
    Q_INVOKABLE void openPullRequest(const QString& url);
    Q_INVOKABLE void refreshPullRequests();
    Q_INVOKABLE void completeReminder(const QString& id);

Q_SIGNALS:
    void orderChanged();
    void eventsChanged();
    void pullRequestsChanged();
    void remindersChanged();

private:
    QPointer<AppModel> app_;
    // The join captions count minutes down.
    QTimer minuteHand_;
};

} // namespace mirrowisp
