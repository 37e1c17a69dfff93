#pragma once

#include <QColor>
#include <QImage>
#include <QList>
#include <optional>

namespace mirrowisp {

// Two display colours from a cover: an accent, and a second colour for the music visuals. Nothing
// when the image is empty. Works on a 12 x 12 thumbnail, so its cost does not grow with the cover.
std::optional<QList<QColor>> palette(const QImage& image);

// White and a light grey: the colours while there is no cover.
QList<QColor> defaultPalette();

} // namespace mirrowisp
