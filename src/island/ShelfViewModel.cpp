#include "island/ShelfViewModel.h"

#include "agents/AgentSession.h"
#include "app/AppModel.h"
#include "app/Preferences.h"
#include "app/ShelfActions.h"
#include "island/ShelfThumbnails.h"
#include "shelf/ShelfConversionJob.h"
#include "shelf/ShelfDrop.h"

#include <QCursor>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDesktopServices>
#include <QFileInfo>
#include <QGuiApplication>
#include <QMimeDatabase>
#include <QQmlEngine>
#include <QUrl>

namespace mirrowisp {

namespace {

QPointer<AppModel> shared;

QUuid idFrom(const QString& text) {
    return QUuid::fromString(text);
}

// "image", "video", "audio", "pdf", "text", "folder", "archive" or "file": the tile's icon.
QString kindOf(const QString& path) {
    if (QFileInfo(path).isDir()) {
        return QStringLiteral("folder");
    }
    const QMimeType type = QMimeDatabase().mimeTypeForFile(path);
    const QString name = type.name();
    for (const char* kind : {"image", "video", "audio", "text"}) {
        if (name.startsWith(QLatin1StringView(kind) + QLatin1Char('/'))) {
            return QLatin1StringView(kind);
        }
    }
    if (name == QLatin1StringView("application/pdf")) {
        return QStringLiteral("pdf");
    }
    if (type.inherits(QStringLiteral("application/zip")) || name.contains(QLatin1StringView("tar"))) {
        return QStringLiteral("archive");
    }
    return QStringLiteral("file");
}

} // namespace

ShelfViewModel::ShelfViewModel(AppModel* app, QObject* parent) : QAbstractListModel(parent), app_(app) {
    if (app_ == nullptr) {
        return;
    }
    connect(&app_->shelf(), &ShelfStore::itemsChanged, this, [this] { rebuild(false); });
    connect(&app_->prefs(), &Preferences::shelfEnabledChanged, this, &ShelfViewModel::enabledChanged);
    connect(&app_->shelf(), &ShelfStore::draggingEntryIDChanged, this, &ShelfViewModel::draggingEntryChanged);
    app_->shelf().setButtonDown([] { return QGuiApplication::mouseButtons().testFlag(Qt::LeftButton); });
    refresh();
}

void ShelfViewModel::setShared(AppModel* app) {
    shared = app;
}

ShelfViewModel* ShelfViewModel::create(QQmlEngine* engine, QJSEngine*) {
    // The tiles' pictures come from the engine's providers; the engine owns them and the model.
    if (engine != nullptr && engine->imageProvider(QStringLiteral("shelf")) == nullptr) {
        engine->addImageProvider(QStringLiteral("shelf"), new ShelfThumbnailProvider);
        engine->addImageProvider(QStringLiteral("shelficon"), new ShelfIconProvider);
    }
    return new ShelfViewModel(shared);
}

namespace {

QString rowKey(const ShelfEntry& entry) {
    QString key = entry.id.toString(QUuid::WithoutBraces);
    for (const ShelfItem& item : entry.items) {
        key += QLatin1Char(' ') + item.id.toString(QUuid::WithoutBraces);
    }
    return key;
}

} // namespace

ShelfViewModel::Row ShelfViewModel::rowFor(const ShelfEntry& entry) {
    Row row;
    row.key = rowKey(entry);
    row.entryID = entry.id.toString(QUuid::WithoutBraces);
    row.itemCount = static_cast<int>(entry.items.size());
    row.name = entry.items.size() == 1 ? entry.items.front().name : tr("%n items", nullptr, row.itemCount);
    for (const ShelfItem& item : entry.items) {
        if (const auto path = ShelfStore::resolve(item)) {
            row.paths.append(*path);
        }
    }
    const auto first = ShelfStore::resolve(entry.items.front());
    row.missing = !first.has_value();
    if (!first) {
        row.kind = QStringLiteral("missing");
        return row;
    }
    const QFileInfo info(*first);
    row.kind = kindOf(*first);
    // Whether the thumbnail is current is the loader's to find out, off this thread; the view falls back
    // to the icon when it finds none.
    if (info.isFile() &&
        (row.kind == QLatin1StringView("image") || ShelfThumbnails::hasCachedThumbnail(*first))) {
        row.thumbnail = ShelfThumbnails::source(*first, info.lastModified());
    }
    if (const auto icon = ShelfThumbnails::iconName(*first)) {
        row.icon = ShelfThumbnails::iconSource(*icon);
    }
    return row;
}

void ShelfViewModel::refresh() {
    rebuild(true);
}

void ShelfViewModel::rebuild(bool lookAgain) {
    const int before = rowCount();
    QHash<QString, Row> previous;
    if (!lookAgain) {
        for (Row& row : rows_) {
            previous.insert(row.key, std::move(row));
        }
    }
    beginResetModel();
    rows_.clear();
    if (app_ != nullptr) {
        for (const ShelfEntry& entry : app_->shelf().entries()) {
            const auto kept = previous.find(rowKey(entry));
            rows_.push_back(kept != previous.end() ? std::move(*kept) : rowFor(entry));
        }
    }
    endResetModel();
    if (rowCount() != before) {
        Q_EMIT countChanged();
    }
}

int ShelfViewModel::rowOf(const QString& entryID) const {
    for (size_t i = 0; i < rows_.size(); ++i) {
        if (rows_[i].entryID == entryID) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

int ShelfViewModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(rows_.size());
}

QVariant ShelfViewModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= rowCount()) {
        return {};
    }
    const Row& row = rows_[static_cast<size_t>(index.row())];
    switch (role) {
    case EntryIdRole:
        return row.entryID;
    case NameRole:
        return row.name;
    case ItemCountRole:
        return row.itemCount;
    case UrlsRole: {
        QString list;
        for (const QString& path : row.paths) {
            list += QString::fromUtf8(QUrl::fromLocalFile(path).toEncoded()) + QStringLiteral("\r\n");
        }
        return list;
    }
    case ThumbnailRole:
        return row.thumbnail;
    case KindRole:
        return row.kind;
    case MissingRole:
        return row.missing;
    case IconRole:
        return row.icon;
    case ProgressRole:
        return progress_.value(row.entryID, -1.0);
    default:
        return {};
    }
}

