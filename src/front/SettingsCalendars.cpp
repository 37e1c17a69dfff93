#include "front/SettingsCalendars.h"

#include "app/AppModel.h"
#include "widgets/CalendarService.h"
#include "widgets/RemindersService.h"

namespace mirrowisp {

SettingsCalendars::SettingsCalendars(AppModel& model, QObject* parent) : QObject(parent), model_(&model) {
    if (CalendarService* calendar = model.calendarService()) {
        connect(calendar, &CalendarService::calendarsChanged, this, &SettingsCalendars::changed);
    }
    if (RemindersService* reminders = model.remindersService()) {
        connect(reminders, &RemindersService::availableChanged, this, &SettingsCalendars::changed);
    }
}

QStringList SettingsCalendars::calendars() const {
    const CalendarService* calendar = model_ ? model_->calendarService() : nullptr;
    return calendar ? calendar->calendars() : QStringList();
}

QVariantList SettingsCalendars::taskLists() const {
    QVariantList out{QVariant(QStringList{QString(), tr("Every list")})};
    if (const RemindersService* reminders = model_ ? model_->remindersService() : nullptr) {
        for (const EvolutionStore::Source& list : reminders->taskLists()) {
            out.append(QVariant(QStringList{list.uid, list.name}));
        }
    }
    return out;
}

} // namespace mirrowisp
