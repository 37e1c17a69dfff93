#pragma once

#include "widgets/CalendarEvent.h"

#include <QByteArray>
#include <QString>
#include <memory>
#include <optional>
#include <vector>

namespace mirrowisp {

// One parsed iCalendar text (RFC 5545): a calendar file or one item of a vdir folder.
class IcsCalendar {
public:
    // Nothing when the text holds no calendar. Broken lines are skipped by the parser.
    static std::optional<IcsCalendar> parse(const QByteArray& text);

    IcsCalendar(IcsCalendar&&) noexcept;
    IcsCalendar& operator=(IcsCalendar&&) noexcept;
    ~IcsCalendar();

    // The calendar's own colour (X-APPLE-CALENDAR-COLOR or COLOR) as "#rrggbb"; empty without one.
    QString color() const;

    // Every event and occurrence that overlaps [from, to): repeating events are expanded (their
    // exceptions and moved occurrences applied). `color` stands in for events without their own.
    void appendEvents(Timestamp from, Timestamp to, const QString& color,
                      std::vector<CalendarEvent>& out) const;

private:
    struct Root;
    explicit IcsCalendar(std::unique_ptr<Root> root);
    std::unique_ptr<Root> root_;
};

// "#rrggbb" from an iCalendar or vdir colour ("#rrggbb", "#rrggbbaa" or a CSS name); empty if invalid.
QString calendarColor(const QString& text);

} // namespace mirrowisp
