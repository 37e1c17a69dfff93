// The shelf tiles' pictures: an image's own pixels, the desktop's cached thumbnail when it belongs to the
// file as it is, nothing otherwise; and tiles that read what the last look at the files found.
#include "island/ShelfThumbnails.h"

#include "IslandTestSupport.h"
#include "island/ShelfViewModel.h"
#include "support/ScopedEnvironment.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFileInfo>
#include <QSignalSpy>
#include <QUrl>
#include <gtest/gtest.h>

using namespace mirrowisp;
using mirrowisp::test::text;

namespace {

bool writeImage(const QString& path, QSize size, QColor colour, const QMap<QString, QString>& texts = {}) {
    QImage image(size, QImage::Format_RGB32);
    image.fill(colour);
    // Keys as thumbnailers write them, colons and all.
    for (auto it = texts.cbegin(); it != texts.cend(); ++it) {
        image.setText(it.key(), it.value());
    }
    return image.save(path, "PNG");
}

struct PictureCase {
    const char* label;
    const char* file;        // written as a red 400 x 200 image when it ends in .png, else as text
    const char* cacheFolder; // where a green thumbnail lies, or nothing
    qint64 thumbnailAge;     // seconds its recorded time lies before the file's
    QColor colour;
    QSize size; // invalid: no picture
};

class ShelfPicture : public testing::TestWithParam<PictureCase> {};

TEST_P(ShelfPicture, ComesFromTheFileOrAThumbnailOfItAsItIs) {
    const PictureCase& c = GetParam();
    QTemporaryDir dir;
    test::ScopedEnvironment environment;
    environment.set("XDG_CACHE_HOME", dir.filePath(text("cache")).toUtf8());
    const QString path = dir.filePath(text(c.file));
    if (path.endsWith(text(".png"))) {
        ASSERT_TRUE(writeImage(path, {400, 200}, Qt::red));
    } else {
        test::writeFile(path, "%PDF-1.4 not really");
    }
    const QDateTime modified = QFileInfo(path).lastModified();
    if (c.cacheFolder != nullptr) {
        const QByteArray uri = QUrl::fromLocalFile(path).toEncoded();
        const QString folder = dir.filePath(text("cache/thumbnails/") + text(c.cacheFolder));
        QDir().mkpath(folder);
        ASSERT_TRUE(writeImage(
            folder + QLatin1Char('/') +
                QString::fromLatin1(QCryptographicHash::hash(uri, QCryptographicHash::Md5).toHex()) +
                text(".png"),
            {128, 128}, Qt::green,
            {{text("Thumb::URI"), QString::fromUtf8(uri)},
             {text("Thumb::MTime"), QString::number(modified.toSecsSinceEpoch() - c.thumbnailAge)}}));
    }

    const QImage picture = ShelfThumbnails::load(path, modified);
    EXPECT_EQ(picture.isNull(), !c.size.isValid());
    if (c.size.isValid()) {
        EXPECT_EQ(picture.size(), c.size);
        EXPECT_EQ(picture.pixelColor(picture.width() / 2, picture.height() / 2), c.colour);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Sources, ShelfPicture,
    testing::Values(PictureCase{"ImageScaledDown", "photo.png", nullptr, 0, Qt::red, {128, 64}},
                    PictureCase{"LargeThumbnailFirst", "photo.png", "large", 0, Qt::green, {128, 128}},
                    PictureCase{"NormalThumbnail", "report.pdf", "normal", 0, Qt::green, {128, 128}},
                    PictureCase{"StaleThumbnailIgnored", "photo.png", "large", 10, Qt::red, {128, 64}},
                    PictureCase{"NoPictureAtAll", "report.pdf", nullptr, 0, Qt::black, {}}),
    [](const auto& param) { return std::string(param.param.label); });

// Pictures are kept by path and modification time: the same time gives the kept one, a new time the
// file as it is now.
TEST(ShelfPictureMemory, FollowsTheModificationTime) {
    QTemporaryDir dir;
    const QString path = dir.filePath(text("a.png"));
    ASSERT_TRUE(writeImage(path, {20, 20}, Qt::red));
    const QDateTime first = QFileInfo(path).lastModified();
    ASSERT_EQ(ShelfThumbnails::load(path, first).pixelColor(5, 5), QColor(Qt::red));
    ASSERT_TRUE(writeImage(path, {20, 20}, Qt::blue));
    EXPECT_EQ(ShelfThumbnails::load(path, first).pixelColor(5, 5), QColor(Qt::red));
    EXPECT_EQ(ShelfThumbnails::load(path, first.addSecs(1)).pixelColor(5, 5), QColor(Qt::blue));
}

// Tiles show what the last look found: a file deleted behind the shelf's back shows as missing once
// the shelf looks again, not on every read nor when other files join.
TEST(ShelfTiles, ReadWhatTheLastLookFound) {
    test::IslandWorld world;
    const QString path = world.home.path() + text("/shot.png");
    ASSERT_TRUE(writeImage(path, {10, 10}, Qt::red));
    ShelfViewModel shelf(&world.app);
    ASSERT_EQ(world.app.addToShelf({QUrl::fromLocalFile(path)}, false), 1);
    EXPECT_EQ(shelf.index(0).data(ShelfViewModel::KindRole).toString(), text("image"));

    // Made first, so it cannot take over the deleted file's inode.
    const QString other = world.home.path() + text("/other.txt");
    test::writeFile(other, "other");
    QFile::remove(path);
    ASSERT_EQ(world.app.addToShelf({QUrl::fromLocalFile(other)}, false), 1);
    ASSERT_EQ(shelf.rowCount(), 2);
    EXPECT_FALSE(shelf.index(1).data(ShelfViewModel::MissingRole).toBool());
    shelf.refresh();
    EXPECT_TRUE(shelf.index(1).data(ShelfViewModel::MissingRole).toBool());
    EXPECT_EQ(shelf.index(1).data(ShelfViewModel::ThumbnailRole).toString(), QString());

    const QString id = shelf.index(1).data(ShelfViewModel::EntryIdRole).toString();
    shelf.setProgress(id, 0.25);
    EXPECT_EQ(shelf.index(1).data(ShelfViewModel::ProgressRole).toDouble(), 0.25);
    EXPECT_EQ(shelf.index(0).data(ShelfViewModel::ProgressRole).toDouble(), -1.0);
    shelf.setProgress(id, std::nullopt);
    EXPECT_EQ(shelf.index(1).data(ShelfViewModel::ProgressRole).toDouble(), -1.0);
}

} // namespace

// A conversion from the tile's menu shows its bar while it runs; a good one joins the shelf, a failed
// one adds nothing and the shelf says why.
TEST(ShelfTiles, AConversionShowsItsBarThenItsResultOrWhyItFailed) {
    test::IslandWorld world;
    const QString picture = world.home.path() + text("/shot.png");
    const QString notes = world.home.path() + text("/notes.txt");
    ASSERT_TRUE(writeImage(picture, {10, 10}, Qt::red));
    test::writeFile(notes, "not a picture");
    ShelfViewModel shelf(&world.app);
    ASSERT_EQ(world.app.addToShelf({QUrl::fromLocalFile(picture)}, false), 1);
    ASSERT_EQ(world.app.addToShelf({QUrl::fromLocalFile(notes)}, false), 1);
    QSignalSpy noticed(&shelf, &ShelfViewModel::noticed);
    const auto rowOf = [&shelf](const char* name) {
        for (int row = 0; row < shelf.rowCount(); ++row) {
            if (shelf.index(row).data(ShelfViewModel::NameRole).toString() == text(name)) {
                return row;
            }
        }
        return -1;
    };
    const auto idOf = [&](const char* name) {
        return shelf.index(rowOf(name)).data(ShelfViewModel::EntryIdRole).toString();
    };
    const auto progressOf = [&](const char* name) {
        return shelf.index(rowOf(name)).data(ShelfViewModel::ProgressRole).toDouble();
    };

    shelf.convert(idOf("shot.png"), text("jpeg"));
    EXPECT_GE(progressOf("shot.png"), 0.0) << "the bar shows at once";
    ASSERT_TRUE(test::waitUntil([&] { return shelf.rowCount() == 3; }, 20000));
    EXPECT_GE(rowOf("shot.jpg"), 0);
    EXPECT_EQ(progressOf("shot.png"), -1.0);
    EXPECT_EQ(noticed.count(), 0);

    shelf.convert(idOf("notes.txt"), text("png"));
    ASSERT_TRUE(test::waitUntil([&] { return noticed.count() == 1; }, 20000));
    EXPECT_TRUE(noticed.first().first().toString().contains(text("notes.txt")));
    EXPECT_EQ(shelf.rowCount(), 3) << "a failed conversion adds nothing";
    EXPECT_EQ(progressOf("notes.txt"), -1.0);
}
