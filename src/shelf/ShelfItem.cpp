#include "shelf/ShelfItem.h"

#include <QHash>
#include <QJsonDocument>
#include <QJsonObject>

namespace mirrowisp {

namespace {

// The file counts time from 2001-01-01 UTC, as the format it shares with other builds does.
constexpr double referenceDateOffset = 978'307'200.0;

QString uuidText(const QUuid& id) {
    return id.toString(QUuid::WithoutBraces).toUpper();
}

std::optional<QUuid> uuidFrom(const QJsonValue& value) {
    if (!value.isString()) {
        return std::nullopt;
    }
    const QUuid id = QUuid::fromString(value.toString());
    if (id.isNull()) {
        return std::nullopt;
    }
    return id;
}

std::optional<ShelfItem> decodeItem(const QJsonValue& value) {
    const QJsonObject object = value.toObject();
    const auto id = uuidFrom(object.value(QStringLiteral("id")));
    const QJsonValue bookmark = object.value(QStringLiteral("bookmark"));
    const QJsonValue name = object.value(QStringLiteral("name"));
    const QJsonValue addedAt = object.value(QStringLiteral("addedAt"));
    const QJsonValue owned = object.value(QStringLiteral("isOwnedCopy"));
    if (!value.isObject() || !id || !bookmark.isString() || !name.isString() || !addedAt.isDouble() ||
        !owned.isBool()) {
        return std::nullopt;
    }
    const auto decoded = QByteArray::fromBase64Encoding(bookmark.toString().toLatin1(),
                                                        QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded) {
        return std::nullopt;
    }
    ShelfItem item{*id, *decoded, name.toString(), addedAt.toDouble() + referenceDateOffset, owned.toBool(),
                   {}};
    if (object.contains(QStringLiteral("stackID"))) {
        const QJsonValue stack = object.value(QStringLiteral("stackID"));
        if (!stack.isNull()) {
            item.stackID = uuidFrom(stack);
            if (!item.stackID) {
                return std::nullopt;
            }
        }
    }
    return item;
}

} // namespace

QJsonArray encodeShelfItems(const QList<ShelfItem>& items) {
    QJsonArray array;
    for (const ShelfItem& item : items) {
        QJsonObject object{
            {QStringLiteral("id"), uuidText(item.id)},
            {QStringLiteral("bookmark"), QString::fromLatin1(item.bookmark.toBase64())},
            {QStringLiteral("name"), item.name},
            {QStringLiteral("addedAt"), item.addedAt - referenceDateOffset},
            {QStringLiteral("isOwnedCopy"), item.isOwnedCopy},
        };
        if (item.stackID) {
            object.insert(QStringLiteral("stackID"), uuidText(*item.stackID));
        }
        array.append(object);
    }
    return array;
}

std::optional<QList<ShelfItem>> decodeShelfItems(const QByteArray& json) {
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !document.isArray()) {
        return std::nullopt;
    }
    QList<ShelfItem> items;
    const QJsonArray array = document.array();
    items.reserve(array.size());
    for (const QJsonValue& value : array) {
        auto item = decodeItem(value);
        if (!item) {
            return std::nullopt;
        }
        items.append(std::move(*item));
    }
    return items;
}

QList<ShelfEntry> shelfEntries(const QList<ShelfItem>& items) {
    QList<ShelfEntry> entries;
    QHash<QUuid, qsizetype> stackAt;
    for (const ShelfItem& item : items) {
        if (!item.stackID) {
            entries.append(ShelfEntry{item.id, {item}});
            continue;
        }
        const auto found = stackAt.constFind(*item.stackID);
        if (found != stackAt.constEnd()) {
            entries[*found].items.append(item);
        } else {
            stackAt.insert(*item.stackID, entries.size());
            entries.append(ShelfEntry{*item.stackID, {item}});
        }
    }
    return entries;
}

} // namespace mirrowisp
