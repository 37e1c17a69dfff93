// What the shelf does with input no one meant to give it: never blocks, never loses what it holds, and
// a conversion that fails makes nothing and says why.
#include "shelf/ShelfConverter.h"
#include "shelf/ShelfStore.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFileInfo>
#include <QImage>
#include <QTemporaryDir>
#include <csignal>
#include <functional>
#include <gtest/gtest.h>
#include <poppler-qt6.h>
#include <sys/resource.h>
#include <sys/stat.h>

namespace mirrowisp {
namespace {

namespace SC = ShelfConverter;

class ShelfBadInputTest : public ::testing::Test {
public:
    QTemporaryDir dir;
    test::ManualClock clock;
    QString support = dir.filePath(QStringLiteral("support"));

    ShelfBadInputTest() { QDir().mkpath(path({})); }

    QString path(const QString& name) const { return dir.filePath(QStringLiteral("files/") + name); }
    QString picture(const QString& name) {
        test::writeFile(path(name), {});
        EXPECT_TRUE(QImage(QSize(30, 20), QImage::Format_RGB32).save(path(name), "png"));
        return path(name);
    }
    QStringList files() const { return QDir(path({})).entryList(QDir::Files | QDir::System, QDir::Name); }
};

// Makes the thing dropped in `folder` (which exists) and answers the URLs of the drop.
using Maker = std::function<QList<QUrl>(const QString& folder)>;

QUrl made(const QString& path, const QByteArray& content = "x") {
    test::writeFile(path, content);
    return QUrl::fromLocalFile(path);
}

QUrl fifo(const QString& path) {
    EXPECT_EQ(::mkfifo(QFile::encodeName(path).constData(), 0600), 0);
    return QUrl::fromLocalFile(path);
}

QUrl sparse(const QString& path) {
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly) && file.resize(2LL * 1024 * 1024 * 1024));
    return QUrl::fromLocalFile(path);
}

struct DropCase {
    const char* label;
    Maker drop;
    int added;
};

class ShelfBadDropTest : public ShelfBadInputTest, public ::testing::WithParamInterface<DropCase> {};

TEST_P(ShelfBadDropTest, KeepsWhatItCanWithoutReadingItAndLosesNothing) {
    const QString kept = made(path(QStringLiteral("kept.txt"))).toLocalFile();
    auto store = std::make_unique<ShelfStore>(support, clock);
    store->add({QUrl::fromLocalFile(kept)}, false);
    const QList<QUrl> drop = GetParam().drop(path({}));
    EXPECT_EQ(store->add(drop, true), GetParam().added);
    EXPECT_EQ(store->add(drop, false), 0);
    const QList<ShelfItem> before = store->items();
    store.reset();
    const ShelfStore reopened(support, clock);
    EXPECT_EQ(reopened.items(), before);
    EXPECT_EQ(ShelfStore::resolve(reopened.items().back()), kept);
}

