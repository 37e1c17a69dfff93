// The backups taken before every change to an agent's file, and the link hooks run the tool through.

#include "integration/HookInstaller.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <unistd.h>

namespace mirrowisp::HookInstaller {

namespace {

void pruneBackups(const QString& folder) {
    // Backups are written once and never changed, so their modification time is when they were made.
    // An entry without a time counts as the oldest. Errors here are of no consequence.
    QFileInfoList entries =
        QDir(folder).entryInfoList(QDir::Files | QDir::System | QDir::Hidden | QDir::NoDotAndDotDot);
    std::stable_sort(entries.begin(), entries.end(), [](const QFileInfo& a, const QFileInfo& b) {
        const QDateTime left = a.lastModified();
        const QDateTime right = b.lastModified();
        if (left.isValid() != right.isValid()) {
            return left.isValid();
        }
        return left > right;
    });
    for (qsizetype i = keptBackups; i < entries.size(); ++i) {
        QFile::remove(entries.at(i).filePath());
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

HookResult backup(const QString& path) {
    return backup(path, QDateTime::currentDateTimeUtc());
}

HookResult backup(const QString& path, const QDateTime& now) {
    const QFileInfo info(path);
    if (!info.exists()) {
        return std::nullopt;
    }
    const QString folder = backupsDirectory();
    if (!QDir().mkpath(folder)) {
        return HookError::fileSystem(folder, QStringLiteral("cannot create the folder"));
    }
    QString stamp = now.toUTC().toString(Qt::ISODate); // 2026-01-31T09:15:00Z
    stamp.replace(QLatin1Char(':'), QLatin1Char('-'));
    QString prefix = info.absoluteDir().dirName();
    while (prefix.startsWith(QLatin1Char('.'))) {
        prefix.remove(0, 1);
    }
    while (prefix.endsWith(QLatin1Char('.'))) {
        prefix.chop(1);
    }
    const QString target =
        folder + QLatin1Char('/') + prefix + QLatin1Char('-') + info.fileName() + QLatin1Char('-') + stamp;

    QFile source(path);
    if (!source.open(QIODevice::ReadOnly)) {
        return HookError::fileSystem(path, source.errorString());
    }
    const QByteArray bytes = source.readAll();
    if (source.error() != QFileDevice::NoError) {
        return HookError::fileSystem(path, source.errorString());
    }
    // Two backups of one file within a second collide: the copy fails and the change is not made,
    // rather than losing the earlier backup.
    QFile copy(target);
    if (!copy.open(QIODevice::WriteOnly | QIODevice::NewOnly)) {
        return HookError::fileSystem(target, copy.errorString());
    }
    if (copy.write(bytes) != bytes.size() || !copy.flush()) {
        const QString error = copy.errorString();
        copy.close();
        QFile::remove(target);
        return HookError::fileSystem(target, error);
    }
    copy.close();
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
    if (!QDir().mkpath(QFileInfo(link).absolutePath())) {
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
