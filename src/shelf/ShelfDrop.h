#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QUrl>

namespace mirrowisp {

class ShelfStore;

// What a drag brought to the island, by the kinds the shelf takes.
struct ShelfDrop {
    QList<QUrl> urls;  // text/uri-list
    QString mozURL;    // text/x-moz-url: the link, a line feed, its title
    QString text;      // text/plain
    QString imageType; // such as "image/png", for data without a file
    QByteArray imageBytes;
};

// The local files a drop stands for, writing into the store's own folder what has no file: web links
// as internet shortcuts, text as a text file, image data as an image. Files win over the rest, links
// over text, and image data over its own address; a file URL of another machine is dropped, not mistaken for
// a local one.
QList<QUrl> shelfDropFiles(const ShelfStore& store, const ShelfDrop& drop);

} // namespace mirrowisp
