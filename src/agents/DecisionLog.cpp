#include "agents/DecisionLog.h"

#include "base/Log.h"

#include <QDir>
#include <QFile>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <future>
#include <sys/stat.h>
#include <unistd.h>

namespace mirrowisp {

namespace {

QString numbered(const QString& path, int number) {
    return number == 0 ? path : path + QLatin1Char('.') + QString::number(number);
}

QString lastError() {
    return QString::fromLocal8Bit(std::strerror(errno));
}

} // namespace

DecisionLog::DecisionLog(QString directory) : DecisionLog(std::move(directory), Limits{}) {}

DecisionLog::DecisionLog(QString directory, Limits limits)
    : directory_(std::move(directory)), path_(path(directory_)), limits_(limits),
      queue_(std::make_unique<SerialQueue>("mirrowisp.log")) {}

DecisionLog::~DecisionLog() {
    queue_.reset(); // writes what is queued, then joins
    if (fd_ >= 0) {
        ::close(fd_);
    }
}

QString DecisionLog::path(const QString& directory) {
    return directory + QStringLiteral("/decisions.jsonl");
}

QStringList DecisionLog::files(const QString& directory, int keptFiles) {
    QStringList found;
    const QString base = path(directory);
    for (int number = keptFiles - 1; number >= 0; --number) {
        if (QFile::exists(numbered(base, number))) {
            found.append(numbered(base, number));
        }
    }
    return found;
}

void DecisionLog::append(DecisionRecord record) {
    // Serialising masks and summarises the tool input: that is the log thread's work.
    queue_->async([this, record = std::move(record)] { write(record.toJsonLine()); });
}

void DecisionLog::flush() {
    std::promise<void> done;
    queue_->async([&done] { done.set_value(); });
    done.get_future().wait();
}

void DecisionLog::fail(const QString& why) {
    if (fd_ >= 0) {
        ::close(fd_);
        fd_ = -1;
    }
    if (!warned_) {
        warned_ = true;
        logLine(QStringLiteral("Mirrowisp: the decision log ") + path_ + QStringLiteral(" is not written: ") +
                why);
    }
}

bool DecisionLog::open() {
    if (fd_ >= 0) {
        return true;
    }
    if (!QDir().mkpath(directory_)) {
        fail(QStringLiteral("cannot create its folder"));
        return false;
    }
    const QByteArray name = QFile::encodeName(path_);
    fd_ = ::open(name.constData(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    struct stat info {};
    if (fd_ < 0 || ::fstat(fd_, &info) != 0) {
        fail(lastError());
        return false;
    }
    if (!S_ISREG(info.st_mode)) {
        fail(QStringLiteral("not a regular file"));
        return false;
    }
    size_ = info.st_size;
    return true;
}

void DecisionLog::rotate() {
    ::close(fd_);
    fd_ = -1;
    QFile::remove(numbered(path_, limits_.keptFiles - 1));
    for (int number = limits_.keptFiles - 2; number >= 0; --number) {
        QFile::rename(numbered(path_, number), numbered(path_, number + 1));
    }
}

void DecisionLog::write(const QByteArray& line) {
    if (!open()) {
        return;
    }
    if (size_ > 0 && size_ + line.size() > limits_.maxBytes) {
        rotate();
        if (!open()) {
            return;
        }
    }
    // One write per record: a reader never sees two records interleaved, at worst a cut last line.
    qsizetype written = 0;
    while (written < line.size()) {
        const ssize_t n =
            ::write(fd_, line.constData() + written, static_cast<size_t>(line.size() - written));
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            fail(lastError());
            return;
        }
        written += n;
    }
    size_ += line.size();
    warned_ = false; // a log that works again may say so once more when it fails later
}

} // namespace mirrowisp
