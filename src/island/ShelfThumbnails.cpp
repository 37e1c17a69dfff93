#include "island/ShelfThumbnails.h"

#include "base/RegularFile.h"
#include "island/PngText.h"

#include <QCache>
#include <QCryptographicHash>
#include <QDir>
#include <QFileInfo>
#include <QIcon>
#include <QImageReader>
#include <QMimeDatabase>
#include <QMutex>
#include <QStandardPaths>
#include <QUrl>
#include <algorithm>

namespace mirrowisp {

namespace ShelfThumbnails {

namespace {

QString cacheRoot() {
    const QString xdg = qEnvironmentVariable("XDG_CACHE_HOME");
    return (xdg.isEmpty() ? QDir::homePath() + QStringLiteral("/.cache") : xdg) +
           QStringLiteral("/thumbnails");
}

QImage readScaled(const QString& path) {
    QImageReader reader(path);
    reader.setAutoTransform(true);
    QSize size = reader.size();
    if (!size.isValid()) {
        return {};
    }
    // The reader scales while decoding, so a large photo never sits in memory at full size.
    if (size.width() > edge || size.height() > edge) {
        size.scale(edge, edge, Qt::KeepAspectRatio);
        reader.setScaledSize(size.expandedTo(QSize(1, 1)));
    }
    return reader.read();
}

// A thumbnail is a few kilobytes; a larger file in the cache is not one we want.
constexpr qint64 thumbnailLimit = 4 * 1024 * 1024;

// Images by path and modification time, so a file read once is not read again until it changes.
struct MemoryCache {
    QMutex mutex;
    QCache<QString, QImage> images{4 << 20}; // cost in bytes: about 64 tiles
};

MemoryCache& memory() {
    static MemoryCache cache;
    return cache;
}

// Where the desktop's thumbnailers put a file's thumbnail: named after the MD5 of its URI, larger first.
QStringList thumbnailCandidates(const QString& path) {
    const QByteArray uri = QUrl::fromLocalFile(path).toEncoded();
    const QString name = QString::fromLatin1(QCryptographicHash::hash(uri, QCryptographicHash::Md5).toHex()) +
                         QStringLiteral(".png");
    return {cacheRoot() + QStringLiteral("/large/") + name, cacheRoot() + QStringLiteral("/normal/") + name};
}

} // namespace

bool hasCachedThumbnail(const QString& path) {
    const QStringList candidates = thumbnailCandidates(path);
    return std::any_of(candidates.begin(), candidates.end(),
                       [](const QString& file) { return QFileInfo::exists(file); });
}

std::optional<QString> cachedThumbnail(const QString& path, const QDateTime& modified) {
    const QByteArray mtime = QByteArray::number(modified.toSecsSinceEpoch());
    for (const QString& candidate : thumbnailCandidates(path)) {
        const FileRead read = readRegularFile(candidate, thumbnailLimit);
        // A thumbnail of an older state of the file says nothing about this one.
        if (read.ok() && pngTexts(read.bytes).value("Thumb::MTime") == mtime) {
            return candidate;
        }
    }
    return std::nullopt;
}

QImage load(const QString& path, const QDateTime& modified) {
    const QString key = QString::number(modified.toMSecsSinceEpoch()) + QLatin1Char('/') + path;
    {
        QMutexLocker lock(&memory().mutex);
        if (const QImage* kept = memory().images.object(key)) {
            return *kept;
        }
    }
    // A thumbnail the desktop made is a small PNG; decoding the photo itself may take a while.
    QImage image;
    if (const std::optional<QString> thumbnail = cachedThumbnail(path, modified)) {
        image = readScaled(*thumbnail);
    }
    if (image.isNull() && !QImageReader::imageFormat(path).isEmpty()) {
        image = readScaled(path);
    }
    if (!image.isNull()) {
        QMutexLocker lock(&memory().mutex);
        memory().images.insert(key, new QImage(image), static_cast<qsizetype>(image.sizeInBytes()));
    }
    return image;
}

QString source(const QString& path, const QDateTime& modified) {
    return QStringLiteral("image://shelf/") + QString::number(modified.toMSecsSinceEpoch()) +
           QLatin1Char('/') + QString::fromLatin1(QUrl::toPercentEncoding(path));
}

std::optional<QString> iconName(const QString& path) {
    // Outside a desktop session Qt knows no theme but hicolor, which has few type icons.
    static const bool fallback = [] {
        if (QIcon::fallbackThemeName().isEmpty() ||
            QIcon::fallbackThemeName() == QLatin1StringView("hicolor")) {
            QIcon::setFallbackThemeName(QStringLiteral("Adwaita"));
        }
        return true;
    }();
    Q_UNUSED(fallback);
    const QMimeType type = QMimeDatabase().mimeTypeForFile(path);
    for (const QString& name : {type.iconName(), type.genericIconName()}) {
        if (!name.isEmpty() && QIcon::hasThemeIcon(name)) {
            return name;
        }
    }
    return std::nullopt;
}

QString iconSource(const QString& name) {
    return QStringLiteral("image://shelficon/") + name;
}

} // namespace ShelfThumbnails

ShelfThumbnailProvider::ShelfThumbnailProvider()
    : QQuickImageProvider(QQuickImageProvider::Image, QQmlImageProviderBase::ForceAsynchronousImageLoading) {}

QImage ShelfThumbnailProvider::requestImage(const QString& id, QSize* size, const QSize&) {
    const qsizetype slash = id.indexOf(QLatin1Char('/'));
    // Qt hands the id over partly decoded already; whatever stayed encoded is decoded here.
    const QString path = QUrl::fromPercentEncoding(id.mid(slash + 1).toUtf8());
    const QImage image =
        ShelfThumbnails::load(path, QDateTime::fromMSecsSinceEpoch(id.left(slash).toLongLong()));
    if (size != nullptr) {
        *size = image.size();
    }
    return image;
}

ShelfIconProvider::ShelfIconProvider() : QQuickImageProvider(QQuickImageProvider::Pixmap) {}

QPixmap ShelfIconProvider::requestPixmap(const QString& id, QSize* size, const QSize& requestedSize) {
    const QSize wanted =
        requestedSize.isValid() ? requestedSize : QSize(ShelfThumbnails::edge, ShelfThumbnails::edge);
    const QPixmap pixmap = QIcon::fromTheme(id).pixmap(wanted);
    if (size != nullptr) {
        *size = pixmap.size();
    }
    return pixmap;
}

} // namespace mirrowisp
