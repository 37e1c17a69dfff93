#pragma once

#include "base/SerialQueue.h"
#include "widgets/CalendarProvider.h"

#include <QFileSystemWatcher>
#include <QTimer>
#include <memory>

namespace mirrowisp {

// Events from iCalendar files and vdir folders (one .ics item per file, as vdirsyncer and khal keep
// them; a folder of such folders is a set of calendars). Files are read and parsed on a queue of
// their own, again only when they change, and the paths are watched.
class CalendarFiles final : public CalendarProvider {
    Q_OBJECT

public:
    // At most this many files are read over all the paths.
    static constexpr qsizetype maxFiles = 20000;

    explicit CalendarFiles(QObject* parent = nullptr);
    ~CalendarFiles() override;

    // "~/" stands for the home folder. Looks the paths over again and reports `changed`.
    void setPaths(const QStringList& paths);
    QStringList calendars() const override { return calendars_; }
    void fetch(Timestamp from, Timestamp to, Answer answer) override;

private:
    struct Reader;
    void rescan();

    QStringList paths_;
    QStringList calendars_;
    QFileSystemWatcher watcher_;
    // Editors and sync tools write in bursts: one look after the burst.
    QTimer settle_;
    quint64 scans_ = 0;
    std::shared_ptr<Reader> reader_; // touched on the queue only
    // Last: it finishes its work before the rest goes.
    std::unique_ptr<SerialQueue> queue_;
};

} // namespace mirrowisp
