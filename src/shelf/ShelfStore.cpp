#include "shelf/ShelfStore.h"

#include "base/AtomicJsonFile.h"
#include "base/Log.h"
#include "base/RegularFile.h"
#include "base/SerialQueue.h"
#include "shelf/ShelfBookmark.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHostInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>
#include <cstdio>
#include <future>

namespace mirrowisp {

namespace {

// A shelf of tens of thousands of items still fits; anything larger is not ours.
constexpr qint64 shelfFileLimit = 64 * 1024 * 1024;
constexpr double dragPollSeconds = 0.05;
constexpr double dragLongestSeconds = 20.0;
constexpr double dragSettleSeconds = 0.3;

QString standardized(const QString& path) {
    return QDir::cleanPath(QDir(path).absolutePath());
}

// A file URL of this machine: no host, "localhost" or our own name. Another host's file is not here.
std::optional<QString> localPath(const QUrl& url) {
    if (!url.isLocalFile()) {
        return std::nullopt;
    }
    const QString host = url.host();
    if (!host.isEmpty() && host.compare(QStringLiteral("localhost"), Qt::CaseInsensitive) != 0 &&
        host.compare(QHostInfo::localHostName(), Qt::CaseInsensitive) != 0) {
        return std::nullopt;
    }
    return standardized(url.path());
}

} // namespace

struct ShelfStore::Writer {
    QString filePath;
    std::optional<QString> unreadable; // why the file found at start could not be used
    std::optional<QString> lastError;

    void write(const QByteArray& json) {
        if (unreadable && !keepUnreadableFile()) {
            return;
        }
        const auto error = writeFileAtomically(filePath, json);
        if (error && error != lastError) {
            logLine(QStringLiteral("Mirrowisp: shelf write failed: ") + *error);
        }
        lastError = error;
    }

