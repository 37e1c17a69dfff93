#pragma once

#include "base/RegularFile.h"
#include "integration/HookInstaller.h"

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>
#include <QStringList>

// Other programs' files on a remote host, through one shell command each way: read under the same
// rules as here (regular files only, bounded), written beside and moved over, backed up first.
// The commands are built here and run by RemoteShell; every path in them is quoted.
namespace mirrowisp::RemoteFiles {

// A command printing, for each path, whether it is there and, for a regular file within the limit,
// its bytes and mode. `folders` are only tested for being folders.
QString readCommand(const QStringList& files, const QStringList& folders,
                    qint64 limit = otherProgramsFileLimit);

struct Reading {
    QList<FileRead> files; // in the order asked for
    QList<bool> folders;   // whether each is a folder
    bool complete = false; // false when the output was cut or not ours
};
Reading parseRead(const QByteArray& output, qsizetype files, qsizetype folders);

// A command that applies `edit` to `path` (the bytes come on standard input): a write goes to a
// file beside it and is moved over; a backup into `backups`, named as here, comes first when the
// edit asks for one and the file is there.
QString applyCommand(const HookInstaller::FileEdit& edit, const QString& path, const QString& backups,
                     const QDateTime& now);

} // namespace mirrowisp::RemoteFiles
