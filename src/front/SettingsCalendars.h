#pragma once

#include <QObject>
#include <QPointer>
#include <QStringList>
#include <QVariantList>
#include <QtQml/qqmlregistration.h>

namespace mirrowisp {

class AppModel;

// What the calendar page lists beside the preferences: the calendars read and the task lists there
// are to choose from.
class SettingsCalendars : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("the settings window makes it")
    Q_PROPERTY(QStringList calendars READ calendars NOTIFY changed)
    // [id, name] pairs, the choice for every list first.
    Q_PROPERTY(QVariantList taskLists READ taskLists NOTIFY changed)

public:
    explicit SettingsCalendars(AppModel& model, QObject* parent = nullptr);

    QStringList calendars() const;
    QVariantList taskLists() const;

Q_SIGNALS:
    void changed();

private:
    QPointer<AppModel> model_;
};

} // namespace mirrowisp
