#pragma once

#include "base/Clock.h"
#include "shelf/ShelfItem.h"

#include <QJsonArray>
#include <QObject>
#include <QTimer>
#include <QUrl>
#include <functional>
#include <memory>
#include <optional>

namespace mirrowisp {

class SerialQueue;

// The user's shelf: files dropped on the island, kept across restarts in "shelf.json" in the support
// folder, some grouped into stacks. Dropped files stay where they are and are found again through
// their bookmark; what had no file of its own (a text, a link, image data) is written into the
// store's own folder, "Shelf", and only those owned copies are ever deleted, with their item.
//
// Used on the main thread. The file is written on a queue of its own; a file that cannot be read as
// a shelf gives an empty shelf and is moved aside before the first write replaces it.
class ShelfStore : public QObject {
    Q_OBJECT

public:
    // Reads "shelf.json" in `supportDirectory` now; nothing on disk is touched until the first change.
    ShelfStore(QString supportDirectory, const Clock& clock, QObject* parent = nullptr);
    ~ShelfStore() override;

    // Newest first.
    const QList<ShelfItem>& items() const { return items_; }
    QList<ShelfEntry> entries() const { return shelfEntries(items_); }
    std::optional<ShelfItem> item(const QUuid& id) const;
    std::optional<ShelfEntry> entry(const QUuid& id) const;

    QString filePath() const;
    QString ownedDirectory() const;

    // Puts local files on the shelf, each once: a file already there, or twice in `urls`, is skipped,
    // as is anything that is not a local file that exists. With `stacked`, two or more accepted
    // files form one stack. Answers how many were added; nothing is written when none was.
    int add(const QList<QUrl>& urls, bool stacked);
    // Removes the item of that id; an owned copy's file goes with it.
    void remove(const QUuid& id, bool saving = true);
    // Removes every item of an entry (a stack's items all at once) and writes once.
    void removeEntry(const QUuid& entryID);
    // Lets a stack's items stand alone.
    void split(const QUuid& entryID);
    // Empties the shelf and deletes the owned copies; other files are never touched.
    void clear();

    // A path in the owned folder named `name`, or "stem 2.ext", "stem 3.ext"... when that is taken.
    // Empty when the owned folder cannot be made.
    QString uniqueURL(const QString& name) const;
    // Writes `text` into the owned folder, named after its first 24 characters; the path, or nothing.
    std::optional<QString> writeText(const QString& text) const;
    // Writes an internet shortcut to `url`, named after its host; the path, or nothing.
    std::optional<QString> writeLink(const QUrl& url) const;
    // Writes dropped data without a file of its own, such as image bytes; the path, or nothing.
    std::optional<QString> writeData(const QString& name, const QByteArray& bytes) const;

    // The path an item's bookmark leads to now, or nothing when its file has gone.
    static std::optional<QString> resolve(const ShelfItem& item);

    // A drag of an entry out of the island: watched until the mouse button is up (polled through
    // `buttonDown`) or 20 s have passed, then ended 0.3 s later. A new drag replaces a running one.
    void beginDragOut(const QUuid& entryID);
    void endDragOut();
    std::optional<QUuid> draggingEntryID() const { return draggingEntryID_; }
    void setButtonDown(std::function<bool()> buttonDown) { buttonDown_ = std::move(buttonDown); }
    // One tick of the drag watch, as its timer runs it every 0.05 s.
    void pollDragOut();

    // The shelf as `mirrowisp ctl shelf` prints it: entries in order, each with its items' current paths
    // (null when a file has gone).
    QJsonArray toJson() const;

    // Waits until what was saved is on disk.
    void flush();

Q_SIGNALS:
    void itemsChanged();
    void draggingEntryIDChanged();

private:
    void load();
    void save();
    bool isOwned(const QString& path) const;
    void deleteOwnedFile(const ShelfItem& item) const;

    struct Writer;
    QString supportDirectory_;
    const Clock& clock_;
    QList<ShelfItem> items_;
    std::shared_ptr<Writer> writer_;
    std::unique_ptr<SerialQueue> queue_;

    std::optional<Timestamp> dragOutStarted_;
    std::optional<Timestamp> dragReleasedAt_;
    std::optional<QUuid> draggingEntryID_;
    QTimer dragEndTimer_;
    std::function<bool()> buttonDown_;
};

} // namespace mirrowisp
