#pragma once

#include <QImage>
#include <QString>
#include <optional>

namespace mirrowisp::ShelfHeif {

// HEIC and HEIF images through libheif, which Qt has no reader or writer for.
bool canRead();
bool canWrite();

// The primary image with its rotation and mirroring applied, or why it can't be had.
struct Decoded {
    QImage image;
    QString error;
};
Decoded read(const QString& path);

// Writes `image` as HEIC at `quality` (0..100); the error, or nothing when it was written. A failed
// write leaves no file.
std::optional<QString> write(const QImage& image, const QString& path, int quality);

} // namespace mirrowisp::ShelfHeif