INSTANTIATE_TEST_SUITE_P(
    Drops, ShelfBadDropTest,
    ::testing::Values(
        DropCase{"TenThousandFiles",
                 [](const QString& folder) {
                     QList<QUrl> urls;
                     for (int i = 0; i < 10'000; ++i) {
                         urls.append(made(folder + QStringLiteral("/many/%1").arg(i)));
                     }
                     return urls;
                 },
                 10'000},
        DropCase{"Fifo", [](const QString& folder) { return QList{fifo(folder + QStringLiteral("/pipe"))}; },
                 1},
        DropCase{"DeviceNode",
                 [](const QString&) { return QList{QUrl::fromLocalFile(QStringLiteral("/dev/zero"))}; }, 1},
        DropCase{
            "NewlineInName",
            [](const QString& folder) { return QList{made(folder + QStringLiteral("/two\nlines.txt"))}; }, 1},
        DropCase{"OtherHost",
                 [](const QString& folder) {
                     QUrl url = made(folder + QStringLiteral("/remote.txt"));
                     url.setHost(QStringLiteral("elsewhere.example"));
                     return QList{url};
                 },
                 0},
        DropCase{"TwoGigabytes",
                 [](const QString& folder) { return QList{sparse(folder + QStringLiteral("/big"))}; }, 1}),
    [](const auto& param) { return std::string(param.param.label); });

struct SourceCase {
    const char* label;
    std::function<QString(ShelfBadInputTest&)> source;
    const char* key;
    const char* result; // the new file's name, or the start of why there is none
    bool made;
};

class ShelfBadSourceTest : public ShelfBadInputTest, public ::testing::WithParamInterface<SourceCase> {};

TEST_P(ShelfBadSourceTest, ConvertsOnlyWhatItCanRead) {
    const SourceCase& c = GetParam();
    const QString source = c.source(*this);
    const QStringList before = files();
    const SC::Report report = SC::convert(*SC::Conversion::fromKey(QString::fromLatin1(c.key)), {source});
    const QString result = test::text(c.result);
    if (c.made) {
        ASSERT_EQ(report.files.size(), 1) << report.failures.join(u',').toStdString();
        EXPECT_EQ(QFileInfo(report.files.front()).fileName(), result);
        EXPECT_EQ(files().size(), before.size() + 1);
    } else {
        EXPECT_TRUE(report.files.isEmpty());
        ASSERT_EQ(report.failures.size(), 1);
        EXPECT_TRUE(report.failures.front().contains(result)) << report.failures.front().toStdString();
        EXPECT_EQ(files(), before);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Sources, ShelfBadSourceTest,
    ::testing::Values(
        SourceCase{"Fifo",
                   [](auto& fixture) { return fifo(fixture.path(QStringLiteral("pipe.png"))).toLocalFile(); },
                   "jpeg", "pipe.png: not a regular file", false},
        SourceCase{"FifoZipped",
                   [](auto& fixture) { return fifo(fixture.path(QStringLiteral("pipe.png"))).toLocalFile(); },
                   "zip", "nothing in the files", false},
        SourceCase{"DeviceNode",
                   [](auto& fixture) {
                       fixture.picture(QStringLiteral("x.png"));
                       QFile::link(QStringLiteral("/dev/zero"), fixture.path(QStringLiteral("zero.png")));
                       return fixture.path(QStringLiteral("zero.png"));
                   },
                   "smaller", "zero.png: not a regular file", false},
        SourceCase{"Gone", [](auto& fixture) { return fixture.path(QStringLiteral("gone.png")); }, "png",
                   "gone.png: the file is gone", false},
        SourceCase{
            "TwoGigabytes",
            [](auto& fixture) { return sparse(fixture.path(QStringLiteral("big.png"))).toLocalFile(); },
            "jpeg", "big.png: not an image", false},
        SourceCase{"NewlineInName",
                   [](auto& fixture) { return fixture.picture(QStringLiteral("two\nlines.png")); }, "jpeg",
                   "two\nlines.jpg", true}),
    [](const auto& param) { return std::string(param.param.label); });

// The second source goes away once the first is done: only what was read before counts.
struct DeletedCase {
    const char* label;
    const char* key;
    int made;
    int failures;
    int pages; // of a PDF made
};

class ShelfDeletedSourceTest : public ShelfBadInputTest, public ::testing::WithParamInterface<DeletedCase> {};

TEST_P(ShelfDeletedSourceTest, GoesOnWithoutIt) {
    const QStringList sources{picture(QStringLiteral("a.png")), picture(QStringLiteral("b.png"))};
    const SC::Control control{[&](int source, double fraction) {
                                  if (source == 0 && fraction == 1.0) {
                                      QFile::remove(sources[1]);
                                  }
                              },
                              {}};
    const SC::Report report =
        SC::convert(*SC::Conversion::fromKey(QString::fromLatin1(GetParam().key)), sources, control);
    EXPECT_EQ(report.files.size(), GetParam().made);
    EXPECT_EQ(report.failures.size(), GetParam().failures) << report.failures.join(u',').toStdString();
    EXPECT_EQ(files().size(), 1 + GetParam().made);
    if (GetParam().pages > 0) {
        EXPECT_EQ(Poppler::Document::load(report.files.value(0))->numPages(), GetParam().pages);
    }
}

INSTANTIATE_TEST_SUITE_P(Conversions, ShelfDeletedSourceTest,
                         ::testing::Values(DeletedCase{"EachToJpeg", "jpeg", 1, 1, 0},
                                           DeletedCase{"Zip", "zip", 0, 1, 0},
                                           DeletedCase{"CombinedPdf", "combine-pdf", 1, 0, 1}),
                         [](const auto& param) { return std::string(param.param.label); });

// A full disk, as a file size limit in a child process (no mount needed): the writes fail, and the
// shelf on disk and in memory stays as it was.
TEST_F(ShelfBadInputTest, FullDiskLosesNothing) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto check = [&] {
        QImage noise(QSize(100, 100), QImage::Format_RGB32);
        for (int y = 0; y < noise.height(); ++y) {
            for (int x = 0; x < noise.width(); ++x) {
                noise.setPixel(x, y, static_cast<QRgb>(x * 7919 + y * 104729));
            }
        }
        const QString kept = path(QStringLiteral("kept.png"));
        test::writeFile(kept, {});
        noise.save(kept, "png");
        QList<QUrl> many;
        for (int i = 0; i < 20; ++i) {
            many.append(made(path(QStringLiteral("n%1").arg(i)), {}));
        }
        ShelfStore store(support, clock);
        store.add({QUrl::fromLocalFile(kept)}, false);
        store.flush();
        const QByteArray saved = test::readFile(store.filePath());
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{1024, RLIM_INFINITY};
        ::setrlimit(RLIMIT_FSIZE, &limit);

        QStringList wrong;
        if (store.writeText(QString(4096, u'x'))) {
            wrong << QStringLiteral("a text was written");
        }
        store.add(many, true);
        store.flush();
        if (store.items().size() != 21 || test::readFile(store.filePath()) != saved) {
            wrong << QStringLiteral("the shelf changed");
        }
        for (const char* key : {"png", "heic", "pdf", "zip", "smaller"}) {
            const SC::Report report = SC::convert(*SC::Conversion::fromKey(QString::fromLatin1(key)), {kept});
            if (!report.files.isEmpty() || report.failures.size() != 1) {
                wrong << QString::fromLatin1(key) + QStringLiteral(" made a file or said nothing");
            }
        }
        if (files().size() != 21 || !QDir(store.ownedDirectory()).isEmpty()) {
            wrong << QStringLiteral("files were left behind: ") + files().join(u',');
        }
        return wrong;
    };
    const auto child = [&] {
        const QStringList wrong = check();
        dir.remove();
        std::fprintf(stderr, "%s\n", qPrintable(wrong.join(u';')));
        std::exit(wrong.isEmpty() ? 0 : 1);
    };
    EXPECT_EXIT(child(), ::testing::ExitedWithCode(0), "");
}

} // namespace
} // namespace mirrowisp
