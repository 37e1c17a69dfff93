#pragma once

#include "widgets/CalendarProvider.h"

#include <QList>

namespace mirrowisp {

// Several providers read as one: their calendars side by side, one answer once all have answered.
class CombinedCalendars final : public CalendarProvider {
    Q_OBJECT

public:
    // The providers must outlive this object's use of them.
    explicit CombinedCalendars(QList<CalendarProvider*> providers, QObject* parent = nullptr);

    QStringList calendars() const override;
    void fetch(Timestamp from, Timestamp to, Answer answer) override;

private:
    QList<CalendarProvider*> providers_;
};

} // namespace mirrowisp
