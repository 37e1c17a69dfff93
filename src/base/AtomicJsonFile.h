#pragma once

#include <QByteArray>
#include <QJsonDocument>
#include <QString>
#include <functional>
#include <optional>

namespace mirrowisp {

// Replaces the file at `path` with `bytes` so that a reader sees either the old content or the new,
// never a half-written file: the bytes go to a temporary file beside it, which is synced and renamed
// over the old one. A symbolic link at `path` is followed and its target replaced. The parent folder
// is created when missing. Answers the error text on failure, nothing on success; a failed write
// leaves the old file and no temporary file behind. A file that is replaced keeps its permissions.
//
// `beforeReplacing`, when given, runs once the new content is safely written beside the old and just
// before it takes the old one's place; an error it answers cancels the write. A backup taken there
// is only taken when the write can follow.
using BeforeReplacing = std::function<std::optional<QString>()>;
std::optional<QString> writeFileAtomically(const QString& path, const QByteArray& bytes,
                                           const BeforeReplacing& beforeReplacing = {});

// The same for a JSON document, written indented. Object keys come out sorted and slashes unescaped,
// which keeps hand-read files and other programs' settings files stable across rewrites.
std::optional<QString> writeJsonAtomically(const QString& path, const QJsonDocument& document,
                                           const BeforeReplacing& beforeReplacing = {});

// Moves a file that could not be read out of the way of a new one, beside it as
// "NAME.unreadable-<UTC time>" ("-2", "-3" added when taken). Moved rather than copied, so a FIFO or a
// huge file is kept without being read. Answers the new path, empty when nothing is there any more, or
// nothing when the file could not be moved (errno tells why): writing then would lose the only copy.
std::optional<QString> moveAside(const QString& path);

} // namespace mirrowisp