QHash<int, QByteArray> ShelfViewModel::roleNames() const {
    return {{EntryIdRole, "entryId"}, {NameRole, "name"},           {ItemCountRole, "itemCount"},
            {UrlsRole, "uriList"},    {ThumbnailRole, "thumbnail"}, {KindRole, "kind"},
            {MissingRole, "missing"}, {IconRole, "icon"},           {ProgressRole, "progress"}};
}

void ShelfViewModel::setProgress(const QString& entryID, std::optional<double> fraction) {
    if (fraction) {
        progress_.insert(entryID, std::clamp(*fraction, 0.0, 1.0));
    } else if (progress_.remove(entryID) == 0) {
        return;
    }
    if (const int row = rowOf(entryID); row >= 0) {
        Q_EMIT dataChanged(index(row), index(row), {ProgressRole});
    }
}

void ShelfViewModel::cancel(const QString& entryID) {
    if (const QPointer<ShelfConversionJob> job = jobs_.value(entryID)) {
        job->cancel();
    }
}

bool ShelfViewModel::enabled() const {
    return app_ != nullptr && app_->prefs().shelfEnabled();
}

QString ShelfViewModel::draggingEntry() const {
    if (app_ == nullptr || !app_->shelf().draggingEntryID()) {
        return {};
    }
    return app_->shelf().draggingEntryID()->toString(QUuid::WithoutBraces);
}

int ShelfViewModel::drop(const QList<QUrl>& urls, const QString& mozURL, const QString& text,
                         const QString& imageType, const QByteArray& imageBytes) {
    if (app_ == nullptr) {
        return 0;
    }
    const QList<QUrl> files =
        shelfDropFiles(app_->shelf(), ShelfDrop{urls, mozURL, text, imageType, imageBytes});
    return app_->addToShelf(files, true);
}

QStringList ShelfViewModel::paths(const QString& entryID) const {
    QStringList list;
    if (app_ == nullptr) {
        return list;
    }
    if (const auto entry = app_->shelf().entry(idFrom(entryID))) {
        for (const ShelfItem& item : entry->items) {
            if (const auto path = ShelfStore::resolve(item)) {
                list.append(*path);
            }
        }
    }
    return list;
}

void ShelfViewModel::open(const QString& entryID) {
    for (const QString& path : paths(entryID)) {
        QDesktopServices::openUrl(QUrl::fromLocalFile(path));
    }
}

