#pragma once

#include "base/Clock.h"

#include <QByteArray>
#include <QJsonArray>
#include <QList>
#include <QString>
#include <QUuid>
#include <optional>

namespace mirrowisp {

// One file on the shelf. The file is found again through `bookmark` (ShelfBookmark); `name` is the
// file's name when it was added, for display when the file has gone.
struct ShelfItem {
    QUuid id;
    QByteArray bookmark;
    QString name;
    Timestamp addedAt = 0; // seconds since the Unix epoch
    bool isOwnedCopy = false;
    std::optional<QUuid> stackID;

    bool operator==(const ShelfItem&) const = default;
};

// What the shelf shows: a single item, or a stack under the stack's id.
struct ShelfEntry {
    QUuid id;
    QList<ShelfItem> items;

    bool isStack() const { return items.size() > 1 || (items.size() == 1 && items.front().stackID); }
};

// The file's form: an array of objects, ids as upper-case UUID strings, the bookmark in base64 and
// addedAt in seconds since 2001-01-01 UTC. One object that does not decode gives nothing at all.
QJsonArray encodeShelfItems(const QList<ShelfItem>& items);
std::optional<QList<ShelfItem>> decodeShelfItems(const QByteArray& json);

// Groups items into entries in one pass, keeping their order; a stack stands where its first item is.
QList<ShelfEntry> shelfEntries(const QList<ShelfItem>& items);

} // namespace mirrowisp
