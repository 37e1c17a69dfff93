// reload() over one calendar file of 5,000 events, 50 of them repeating daily for years, as it runs
// every minute and after the file changed, beside parsing the file alone; and one tick() over a full list.
// Usage: bench_calendar.
#include "BenchSupport.h"
#include "base/Clock.h"
#include "widgets/CalendarService.h"
#include "widgets/IcsCalendar.h"

#include <QDateTime>
#include <cstdio>

namespace {

using namespace mirrowisp;

class FixedClock final : public Clock {
public:
    Timestamp now() const override { return at; }
    Timestamp at = 0;
};

// Answers on the spot as the files' queue does: a changed file is parsed again, an unchanged one
// only expanded.
class TextProvider final : public CalendarProvider {
public:
    QStringList calendars() const override { return {QStringLiteral("bench")}; }
    void fetch(Timestamp from, Timestamp to, Answer answer) override {
        if (changed || !parsed) {
            parsed = IcsCalendar::parse(text);
        }
        std::vector<CalendarEvent> events;
        parsed->appendEvents(from, to, QString(), events);
        answer(std::move(events));
    }
    QByteArray text;
    bool changed = false;
    std::optional<IcsCalendar> parsed;
};

QByteArray utc(const QDateTime& t) {
    return t.toUTC().toString(QStringLiteral("yyyyMMdd'T'HHmmss'Z'")).toUtf8();
}

} // namespace

int main() {
    FixedClock clock;
    const QDateTime now = QDateTime::currentDateTimeUtc();
    clock.at = static_cast<Timestamp>(now.toSecsSinceEpoch());
    QByteArray text = "BEGIN:VCALENDAR\r\nVERSION:2.0\r\n";
    for (int i = 0; i < 5000; ++i) {
        const bool repeating = i < 50;
        const QDateTime start =
            repeating ? now.addYears(-3).addSecs(i * 600) : now.addSecs((i - 2500) * 1800);
        text += "BEGIN:VEVENT\r\nUID:e" + QByteArray::number(i) + "\r\nSUMMARY:Event " +
                QByteArray::number(i) + "\r\nDTSTART:" + utc(start) +
                "\r\nDTEND:" + utc(start.addSecs(1800)) + "\r\nDESCRIPTION:Notes https://example.com/" +
                QByteArray::number(i) + (repeating ? "\r\nRRULE:FREQ=DAILY" : "") + "\r\nEND:VEVENT\r\n";
    }
    text += "END:VCALENDAR\r\n";

    TextProvider provider;
    provider.text = text;
    CalendarService service(provider, clock);
    const double parse = bench::medianMs(11, [&] { (void)IcsCalendar::parse(text); });
    const double reload = bench::medianMs(11, [&] { service.reload(); });
    provider.changed = true;
    const double reloadChanged = bench::medianMs(11, [&] { service.reload(); });
    const double tick = bench::medianMs(11,
                                        [&] {
                                            for (int i = 0; i < 1000; ++i) {
                                                service.tick();
                                            }
                                        }) /
                        1000;
    std::printf("%-48s %10s\n", "5,000 events, 50 repeating daily for 3 years", "median ms");
    std::printf("%-48s %10.2f\n", "reload, file unchanged (expand, filter, sort)", reload);
    std::printf("%-48s %10.2f\n", "reload after the file changed (and parse)", reloadChanged);
    std::printf("%-48s %10.2f\n", "parse alone (reference)", parse);
    std::printf("%-48s %10.2f\n", "target", 50.0);
    std::printf("%-48s %10.4f\n", "tick over 12 items", tick);
    std::printf("%-48s %10.4f\n", "target", 0.1);
    std::printf("%-48s %10lld\n", "upcoming", static_cast<long long>(service.upcoming().size()));
    return 0;
}