void ShelfViewModel::showInFolder(const QString& entryID) {
    const QStringList list = paths(entryID);
    if (list.isEmpty()) {
        return;
    }
    QStringList uris;
    for (const QString& path : list) {
        uris.append(QUrl::fromLocalFile(path).toString());
    }
    // The file manager selects the files where it can; otherwise the folder opens.
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("/org/freedesktop/FileManager1"),
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
    call << uris << QString();
    const QString folder = QFileInfo(list.front()).path();
    auto* watcher = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [folder](QDBusPendingCallWatcher* done) {
        if (done->isError()) {
            QDesktopServices::openUrl(QUrl::fromLocalFile(folder));
        }
        done->deleteLater();
    });
}

void ShelfViewModel::remove(const QString& entryID) {
    if (app_ != nullptr) {
        app_->shelf().removeEntry(idFrom(entryID));
    }
}

void ShelfViewModel::split(const QString& entryID) {
    if (app_ != nullptr) {
        app_->shelf().split(idFrom(entryID));
    }
}

void ShelfViewModel::clear() {
    if (app_ != nullptr) {
        app_->shelf().clear();
    }
}

QString ShelfViewModel::uriList(const QString& entryID) const {
    QString list;
    for (const QString& path : paths(entryID)) {
        list += QString::fromUtf8(QUrl::fromLocalFile(path).toEncoded()) + QStringLiteral("\r\n");
    }
    return list;
}

QVariantList ShelfViewModel::conversions(const QString& entryID) const {
    using ShelfConverter::Conversion;
    QVariantList list;
    const QStringList files = paths(entryID);
    if (files.isEmpty()) {
        return list;
    }
    QList<Conversion> offered = ShelfConverter::formats(files);
    offered.append(Conversion{Conversion::Kind::zip, {}});
    if (ShelfConverter::canCombine(files)) {
        offered.append(Conversion{Conversion::Kind::combinePDF, {}});
    }
    for (const Conversion& conversion : offered) {
        list.append(QVariantMap{{QStringLiteral("title"), conversion.title()},
                                {QStringLiteral("key"), conversion.key()}});
    }
    return list;
}

void ShelfViewModel::convert(const QString& entryID, const QString& key) {
    const auto conversion = ShelfConverter::Conversion::fromKey(key);
    if (app_ == nullptr || !conversion) {
        return;
    }
    QPointer<ShelfViewModel> weak(this);
    ShelfConversionJob* job = ShelfActions::convert(
        *app_, idFrom(entryID), *conversion, [weak, entryID](const ShelfConverter::Report& report) {
            if (!weak) {
                return;
            }
            weak->jobs_.remove(entryID);
            weak->setProgress(entryID, std::nullopt);
            if (!report.failures.isEmpty() && !report.cancelled) {
                Q_EMIT weak->noticed(QStringLiteral("Couldn't convert ") +
                                     report.failures.join(QStringLiteral("; ")));
            }
        });
    if (job == nullptr) {
        return;
    }
    jobs_.insert(entryID, job);
    setProgress(entryID, 0);
    connect(job, &ShelfConversionJob::progressed, this,
            [this, job, entryID] { setProgress(entryID, job->fraction()); });
}

QVariantList ShelfViewModel::sessions() const {
    QVariantList list;
    if (app_ == nullptr) {
        return list;
    }
    for (const auto& session : app_->agents().sessions()) {
        list.append(QVariantMap{{QStringLiteral("title"), session->projectName()},
                                {QStringLiteral("id"), session->id()}});
    }
    return list;
}

void ShelfViewModel::send(const QString& entryID, const QString& sessionID) {
    if (app_ == nullptr) {
        return;
    }
    for (const auto& session : app_->agents().sessions()) {
        if (session->id() == sessionID) {
            QPointer<ShelfViewModel> weak(this);
            ShelfActions::send(*app_, idFrom(entryID), *session, [weak](const QString& how) {
                if (weak && how == QLatin1StringView("clipboard")) {
                    Q_EMIT weak->noticed(QStringLiteral("Path copied: paste it into the agent's terminal"));
                }
            });
            return;
        }
    }
}

void ShelfViewModel::beginDragOut(const QString& entryID) {
    if (app_ != nullptr) {
        app_->shelf().beginDragOut(idFrom(entryID));
    }
}

void ShelfViewModel::endDragOut() {
    if (app_ != nullptr) {
        app_->shelf().endDragOut();
    }
}

} // namespace mirrowisp
