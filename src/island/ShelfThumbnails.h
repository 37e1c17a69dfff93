#pragma once

#include <QDateTime>
#include <QImage>
#include <QQuickImageProvider>
#include <QSize>
#include <QString>
#include <optional>

namespace mirrowisp {

// Pictures for the shelf's tiles. An image's own pixels, scaled; else a thumbnail the desktop already
// made (the freedesktop cache a file manager fills, checked against the file's modification time);
// else the icon of the file's type from the icon theme.
namespace ShelfThumbnails {

// The edge a tile's picture is made at: 64 points, twice over for dense screens.
inline constexpr int edge = 128;

// The cached thumbnail of `path` as the desktop's file managers keep it, `large` first: the PNG named
// after the MD5 of the file's URI under $XDG_CACHE_HOME/thumbnails. Only one made from the file as it
// is now, by its recorded modification time, counts.
std::optional<QString> cachedThumbnail(const QString& path, const QDateTime& modified);
// Whether the cache holds a thumbnail of `path` at all, of whatever age: a look at the folder only.
bool hasCachedThumbnail(const QString& path);

// The picture for a tile, at most `edge` on its longer side, or a null image when neither the file
// nor the cache gives one. Reads files: off the main thread.
QImage load(const QString& path, const QDateTime& modified);

// The address a tile's Image reads the picture from, which names the file's modification time so that
// a changed file is read again.
QString source(const QString& path, const QDateTime& modified);

// The icon theme's name for the file's type, with the generic one of its kind as a fallback, or nothing
// when the theme has neither; `iconSource` is the Image address that shows it.
std::optional<QString> iconName(const QString& path);
QString iconSource(const QString& name);

} // namespace ShelfThumbnails

// "image://shelf/…": thumbnails loaded on Qt Quick's loader threads, kept in memory by path and
// modification time.
class ShelfThumbnailProvider final : public QQuickImageProvider {
public:
    ShelfThumbnailProvider();
    QImage requestImage(const QString& id, QSize* size, const QSize& requestedSize) override;
};

// "image://shelficon/NAME": the theme's icon, drawn on the main thread as icons want.
class ShelfIconProvider final : public QQuickImageProvider {
public:
    ShelfIconProvider();
    QPixmap requestPixmap(const QString& id, QSize* size, const QSize& requestedSize) override;
};

} // namespace mirrowisp
