#include "agents/DecisionLogReader.h"

#include "agents/DecisionLog.h"

#include <QFile>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace mirrowisp::DecisionLogReader {

namespace {

bool matches(const DecisionRecord& record, const Filter& filter) {
    return (!filter.since || record.askedAt >= *filter.since) &&
           (!filter.agent || record.agent == *filter.agent) &&
           (!filter.outcome || record.outcome == *filter.outcome);
}

// Walks one file's lines; false when the visitor asked to stop.
bool readFile(const QString& path, const Filter& filter, const Visitor& each, qint64& count) {
    const QByteArray name = QFile::encodeName(path);
    const int fd = ::open(name.constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        return true;
    }
    struct stat info {};
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        ::close(fd);
        return true;
    }
    QByteArray buffer(256 * 1024, Qt::Uninitialized);
    qsizetype filled = 0;
    bool skipping = false; // inside a line too long to keep
    bool going = true;
    auto handle = [&](QByteArrayView line) {
        if (const auto record = DecisionRecord::fromJsonLine(line); record && matches(*record, filter)) {
            ++count;
            going = each(*record, line);
        }
    };
    while (going) {
        const ssize_t n = ::read(fd, buffer.data() + filled, static_cast<size_t>(buffer.size() - filled));
        if (n <= 0) {
            break; // a last line without its newline was cut short by a crash: it is skipped
        }
        filled += n;
        qsizetype start = 0;
        for (qsizetype i = filled - n; i < filled && going; ++i) {
            if (buffer[i] != '\n') {
                continue;
            }
            if (!skipping) {
                handle(QByteArrayView(buffer.constData() + start, i - start));
            }
            skipping = false;
            start = i + 1;
        }
        filled -= start;
        std::memmove(buffer.data(), buffer.constData() + start, static_cast<size_t>(filled));
        if (filled > maxLineBytes) {
            skipping = true;
            filled = 0;
        }
    }
    ::close(fd);
    return going;
}

} // namespace

qint64 read(const QStringList& files, const Filter& filter, const Visitor& each) {
    qint64 count = 0;
    for (const QString& file : files) {
        if (!readFile(file, filter, each, count)) {
            break;
        }
    }
    return count;
}

qint64 read(const QString& directory, const Filter& filter, const Visitor& each) {
    return read(DecisionLog::files(directory), filter, each);
}

std::optional<double> parseDuration(QStringView text) {
    if (text.size() < 2) {
        return std::nullopt;
    }
    bool ok = false;
    const double amount = text.first(text.size() - 1).toDouble(&ok);
    if (!ok || amount < 0) {
        return std::nullopt;
    }
    switch (text.back().unicode()) {
    case 's':
        return amount;
    case 'm':
        return amount * 60;
    case 'h':
        return amount * 3600;
    case 'd':
        return amount * 86400;
    case 'w':
        return amount * 7 * 86400;
    default:
        return std::nullopt;
    }
}

} // namespace mirrowisp::DecisionLogReader
