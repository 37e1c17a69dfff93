#include "widgets/CalendarFiles.h"

#include "base/MainQueue.h"
#include "base/RegularFile.h"
#include "widgets/IcsCalendar.h"

#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QPointer>

namespace mirrowisp {

namespace {

constexpr int settleMilliseconds = 300;
constexpr qint64 smallFileLimit = 4096;

struct Source {
    QString name;
    QString color;
    QStringList files;
};

struct Scan {
    QList<Source> sources;
    QStringList watched;
};

QString expanded(const QString& path) {
    if (path == QLatin1String("~") || path.startsWith(QLatin1String("~/"))) {
        return QDir::homePath() + path.mid(1);
    }
    return path;
}

// A vdir's "color" or "displayname" file: one short line.
QString metadata(const QString& folder, const char* name) {
    const FileRead read = readRegularFile(folder + QLatin1Char('/') + QLatin1String(name), smallFileLimit);
    return read.ok() ? QString::fromUtf8(read.bytes).trimmed() : QString();
}

QStringList icsFilesIn(const QDir& folder, qsizetype budget) {
    QStringList files;
    for (const QFileInfo& info : folder.entryInfoList({QStringLiteral("*.ics")}, QDir::Files, QDir::Name)) {
        if (files.size() >= budget) {
            break;
        }
        files.append(info.filePath());
    }
    return files;
}

// A file is a calendar; a folder with .ics items is one; a folder of such folders holds several.
Scan scan(const QStringList& paths) {
    Scan result;
    qsizetype budget = CalendarFiles::maxFiles;
    const auto addFolder = [&](const QString& path) {
        const QStringList files = icsFilesIn(QDir(path), budget);
        result.watched.append(path);
        if (files.isEmpty()) {
            return false;
        }
        budget -= files.size();
        QString name = metadata(path, "displayname");
        result.sources.append({name.isEmpty() ? QFileInfo(path).fileName() : name,
                               calendarColor(metadata(path, "color")), files});
        return true;
    };
    for (const QString& raw : paths) {
        const QString path = expanded(raw.trimmed());
        const QFileInfo info(path);
        if (path.isEmpty() || budget <= 0) {
            continue;
        }
        if (info.isFile()) {
            result.sources.append({info.completeBaseName(), QString(), {path}});
            result.watched.append(path);
            --budget;
        } else if (info.isDir() && !addFolder(path)) {
            for (const QFileInfo& sub :
                 QDir(path).entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name)) {
                addFolder(sub.filePath());
            }
        } else if (!info.exists()) {
            // Not there yet (sync has not run): the nearest folder above tells when it appears.
            QDir above = info.absoluteDir();
            while (!above.exists() && !above.isRoot()) {
                above.setPath(QFileInfo(above.absolutePath()).absolutePath());
            }
            if (!above.isRoot()) {
                result.watched.append(above.absolutePath());
            }
        }
    }
    return result;
}

} // namespace

// The parsed files, kept until they change; the queue's alone.
struct CalendarFiles::Reader {
    struct Parsed {
        QDateTime modified;
        qint64 size = -1;
        std::shared_ptr<const IcsCalendar> calendar; // null: unreadable or not a calendar
    };
    QHash<QString, Parsed> files;

    std::shared_ptr<const IcsCalendar> calendar(const QString& path) {
        const QFileInfo info(path);
        Parsed& parsed = files[path];
        if (parsed.size == info.size() && parsed.modified == info.lastModified()) {
            return parsed.calendar;
        }
        parsed = {info.lastModified(), info.size(), nullptr};
        const FileRead read = readRegularFile(path);
        if (read.ok()) {
            if (auto calendar = IcsCalendar::parse(read.bytes)) {
                parsed.calendar = std::make_shared<const IcsCalendar>(*std::move(calendar));
            }
        }
        return parsed.calendar;
    }

    std::vector<CalendarEvent> events(const Scan& found, Timestamp from, Timestamp to) {
        std::vector<CalendarEvent> out;
        QHash<QString, Parsed> kept;
        for (const Source& source : found.sources) {
            for (const QString& path : source.files) {
                if (const auto calendar = this->calendar(path)) {
                    const QString own = calendar->color();
                    calendar->appendEvents(from, to, own.isEmpty() ? source.color : own, out);
                }
                kept.insert(path, files.value(path));
            }
        }
        files = std::move(kept); // forgets files that went away
        return out;
    }
};

CalendarFiles::CalendarFiles(QObject* parent)
    : CalendarProvider(parent), reader_(std::make_shared<Reader>()),
      queue_(std::make_unique<SerialQueue>("mirrowisp.ics")) {
    settle_.setSingleShot(true);
    settle_.setInterval(settleMilliseconds);
    connect(&settle_, &QTimer::timeout, this, &CalendarFiles::rescan);
    connect(&watcher_, &QFileSystemWatcher::fileChanged, &settle_, qOverload<>(&QTimer::start));
    connect(&watcher_, &QFileSystemWatcher::directoryChanged, &settle_, qOverload<>(&QTimer::start));
}

CalendarFiles::~CalendarFiles() = default;

void CalendarFiles::setPaths(const QStringList& paths) {
    paths_ = paths;
    rescan();
}

void CalendarFiles::rescan() {
    const quint64 generation = ++scans_;
    QPointer<CalendarFiles> self(this);
    queue_->async([self, generation, paths = paths_] {
        Scan found = scan(paths);
        postToMain([self, generation, found = std::move(found)] {
            if (!self || generation != self->scans_) {
                return;
            }
            QStringList names;
            for (const Source& source : found.sources) {
                names.append(source.name);
            }
            self->calendars_ = names;
            // A replaced file drops out of the watch: watch again what is there now.
            if (const QStringList old = self->watcher_.files() + self->watcher_.directories();
                !old.isEmpty()) {
                self->watcher_.removePaths(old);
            }
            if (!found.watched.isEmpty()) {
                QStringList watched = found.watched;
                watched.removeDuplicates();
                self->watcher_.addPaths(watched);
            }
            Q_EMIT self->changed();
        });
    });
}

void CalendarFiles::fetch(Timestamp from, Timestamp to, Answer answer) {
    QPointer<CalendarFiles> self(this);
    queue_->async([self, reader = reader_, paths = paths_, from, to, answer = std::move(answer)]() mutable {
        std::vector<CalendarEvent> events = reader->events(scan(paths), from, to);
        postToMain([self, answer = std::move(answer), events = std::move(events)]() mutable {
            if (self) {
                answer(std::move(events));
            }
        });
    });
}

} // namespace mirrowisp