    bool keepUnreadableFile() {
        const auto aside = moveAside(filePath);
        if (!aside) {
            return false; // writing now would lose the only copy
        }
        if (!aside->isEmpty()) {
            logLine(QStringLiteral("Mirrowisp: shelf file %1 was unreadable (%2); kept it as %3")
                        .arg(filePath, *unreadable, *aside));
        }
        unreadable.reset();
        return true;
    }
};

ShelfStore::ShelfStore(QString supportDirectory, const Clock& clock, QObject* parent)
    : QObject(parent), supportDirectory_(std::move(supportDirectory)), clock_(clock),
      writer_(std::make_shared<Writer>()), queue_(std::make_unique<SerialQueue>("mw-shelf")) {
    writer_->filePath = filePath();
    dragEndTimer_.setInterval(static_cast<int>(dragPollSeconds * 1000));
    connect(&dragEndTimer_, &QTimer::timeout, this, &ShelfStore::pollDragOut);
    load();
}

ShelfStore::~ShelfStore() {
    flush();
}

QString ShelfStore::filePath() const {
    return supportDirectory_ + QStringLiteral("/shelf.json");
}

QString ShelfStore::ownedDirectory() const {
    return supportDirectory_ + QStringLiteral("/Shelf");
}

void ShelfStore::load() {
    const FileRead read = readRegularFile(filePath(), shelfFileLimit);
    if (read.status == FileRead::Status::missing) {
        return;
    }
    auto decoded = read.ok() ? decodeShelfItems(read.bytes) : std::nullopt;
    if (!decoded) {
        writer_->unreadable = read.ok() ? QStringLiteral("not a shelf") : read.reason();
        return;
    }
    items_ = std::move(*decoded);
}

void ShelfStore::save() {
    const QByteArray json = QJsonDocument(encodeShelfItems(items_)).toJson(QJsonDocument::Indented);
    queue_->async([writer = writer_, json] { writer->write(json); });
}

void ShelfStore::flush() {
    std::promise<void> done;
    queue_->async([&done] { done.set_value(); });
    done.get_future().wait();
}

std::optional<ShelfItem> ShelfStore::item(const QUuid& id) const {
    for (const ShelfItem& item : items_) {
        if (item.id == id) {
            return item;
        }
    }
    return std::nullopt;
}

std::optional<ShelfEntry> ShelfStore::entry(const QUuid& id) const {
    for (const ShelfEntry& entry : entries()) {
        if (entry.id == id) {
            return entry;
        }
    }
    return std::nullopt;
}

std::optional<QString> ShelfStore::resolve(const ShelfItem& item) {
    return resolveShelfBookmark(item.bookmark);
}

bool ShelfStore::isOwned(const QString& path) const {
    return path.startsWith(ownedDirectory() + QLatin1Char('/'));
}

int ShelfStore::add(const QList<QUrl>& urls, bool stacked) {
    // Every item's file is looked up once per drop rather than once per dropped file: the same
    // answers, without a drop of twenty files on a long shelf resolving every bookmark twenty times.
    QSet<QString> present;
    for (const ShelfItem& item : items_) {
        if (const auto path = resolve(item)) {
            present.insert(standardized(*path));
        }
    }
    QList<ShelfItem> accepted;
    const Timestamp now = clock_.now();
    for (const QUrl& url : urls) {
        const auto path = localPath(url);
        if (!path) {
            continue;
        }
        auto bookmark = makeShelfBookmark(*path);
        if (!bookmark || present.contains(*path)) {
            continue;
        }
        present.insert(*path);
        accepted.append(ShelfItem{QUuid::createUuid(), std::move(*bookmark), QFileInfo(*path).fileName(), now,
                                  isOwned(*path), std::nullopt});
    }
    if (accepted.isEmpty()) {
        return 0;
    }
    if (stacked && accepted.size() > 1) {
        const QUuid stack = QUuid::createUuid();
        for (ShelfItem& item : accepted) {
            item.stackID = stack;
        }
    }
    items_ = accepted + items_;
    save();
    Q_EMIT itemsChanged();
    return static_cast<int>(accepted.size());
}

void ShelfStore::deleteOwnedFile(const ShelfItem& item) const {
    if (!item.isOwnedCopy) {
        return;
    }
    // Only inside the owned folder, whatever the token says now.
    if (const auto path = resolve(item); path && isOwned(standardized(*path))) {
        QFile::remove(*path);
    }
}

void ShelfStore::remove(const QUuid& id, bool saving) {
    const auto found = item(id);
    if (!found) {
        return;
    }
    items_.removeIf([&](const ShelfItem& item) { return item.id == id; });
    deleteOwnedFile(*found);
    if (saving) {
        save();
    }
    Q_EMIT itemsChanged();
}

void ShelfStore::removeEntry(const QUuid& entryID) {
    const auto found = entry(entryID);
    if (!found) {
        return;
    }
    for (const ShelfItem& item : found->items) {
        remove(item.id, false);
    }
    save();
}

void ShelfStore::split(const QUuid& entryID) {
    const auto found = entry(entryID);
    if (!found) {
        return;
    }
    QSet<QUuid> ids;
    for (const ShelfItem& item : found->items) {
        ids.insert(item.id);
    }
    for (ShelfItem& item : items_) {
        if (ids.contains(item.id)) {
            item.stackID.reset();
        }
    }
    save();
    Q_EMIT itemsChanged();
}

void ShelfStore::clear() {
    for (const ShelfItem& item : items_) {
        deleteOwnedFile(item);
    }
    items_.clear();
    save();
    Q_EMIT itemsChanged();
}

QString ShelfStore::uniqueURL(const QString& name) const {
    const QString folder = ownedDirectory();
    if (!QDir().mkpath(folder)) {
        return {};
    }
    // The extension is what follows the last dot, as long as something comes before it.
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    const QString stem = dot > 0 ? name.left(dot) : name;
    const QString extension = dot > 0 ? name.mid(dot) : QString();
    QString candidate = folder + QLatin1Char('/') + name;
    for (int n = 2; QFileInfo::exists(candidate) || QFileInfo(candidate).isSymLink(); ++n) {
        candidate = folder + QLatin1Char('/') + stem + QStringLiteral(" %1").arg(n) + extension;
    }
    return candidate;
}

std::optional<QString> ShelfStore::writeData(const QString& name, const QByteArray& bytes) const {
    QString safe = name;
    safe.replace(QLatin1Char('/'), QLatin1Char('-'));
    safe.remove(QChar(0));
    if (safe.isEmpty() || safe == QStringLiteral(".") || safe == QStringLiteral("..")) {
        safe = QStringLiteral("Dropped");
    }
    const QString path = uniqueURL(safe);
    if (path.isEmpty() || writeFileAtomically(path, bytes)) {
        return std::nullopt;
    }
    return path;
}

std::optional<QString> ShelfStore::writeText(const QString& text) const {
    QString base = text.left(24);
    base.replace(QLatin1Char('/'), QLatin1Char('-'));
    base = base.trimmed();
    if (base.isEmpty()) {
        base = QStringLiteral("Text");
    }
    return writeData(base + QStringLiteral(".txt"), text.toUtf8());
}

std::optional<QString> ShelfStore::writeLink(const QUrl& url) const {
    const QString host = url.host();
    const QString name = (host.isEmpty() ? QStringLiteral("Link") : host) + QStringLiteral(".url");
    const QByteArray content = "[InternetShortcut]\nURL=" + url.toEncoded() + '\n';
    return writeData(name, content);
}

QJsonArray ShelfStore::toJson() const {
    QJsonArray entries;
    for (const ShelfEntry& entry : this->entries()) {
        QJsonArray items;
        for (const ShelfItem& item : entry.items) {
            const auto path = resolve(item);
            items.append(QJsonObject{{QStringLiteral("id"), item.id.toString(QUuid::WithoutBraces)},
                                     {QStringLiteral("name"), item.name},
                                     {QStringLiteral("path"), path ? QJsonValue(*path) : QJsonValue()},
                                     {QStringLiteral("addedAt"), item.addedAt},
                                     {QStringLiteral("isOwnedCopy"), item.isOwnedCopy}});
        }
        entries.append(QJsonObject{{QStringLiteral("id"), entry.id.toString(QUuid::WithoutBraces)},
                                   {QStringLiteral("stack"), entry.items.front().stackID.has_value()},
                                   {QStringLiteral("items"), items}});
    }
    return entries;
}

void ShelfStore::beginDragOut(const QUuid& entryID) {
    dragOutStarted_ = clock_.now();
    dragReleasedAt_.reset();
    if (draggingEntryID_ != entryID) {
        draggingEntryID_ = entryID;
        Q_EMIT draggingEntryIDChanged();
    }
    dragEndTimer_.start();
}

void ShelfStore::pollDragOut() {
    if (!dragOutStarted_) {
        dragEndTimer_.stop();
        return;
    }
    const Timestamp now = clock_.now();
    if (!dragReleasedAt_) {
        const bool held = buttonDown_ && buttonDown_();
        if (held && now - *dragOutStarted_ <= dragLongestSeconds) {
            return;
        }
        dragReleasedAt_ = now;
    }
    // The drop lands a moment after the button comes up; the entry stays marked until then.
    if (now - *dragReleasedAt_ >= dragSettleSeconds) {
        endDragOut();
    }
}

void ShelfStore::endDragOut() {
    dragOutStarted_.reset();
    dragReleasedAt_.reset();
    dragEndTimer_.stop();
    if (draggingEntryID_) {
        draggingEntryID_.reset();
        Q_EMIT draggingEntryIDChanged();
    }
}

} // namespace mirrowisp
