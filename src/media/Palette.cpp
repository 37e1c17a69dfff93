#include "media/Palette.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace mirrowisp {

namespace {

constexpr int side = 12;

struct Swatch {
    double hue = 0;
    double saturation = 0;
    double brightness = 0;
    double score = 0;
};

double hueDistance(double a, double b) {
    const double d = std::abs(a - b);
    return std::min(d, 1 - d);
}

QColor vivid(const Swatch& s) {
    if (s.saturation < 0.18) {
        const double level = std::max(s.brightness, 0.78);
        return QColor::fromRgbF(float(level), float(level), float(level), 1);
    }
    return QColor::fromHsvF(float(s.hue), float(std::min(std::max(1.15 * s.saturation, 0.45), 0.85)),
                            float(std::max(s.brightness, 0.82)), 1);
}

QColor tint(const Swatch& s) {
    return QColor::fromHsvF(float(s.hue), float(std::max(0.55 * s.saturation, 0.2)), 1.0F, 1);
}

// A cover of thousands of pixels a side is first brought near the thumbnail cheaply, so the smooth
// scaling that follows only averages a few pixels into each.
QImage thumbnail(const QImage& image) {
    QImage source = image;
    if (source.width() > side * 16 || source.height() > side * 16) {
        source = source.scaled(side * 16, side * 16, Qt::IgnoreAspectRatio, Qt::FastTransformation);
    }
    return source.scaled(side, side, Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
        .convertToFormat(QImage::Format_RGBA8888_Premultiplied);
}

} // namespace

QList<QColor> defaultPalette() {
    return {QColor::fromRgbF(1, 1, 1, 1), QColor::fromRgbF(0.75F, 0.75F, 0.75F, 1)};
}

std::optional<QList<QColor>> palette(const QImage& image) {
    if (image.isNull()) {
        return std::nullopt;
    }
    const QImage small = thumbnail(image);
    if (small.isNull()) {
        return std::nullopt;
    }
    std::vector<Swatch> swatches;
    swatches.reserve(side * side);
    for (int y = 0; y < side; ++y) {
        const uchar* row = small.constScanLine(y);
        for (int x = 0; x < side; ++x) {
            const uchar* p = row + 4 * x; // alpha is ignored, as the pixels were drawn premultiplied
            float h = 0;
            float s = 0;
            float v = 0;
            QColor::fromRgbF(p[0] / 255.0F, p[1] / 255.0F, p[2] / 255.0F, 1).getHsvF(&h, &s, &v);
            Swatch swatch{h < 0 ? 0.0 : double(h), s, v, 0};
            swatch.score = 0.7 * swatch.saturation + 0.3 * swatch.brightness - (v < 0.15F ? 1.0 : 0.0);
            swatches.push_back(swatch);
        }
    }
    std::stable_sort(swatches.begin(), swatches.end(),
                     [](const Swatch& a, const Swatch& b) { return a.score > b.score; });
    const Swatch& primary = swatches.front();
    const auto second = std::find_if(swatches.begin() + 1, swatches.end(), [&](const Swatch& s) {
        return s.score > 0.45 * primary.score && hueDistance(s.hue, primary.hue) > 0.08;
    });
    return QList<QColor>{vivid(primary), second != swatches.end() ? vivid(*second) : tint(primary)};
}

} // namespace mirrowisp
