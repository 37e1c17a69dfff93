#include "widgets/CombinedCalendars.h"

#include <memory>

namespace mirrowisp {

CombinedCalendars::CombinedCalendars(QList<CalendarProvider*> providers, QObject* parent)
    : CalendarProvider(parent), providers_(std::move(providers)) {
    for (CalendarProvider* provider : providers_) {
        connect(provider, &CalendarProvider::changed, this, &CalendarProvider::changed);
    }
}

QStringList CombinedCalendars::calendars() const {
    QStringList names;
    for (const CalendarProvider* provider : providers_) {
        names += provider->calendars();
    }
    return names;
}

void CombinedCalendars::fetch(Timestamp from, Timestamp to, Answer answer) {
    struct Pending {
        qsizetype waiting;
        std::vector<CalendarEvent> events;
        Answer answer;
    };
    auto pending = std::make_shared<Pending>(Pending{providers_.size(), {}, std::move(answer)});
    if (providers_.isEmpty()) {
        pending->answer({});
        return;
    }
    for (CalendarProvider* provider : providers_) {
        provider->fetch(from, to, [pending](std::vector<CalendarEvent> events) {
            pending->events.insert(pending->events.end(), std::make_move_iterator(events.begin()),
                                   std::make_move_iterator(events.end()));
            if (--pending->waiting == 0) {
                pending->answer(std::move(pending->events));
            }
        });
    }
}

} // namespace mirrowisp
