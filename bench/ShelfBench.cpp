// A drop of 20 files on a shelf of 2,000 (every item's file is looked up for the duplicate check), and
// the half-size conversion of a 24-megapixel JPEG.
#include "BenchSupport.h"
#include "shelf/ShelfConverter.h"
#include "shelf/ShelfStore.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QTemporaryDir>
#include <QUrl>
#include <cstdio>

using namespace mirrowisp;

namespace {

class FixedClock final : public Clock {
public:
    Timestamp now() const override { return 1.8e9; }
};

QList<QUrl> makeFiles(const QString& folder, int count) {
    QDir().mkpath(folder);
    QList<QUrl> urls;
    for (int i = 0; i < count; ++i) {
        const QString path = folder + QStringLiteral("/file-%1.txt").arg(i);
        QFile file(path);
        if (file.open(QIODevice::WriteOnly)) {
            file.write("x");
        }
        urls.append(QUrl::fromLocalFile(path));
    }
    return urls;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QTemporaryDir dir;
    FixedClock clock;
    ShelfStore store(dir.path() + QStringLiteral("/support"), clock);
    store.add(makeFiles(dir.path() + QStringLiteral("/kept"), 2000), false);
    int round = 0;
    const double drop = bench::medianMs(
        15, [&] { store.add(makeFiles(dir.path() + QStringLiteral("/drop-%1").arg(round++), 20), true); });
    std::printf("drop of 20 files on a shelf of 2000: %.2f ms median (target under 50 ms)\n", drop);

    // Gradients with grain, so the JPEG carries about as much detail as a photograph does.
    QImage photo(6000, 4000, QImage::Format_RGB32);
    quint32 grain = 1;
    for (int y = 0; y < photo.height(); ++y) {
        auto* line = reinterpret_cast<QRgb*>(photo.scanLine(y));
        for (int x = 0; x < photo.width(); ++x) {
            grain = grain * 1664525u + 1013904223u;
            const int noise = static_cast<int>(grain >> 28);
            line[x] = qRgb((x / 24 + noise) & 0xff, (y / 16 + noise) & 0xff, ((x + y) / 40 + noise) & 0xff);
        }
    }
    const QString source = dir.path() + QStringLiteral("/photo.jpg");
    photo.save(source, "jpeg", 90);
    const double half = bench::medianMs(3, [&] { ShelfConverter::smallerImage(source); });
    std::printf("half size of a 24-megapixel JPEG: %.0f ms median (target under 1000 ms)\n", half);
    store.flush();
    return 0;
}
