// The palette of a 3000 x 3000 cover (a gradient, so every thumbnail pixel differs), beside one
// plain smooth scaling of that cover to 12 x 12, and the target. Usage: bench_palette.
#include "BenchSupport.h"
#include "media/Palette.h"

#include <QColor>
#include <QImage>
#include <cstdio>

int main() {
    QImage cover(3000, 3000, QImage::Format_RGB32);
    for (int y = 0; y < cover.height(); ++y) {
        auto* row = reinterpret_cast<QRgb*>(cover.scanLine(y));
        for (int x = 0; x < cover.width(); ++x) {
            row[x] = qRgb(x * 255 / 3000, y * 255 / 3000, (x + y) * 255 / 6000);
        }
    }
    const double palette = mirrowisp::bench::medianMs(21, [&] { (void)mirrowisp::palette(cover); });
    const double smooth = mirrowisp::bench::medianMs(
        21, [&] { (void)cover.scaled(12, 12, Qt::IgnoreAspectRatio, Qt::SmoothTransformation); });
    std::printf("%-44s %10s\n", "3000 x 3000 cover", "median ms");
    std::printf("%-44s %10.2f\n", "palette", palette);
    std::printf("%-44s %10.2f\n", "one smooth scaling to 12 x 12 (reference)", smooth);
    std::printf("%-44s %10.2f\n", "target", 20.0);
    return 0;
}
