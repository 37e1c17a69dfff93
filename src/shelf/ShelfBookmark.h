#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

namespace mirrowisp {

// A token that finds a file again after it was renamed or moved within its folder: the path with the
// file system's device and inode numbers, and the file's birth time where the file system keeps one
// (so a new file that took over a deleted one's inode is not taken for it). Opaque to everyone but
// this pair of functions.
std::optional<QByteArray> makeShelfBookmark(const QString& path);

// The path the token names now: the stored path while it is the same file; else the file of that
// inode found in the old folder (searched to a bounded depth and count); else the stored path as it
// stands while something is there (an editor that saves by replacing keeps the name, not the inode).
// Nothing when the file is gone or the token is not one of ours.
std::optional<QString> resolveShelfBookmark(const QByteArray& bookmark);

// The stored path, without touching the file system; empty when the token is not ours.
QString shelfBookmarkPath(const QByteArray& bookmark);

} // namespace mirrowisp
