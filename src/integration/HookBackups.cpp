// The backups taken before every change to an agent's file, and the link hooks run the tool through.

#include "base/RegularFile.h"
#include "integration/HookInstaller.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QRegularExpression>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace mirrowisp::HookInstaller {

namespace {

// <folder>-<name>-2026-01-31T09-15-00Z: the file a backup is of, and when it was taken; a second
// backup within the same second gets "-01", "-02"... after the stamp, which still sorts by time.
const QRegularExpression& stampedName() {
    static const QRegularExpression pattern(
        QStringLiteral("^(.+)-(\\d{4}-\\d\\d-\\d\\dT\\d\\d-\\d\\d-\\d\\dZ(?:-\\d\\d)?)$"));
    return pattern;
}

constexpr int sameSecondBackups = 99;

QFileInfoList backupEntries(const QString& folder) {
    return QDir(folder).entryInfoList(QDir::Files | QDir::System | QDir::Hidden | QDir::NoDotAndDotDot);
}

// The newest backup of the file that `stem` names, by its stamp.
std::optional<QString> newestBackupOf(const QString& folder, const QString& stem) {
    std::optional<QString> newest;
    QString newestStamp;
    for (const QFileInfo& entry : backupEntries(folder)) {
        const QRegularExpressionMatch match = stampedName().match(entry.fileName());
        if (match.hasMatch() && match.captured(1) == stem && match.captured(2) > newestStamp) {
            newestStamp = match.captured(2);
            newest = entry.filePath();
        }
    }
    return newest;
}

void pruneBackups(const QString& folder) {
    QList<BackupEntry> entries;
    for (const QFileInfo& entry : backupEntries(folder)) {
        entries.append({entry.fileName(), entry.lastModified()});
    }
    // Errors here are of no consequence.
    for (const QString& name : backupsToPrune(entries)) {
        QFile::remove(folder + QLatin1Char('/') + name);
    }
}

QByteArray encoded(const QString& path) {
    return QFile::encodeName(path);
}

std::optional<QString> readLink(const QString& path) {
    QByteArray target(4096, Qt::Uninitialized);
    const ssize_t length =
        ::readlink(encoded(path).constData(), target.data(), static_cast<size_t>(target.size()));
    if (length < 0 || length >= target.size()) {
        return std::nullopt;
    }
    target.truncate(length);
    return QFile::decodeName(target);
}

} // namespace

QStringList backupsToPrune(QList<BackupEntry> entries) {
    // Backups are written once and never changed, so their modification time is when they were made.
    // An entry without a time counts as the oldest.
    std::stable_sort(entries.begin(), entries.end(), [](const BackupEntry& a, const BackupEntry& b) {
        if (a.modified.isValid() != b.modified.isValid()) {
            return a.modified.isValid();
        }
        return a.modified > b.modified;
    });
    // The first backup of each file holds what the user had before we ever touched it: it stays.
    QHash<QString, QString> oldest; // stem -> stamp
    for (const BackupEntry& entry : entries) {
        const QRegularExpressionMatch match = stampedName().match(entry.name);
        if (match.hasMatch()) {
            const auto it = oldest.constFind(match.captured(1));
            if (it == oldest.constEnd() || match.captured(2) < *it) {
                oldest.insert(match.captured(1), match.captured(2));
            }
        }
    }
    QStringList pruned;
    for (qsizetype i = keptBackups; i < entries.size(); ++i) {
        const QRegularExpressionMatch match = stampedName().match(entries.at(i).name);
        if (!match.hasMatch() || oldest.value(match.captured(1)) != match.captured(2)) {
            pruned.append(entries.at(i).name);
        }
    }
    return pruned;
}

QString backupStem(const QString& path) {
    const QFileInfo info(path);
    QString prefix = info.absoluteDir().dirName();
    while (prefix.startsWith(QLatin1Char('.'))) {
        prefix.remove(0, 1);
    }
    while (prefix.endsWith(QLatin1Char('.'))) {
        prefix.chop(1);
    }
    return prefix + QLatin1Char('-') + info.fileName();
}

