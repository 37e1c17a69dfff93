#pragma once

#include <QByteArray>
#include <QString>
#include <sys/types.h>

namespace mirrowisp {

// Other programs' files are read through here: only a regular file, and only up to a limit, so that a
// FIFO can't hang the caller and a link to a device or a runaway file can't exhaust memory.
struct FileRead {
    enum class Status {
        ok,
        missing,    // nothing at the path (or a dangling link)
        notRegular, // a folder, FIFO, socket or device, directly or through a link
        tooLarge,   // over the limit; nothing of it was kept
        failed,     // the system refused: permissions, I/O
    };
    Status status = Status::missing;
    QByteArray bytes; // ok only
    mode_t mode = 0;  // the permission bits, when the file was opened
    QString error;    // failed only: the system's words

    bool ok() const { return status == Status::ok; }
    // A short reason for the user, such as "too large to read"; empty when ok.
    QString reason() const;
};

inline constexpr qint64 otherProgramsFileLimit = 16 * 1024 * 1024;

FileRead readRegularFile(const QString& path, qint64 limit = otherProgramsFileLimit);

// Creates the folder and any missing parents, and makes the folder itself 0700 whether it was there
// already or not. Answers false when it can't be made a private folder.
bool makePrivateDirectory(const QString& path);

} // namespace mirrowisp
