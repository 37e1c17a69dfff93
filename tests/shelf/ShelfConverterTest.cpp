#include "shelf/ShelfConverter.h"

#include "shelf/ShelfHeif.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFileInfo>
#include <QImage>
#include <QImageReader>
#include <QImageWriter>
#include <QPainter>
#include <QPdfWriter>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <poppler-qt6.h>
#include <zip.h>

namespace mirrowisp {
namespace {

namespace SC = ShelfConverter;

class ShelfConverterTest : public ::testing::Test {
protected:
    QTemporaryDir dir;

    QString image(const QString& name, QSize size = QSize(40, 20), const char* format = nullptr) {
        const QString path = dir.filePath(name);
        QImage pixels(size, QImage::Format_RGB32);
        pixels.fill(Qt::red);
        EXPECT_TRUE(pixels.save(path, format));
        return path;
    }
    QStringList keys(const QStringList& paths) {
        QStringList list;
        for (const auto& conversion : SC::formats(paths)) {
            list.append(conversion.key());
        }
        return list;
    }
};

struct FormatsCase {
    const char* label;
    QStringList files; // made by name: .png/.jpg images, .mp4 a clip, "folder" a folder, other text
    QStringList offered;
    QStringList notOffered;
};

class ShelfFormatsTest : public ShelfConverterTest, public ::testing::WithParamInterface<FormatsCase> {};

TEST_P(ShelfFormatsTest, OffersWhatSuitsTheFiles) {
    QStringList paths;
    for (const QString& name : GetParam().files) {
        if (name.endsWith(QLatin1StringView(".png")) || name.endsWith(QLatin1StringView(".jpg"))) {
            paths.append(image(name));
        } else if (name == QLatin1StringView("folder")) {
            QDir(dir.path()).mkdir(name);
            paths.append(dir.filePath(name));
        } else {
            test::writeFile(dir.filePath(name), "plain words");
            paths.append(dir.filePath(name));
        }
    }
    const QStringList offered = keys(paths);
    for (const QString& key : GetParam().offered) {
        EXPECT_TRUE(offered.contains(key)) << key.toStdString() << " in " << offered.join(u',').toStdString();
    }
    for (const QString& key : GetParam().notOffered) {
        EXPECT_FALSE(offered.contains(key)) << key.toStdString();
    }
}

const QStringList all{QStringLiteral("jpeg"),    QStringLiteral("png"), QStringLiteral("pdf"),
                      QStringLiteral("smaller"), QStringLiteral("mp4"), QStringLiteral("smaller-mp4")};

INSTANTIATE_TEST_SUITE_P(
    Files, ShelfFormatsTest,
    ::testing::Values(
        FormatsCase{"Jpeg",
                    {QStringLiteral("a.jpg")},
                    {QStringLiteral("png"), QStringLiteral("pdf"), QStringLiteral("smaller")},
                    {QStringLiteral("jpeg"), QStringLiteral("mp4")}},
        FormatsCase{"PngAndJpeg",
                    {QStringLiteral("a.png"), QStringLiteral("b.jpg")},
                    {QStringLiteral("jpeg"), QStringLiteral("heic"), QStringLiteral("png"),
                     QStringLiteral("pdf"), QStringLiteral("smaller")},
                    {}},
        FormatsCase{
            "Mp4", {QStringLiteral("clip.mp4")}, {QStringLiteral("smaller-mp4")}, {QStringLiteral("mp4")}},
        FormatsCase{"Folder", {QStringLiteral("folder")}, {}, all},
        FormatsCase{"ImageAndText", {QStringLiteral("a.png"), QStringLiteral("notes.txt")}, {}, all}),
    [](const auto& param) { return std::string(param.param.label); });

struct HalfCase {
    const char* label;
    QSize size;
    QSize expected;
};

class ShelfHalfTest : public ShelfConverterTest, public ::testing::WithParamInterface<HalfCase> {};

TEST_P(ShelfHalfTest, HalvesTheLongerSide) {
    const QString source = image(QStringLiteral("pic.png"), GetParam().size);
    const auto result = SC::smallerImage(source);
    ASSERT_TRUE(result);
    EXPECT_EQ(QFileInfo(*result).fileName(), QStringLiteral("pic (smaller).png"));
    EXPECT_EQ(QImageReader(*result).size(), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Sizes, ShelfHalfTest,
                         ::testing::Values(HalfCase{"OnePixel", QSize(1, 1), QSize(1, 1)},
                                           HalfCase{"Wide", QSize(40, 20), QSize(20, 10)},
                                           HalfCase{"Odd", QSize(7, 3), QSize(3, 1)}),
                         [](const auto& param) { return std::string(param.param.label); });

TEST_F(ShelfConverterTest, AppliesTheCameraOrientation) {
    const QString plain = image(QStringLiteral("plain.jpg"), QSize(40, 20), "jpeg");
    // An EXIF block saying "turn 90 degrees clockwise to show", as cameras write it behind the JPEG's start.
    const QByteArray exif =
        QByteArray("Exif\0\0MM\0\x2a\0\0\0\x08\0\x01\x01\x12\0\x03\0\0\0\x01\0\x06\0\0\0\0\0\0", 32);
    QByteArray segment("\xff\xe1");
    segment.append(char(0)).append(char(exif.size() + 2)).append(exif);
    const QString rotated = dir.filePath(QStringLiteral("rotated.jpg"));
    test::writeFile(rotated, test::readFile(plain).insert(2, segment));
    ASSERT_EQ(QImageReader(rotated).transformation(), QImageIOHandler::TransformationRotate90);

    const auto half = SC::smallerImage(rotated);
    ASSERT_TRUE(half);
    EXPECT_EQ(QImageReader(*half).size(), QSize(10, 20));
    const auto png = SC::convertImage(rotated, QStringLiteral("image/png"));
    ASSERT_TRUE(png);
    EXPECT_EQ(QImageReader(*png).size(), QSize(20, 40));
}

TEST_F(ShelfConverterTest, SecondConversionTakesTheNextName) {
    const QString source = image(QStringLiteral("pic.png"));
    const auto first = SC::convertImage(source, QStringLiteral("image/jpeg"));
    const auto second = SC::convertImage(source, QStringLiteral("image/jpeg"));
    ASSERT_TRUE(first && second);
    EXPECT_EQ(QFileInfo(*first).fileName(), QStringLiteral("pic.jpg"));
    EXPECT_EQ(QFileInfo(*second).fileName(), QStringLiteral("pic 2.jpg"));
    EXPECT_EQ(QImageReader(*second).format(), QByteArray("jpeg"));
}

TEST_F(ShelfConverterTest, FailedConversionsMakeNothing) {
    test::writeFile(dir.filePath(QStringLiteral("broken.png")), "not an image");
    const SC::Report report =
        SC::convert(SC::Conversion{SC::Conversion::Kind::smallerImage, {}},
                    {dir.filePath(QStringLiteral("broken.png")), dir.filePath(QStringLiteral("gone.png"))});
    EXPECT_TRUE(report.files.isEmpty());
    EXPECT_EQ(report.failures.size(), 2);
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), QStringList{QStringLiteral("broken.png")});
}

TEST_F(ShelfConverterTest, CombinesImagesAndKeepsAPdfsPages) {
    const QString twoPages = dir.filePath(QStringLiteral("two.pdf"));
    {
        QPdfWriter writer(twoPages);
        writer.setPageSize(QPageSize(QPageSize::A5));
        QPainter painter(&writer);
        painter.fillRect(10, 10, 50, 50, Qt::blue);
        writer.newPage();
        painter.fillRect(20, 20, 50, 50, Qt::green);
    }
    const QStringList sources{image(QStringLiteral("a.png"), QSize(40, 20)), twoPages,
                              image(QStringLiteral("b.jpg"), QSize(10, 30))};
    ASSERT_TRUE(SC::canCombine(sources));
    const auto pdf = SC::combinePDF(sources);
    ASSERT_TRUE(pdf) << pdf.error().toStdString();
    EXPECT_EQ(QFileInfo(*pdf).fileName(), QStringLiteral("Combined.pdf"));
    const auto document = Poppler::Document::load(*pdf);
    ASSERT_TRUE(document);
    QList<QSize> sizes;
    for (int i = 0; i < document->numPages(); ++i) {
        sizes.append(document->page(i)->pageSize());
    }
    const QSize a5 = QPageSize(QPageSize::A5).sizePoints();
    EXPECT_EQ(sizes, (QList<QSize>{QSize(40, 20), a5, a5, QSize(10, 30)}));

    // A file that can't go in is named, and the others still make the document.
    const QString notes = dir.filePath(QStringLiteral("notes.txt"));
    test::writeFile(notes, "words");
    const SC::Report report =
        SC::convert(*SC::Conversion::fromKey(QStringLiteral("combine-pdf")), {sources.front(), notes});
    EXPECT_EQ(report.files.size(), 1);
    ASSERT_EQ(report.failures.size(), 1);
    EXPECT_TRUE(report.failures.front().startsWith(QStringLiteral("notes.txt")))
        << report.failures.front().toStdString();
}

struct HeicCase {
    const char* label;
    const char* source; // "photo.png" or "photo.heic" of a red 40 by 20 picture, or a broken HEIC
    const char* key;
    const char* made; // empty: it fails, saying libheif could not read it
    QSize size;
};

class ShelfHeicTest : public ShelfConverterTest, public ::testing::WithParamInterface<HeicCase> {};

TEST_P(ShelfHeicTest, ConvertsBothWays) {
    const HeicCase& c = GetParam();
    const QString png = image(QStringLiteral("photo.png"));
    const QString heic = *SC::convertImage(png, QStringLiteral("image/heif"));
    // Only the source stays, so the result takes the plain name.
    QFile::remove(QLatin1StringView(c.source) == QLatin1StringView("photo.png") ? heic : png);
    test::writeFile(dir.filePath(QStringLiteral("broken.heic")), QByteArray("\0\0\0\x18"
                                                                            "ftypheic",
                                                                            12) +
                                                                     QByteArray(100, 'x'));
    const SC::Report report = SC::convert(*SC::Conversion::fromKey(QString::fromLatin1(c.key)),
                                          {dir.filePath(QString::fromLatin1(c.source))});
    if (!*c.made) {
        ASSERT_EQ(report.failures.size(), 1);
        EXPECT_TRUE(report.failures.front().contains(QStringLiteral("libheif")))
            << report.failures.front().toStdString();
        return;
    }
    ASSERT_EQ(report.files.size(), 1) << report.failures.join(u',').toStdString();
    EXPECT_EQ(QFileInfo(report.files.front()).fileName(), QString::fromLatin1(c.made));
    const QImage result = report.files.front().endsWith(QLatin1StringView(".heic"))
                              ? ShelfHeif::read(report.files.front()).image
                              : QImage(report.files.front());
    EXPECT_EQ(result.size(), c.size);
    const QColor middle = result.pixelColor(c.size.width() / 2, c.size.height() / 2);
    EXPECT_GT(middle.red(), 200);
    EXPECT_LT(middle.blue(), 60);
}

INSTANTIATE_TEST_SUITE_P(
    Heic, ShelfHeicTest,
    ::testing::Values(HeicCase{"PngToHeic", "photo.png", "heic", "photo.heic", QSize(40, 20)},
                      HeicCase{"HeicToPng", "photo.heic", "png", "photo.png", QSize(40, 20)},
                      HeicCase{"HeicHalved", "photo.heic", "smaller", "photo (smaller).heic", QSize(20, 10)},
                      HeicCase{"Unreadable", "broken.heic", "png", "", {}}),
    [](const auto& param) { return std::string(param.param.label); });

TEST_F(ShelfConverterTest, ZipsAFolderUnderItsOwnName) {
    const QString folder = dir.filePath(QStringLiteral("Project"));
    test::writeFile(folder + QStringLiteral("/notes.txt"), "hello");
    test::writeFile(folder + QStringLiteral("/sub/deep.txt"), "deeper");
    EXPECT_TRUE(SC::formats({folder}).isEmpty());
    const auto archive = SC::zip({folder});
    ASSERT_TRUE(archive);
    EXPECT_EQ(QFileInfo(*archive).fileName(), QStringLiteral("Project.zip"));

    int error = 0;
    zip_t* reader = zip_open(QFile::encodeName(*archive).constData(), ZIP_RDONLY, &error);
    ASSERT_NE(reader, nullptr);
    QStringList names;
    for (zip_int64_t i = 0; i < zip_get_num_entries(reader, 0); ++i) {
        names.append(QString::fromUtf8(zip_get_name(reader, static_cast<zip_uint64_t>(i), 0)));
    }
    zip_file_t* file = zip_fopen(reader, "Project/sub/deep.txt", 0);
    ASSERT_NE(file, nullptr);
    char content[16] = {};
    EXPECT_EQ(zip_fread(file, content, sizeof content), 6);
    zip_fclose(file);
    zip_close(reader);
    names.sort();
    EXPECT_EQ(names, (QStringList{QStringLiteral("Project/"), QStringLiteral("Project/notes.txt"),
                                  QStringLiteral("Project/sub/"), QStringLiteral("Project/sub/deep.txt")}));
    EXPECT_EQ(QFileInfo(*SC::zip({folder, dir.filePath(QStringLiteral("Project.zip"))})).fileName(),
              QStringLiteral("Archive.zip"));
}

} // namespace
} // namespace mirrowisp
