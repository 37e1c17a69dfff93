#include "base/RegularFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace mirrowisp {

QString FileRead::reason() const {
    switch (status) {
    case Status::ok:
        return {};
    case Status::missing:
        return QStringLiteral("no such file");
    case Status::notRegular:
        return QStringLiteral("not a regular file");
    case Status::tooLarge:
        return QStringLiteral("too large to read");
    case Status::failed:
        return error;
    }
    return {};
}

namespace {

FileRead failure(int code) {
    FileRead read;
    read.status = code == ENOENT || code == ENOTDIR ? FileRead::Status::missing : FileRead::Status::failed;
    read.error = QString::fromLocal8Bit(std::strerror(code));
    return read;
}

} // namespace

FileRead readRegularFile(const QString& path, qint64 limit) {
    const QByteArray name = QFile::encodeName(path);
    // Non-blocking, so that opening a FIFO with no writer returns at once; fstat then refuses it.
    const int fd = ::open(name.constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) {
        return failure(errno);
    }
    FileRead read;
    struct stat info {};
    if (::fstat(fd, &info) != 0) {
        read = failure(errno);
    } else if (!S_ISREG(info.st_mode)) {
        read.status = FileRead::Status::notRegular;
    } else if (info.st_size > limit) {
        read.status = FileRead::Status::tooLarge;
    } else {
        read.mode = info.st_mode & 07777;
        // The size is a hint only: the file may grow while it is read, and the limit holds regardless.
        QByteArray bytes(static_cast<qsizetype>(info.st_size) + 1, Qt::Uninitialized);
        qsizetype used = 0;
        for (;;) {
            if (used == bytes.size()) {
                if (used > limit) {
                    read.status = FileRead::Status::tooLarge;
                    break;
                }
                bytes.resize(std::min<qsizetype>(limit + 1, used * 2 + 4096));
            }
            const ssize_t got = ::read(fd, bytes.data() + used, static_cast<size_t>(bytes.size() - used));
            if (got < 0 && errno == EINTR) {
                continue;
            }
            if (got < 0) {
                read = failure(errno);
                break;
            }
            if (got == 0) {
                bytes.truncate(used);
                read.status = FileRead::Status::ok;
                read.bytes = std::move(bytes);
                break;
            }
            used += got;
        }
    }
    ::close(fd);
    return read;
}

bool makePrivateDirectory(const QString& path) {
    const QString parent = QFileInfo(path).absolutePath();
    if (!QDir().mkpath(parent)) {
        return false;
    }
    // Made 0700 from the start, so that its contents are never open to others even for a moment.
    const QByteArray name = QFile::encodeName(path);
    if (::mkdir(name.constData(), S_IRWXU) != 0 && errno != EEXIST) {
        return false;
    }
    struct stat info {};
    return ::stat(name.constData(), &info) == 0 && S_ISDIR(info.st_mode) &&
           ::chmod(name.constData(), S_IRWXU) == 0;
}

} // namespace mirrowisp
