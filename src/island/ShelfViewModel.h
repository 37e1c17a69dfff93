#pragma once

#include <QAbstractListModel>
#include <QPointer>
#include <QStringList>
#include <QVariant>
#include <QtQml/qqmlregistration.h>
#include <vector>

class QQmlEngine;
class QJSEngine;

namespace mirrowisp {

class AppModel;
class ShelfConversionJob;
struct ShelfEntry;

// The shelf tab's tiles, one row per entry (a file, or a stack), and what the tiles and drops do.
// One per QML engine; all read the app's shelf.
class ShelfViewModel : public QAbstractListModel {
    Q_OBJECT
    QML_NAMED_ELEMENT(Shelf)
    QML_SINGLETON
    Q_PROPERTY(int count READ rowCount NOTIFY countChanged)
    Q_PROPERTY(QString draggingEntry READ draggingEntry NOTIFY draggingEntryChanged)
    // Whether the user keeps a shelf: drops on the island are taken only then.
    Q_PROPERTY(bool enabled READ enabled NOTIFY enabledChanged)

public:
    enum Role {
        EntryIdRole = Qt::UserRole + 1,
        NameRole,
        ItemCountRole,
        UrlsRole,
        ThumbnailRole,
        KindRole,
        MissingRole,
        IconRole,
        ProgressRole
    };

    explicit ShelfViewModel(AppModel* app, QObject* parent = nullptr);

    // The app the views of every engine made from now on read; the island shell sets it.
    static void setShared(AppModel* app);
    static ShelfViewModel* create(QQmlEngine* engine, QJSEngine*);

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;
    QString draggingEntry() const;
    bool enabled() const;

    // A drop on the island: the drag's URI list, link, text and image data as the view has them.
    // Answers how many files arrived.
    Q_INVOKABLE int drop(const QList<QUrl>& urls, const QString& mozURL, const QString& text,
                         const QString& imageType, const QByteArray& imageBytes);
    Q_INVOKABLE void open(const QString& entryID);
    Q_INVOKABLE void showInFolder(const QString& entryID);
    Q_INVOKABLE void remove(const QString& entryID);
    Q_INVOKABLE void split(const QString& entryID);
    Q_INVOKABLE void clear();
    // The entry's files as text/uri-list, for a drag out.
    Q_INVOKABLE QString uriList(const QString& entryID) const;
    // The conversions that suit the entry's files, as maps with "title" and "key", ZIP and PDF last.
    Q_INVOKABLE QVariantList conversions(const QString& entryID) const;
    Q_INVOKABLE void convert(const QString& entryID, const QString& key);
    // The running agent sessions as maps with "title" and "id", for "Send to".
    Q_INVOKABLE QVariantList sessions() const;
    Q_INVOKABLE void send(const QString& entryID, const QString& sessionID);
    Q_INVOKABLE void beginDragOut(const QString& entryID);
    Q_INVOKABLE void endDragOut();
    // Looks at the files again: whether they are still there, their kinds and pictures. The tiles
    // read what was found then, so showing them touches no file.
    Q_INVOKABLE void refresh();

    // How far the entry's conversion has come, 0..1; nothing clears the bar.
    void setProgress(const QString& entryID, std::optional<double> fraction);
    // The tile's menu gave up on the entry's conversion.
    Q_INVOKABLE void cancel(const QString& entryID);

Q_SIGNALS:
    void countChanged();
    void draggingEntryChanged();
    void enabledChanged();
    // Something the shelf tells the user for a moment: a path that went to the clipboard, a conversion
    // that failed.
    void noticed(const QString& text);

private:
    // What a tile shows, as of the last look at the files.
    struct Row {
        QString key; // the entry and its items: a row is looked at again only when this changes
        QString entryID;
        QString name;
        int itemCount = 0;
        QStringList paths; // the files found, in the entry's order
        QString kind;
        QString thumbnail;
        QString icon;
        bool missing = false;
    };

    QStringList paths(const QString& entryID) const;
    static Row rowFor(const ShelfEntry& entry);
    // Makes the rows anew from the store; `lookAgain` looks at every file, else only at new entries.
    void rebuild(bool lookAgain);
    int rowOf(const QString& entryID) const;

    QPointer<AppModel> app_;
    std::vector<Row> rows_;
    QHash<QString, double> progress_;
    QHash<QString, QPointer<ShelfConversionJob>> jobs_; // entry id -> its running conversion
};

} // namespace mirrowisp