QString backupName(const QString& path, const QDateTime& now) {
    QString stamp = now.toUTC().toString(Qt::ISODate); // 2026-01-31T09:15:00Z
    stamp.replace(QLatin1Char(':'), QLatin1Char('-'));
    return backupStem(path) + QLatin1Char('-') + stamp;
}

HookResult backup(const QString& path) {
    return backup(path, QDateTime::currentDateTimeUtc());
}

HookResult backup(const QString& path, const QDateTime& now) {
    const FileRead source = readRegularFile(path);
    if (source.status == FileRead::Status::missing) {
        return std::nullopt;
    }
    if (!source.ok()) {
        return HookError::fileSystem(path, source.reason());
    }
    // Backups may hold secrets (an agent's settings can carry tokens): the folders are the user's alone.
    const QString folder = backupsDirectory();
    if (!makePrivateDirectory(QFileInfo(folder).absolutePath()) || !makePrivateDirectory(folder)) {
        return HookError::fileSystem(folder, QStringLiteral("cannot create the folder"));
    }
    const QString stem = backupStem(path);
    const QString base = folder + QLatin1Char('/') + backupName(path, now);

    // The same content twice in a row would only push older backups out.
    if (const auto newest = newestBackupOf(folder, stem)) {
        const FileRead previous = readRegularFile(*newest);
        if (previous.ok() && previous.bytes == source.bytes) {
            return std::nullopt;
        }
    }

    // Never over an earlier backup: within one second the next free suffix is taken. Made 0600, then
    // given the source's own mode, so that it is never more open than the file it copies.
    QString target = base;
    QByteArray name = encoded(target);
    int fd = ::open(name.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
    for (int n = 1; fd < 0 && errno == EEXIST && n <= sameSecondBackups; ++n) {
        target = base + QStringLiteral("-%1").arg(n, 2, 10, QLatin1Char('0'));
        name = encoded(target);
        fd = ::open(name.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
    }
    if (fd < 0) {
        return HookError::fileSystem(target, QString::fromLocal8Bit(std::strerror(errno)));
    }
    qsizetype written = 0;
    int error = 0;
    while (written < source.bytes.size()) {
        const ssize_t n = ::write(fd, source.bytes.constData() + written,
                                  static_cast<size_t>(source.bytes.size() - written));
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            error = n < 0 ? errno : EIO;
            break;
        }
        written += n;
    }
    if (error == 0 && ::fchmod(fd, source.mode & 0777) != 0) {
        error = errno;
    }
    if (::close(fd) != 0 && error == 0) {
        error = errno;
    }
    if (error != 0) {
        ::unlink(name.constData());
        return HookError::fileSystem(target, QString::fromLocal8Bit(std::strerror(error)));
    }
    pruneBackups(folder);
    return std::nullopt;
}

QString bundledBridgeTool() {
    return QCoreApplication::applicationDirPath() + QStringLiteral("/mirrowisp-bridge");
}

void refreshBridgeLink() {
    refreshBridgeLink(bundledBridgeTool());
}

void refreshBridgeLink(const QString& toolPath) {
    if (!QFileInfo::exists(toolPath)) {
        return;
    }
    const QString link = bridgeLinkPath();
    const QString bin = QFileInfo(link).absolutePath();
    if (!makePrivateDirectory(QFileInfo(bin).absolutePath()) || !QDir().mkpath(bin)) {
        return;
    }
    if (readLink(link) == toolPath) {
        return;
    }
    // A new link renamed over the old path: an agent starting a hook meanwhile finds either link whole.
    const QString fresh = link + QStringLiteral(".new");
    ::unlink(encoded(fresh).constData());
    if (::symlink(encoded(toolPath).constData(), encoded(fresh).constData()) != 0) {
        return;
    }
    if (::rename(encoded(fresh).constData(), encoded(link).constData()) != 0) {
        // Something rename can't replace, such as a folder: clear it and try once more.
        if (QFileInfo(link).isDir() && !QFileInfo(link).isSymLink()) {
            QDir(link).removeRecursively();
        }
        if (::rename(encoded(fresh).constData(), encoded(link).constData()) != 0) {
            ::unlink(encoded(fresh).constData());
        }
    }
}

} // namespace mirrowisp::HookInstaller
