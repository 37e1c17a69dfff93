// What the shelf does with input no one meant to give it: never blocks, never loses what it holds, and
// a conversion that fails makes nothing and says why.
#include "shelf/ShelfConverter.h"
#include "shelf/ShelfStore.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFileInfo>
#include <QImage>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <csignal>
#include <gtest/gtest.h>
#include <poppler-qt6.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace mirrowisp {
namespace {

namespace SC = ShelfConverter;

class ShelfBadInputTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    test::ManualClock clock;
    QString support = dir.filePath(QStringLiteral("support"));

    ShelfBadInputTest() { QDir().mkpath(path({})); }

    QString path(const QString& name) const { return dir.filePath(QStringLiteral("files/") + name); }
    QStringList files() const { return QDir(path({})).entryList(QDir::Files | QDir::System, QDir::Name); }

    // Makes a file of the kind its name says: "pipe…" a FIFO, "zero…" a link to a device, "big…" 2 GB
    // of sparse nothing, "gone…" nothing at all, "….png" a small picture, else a few bytes.
    QString make(const QString& name) const {
        const QString file = path(name);
        const QByteArray encoded = QFile::encodeName(file);
        if (name.startsWith(QLatin1StringView("pipe"))) {
            EXPECT_EQ(::mkfifo(encoded.constData(), 0600), 0);
        } else if (name.startsWith(QLatin1StringView("zero"))) {
            EXPECT_EQ(::symlink("/dev/zero", encoded.constData()), 0);
        } else if (name.startsWith(QLatin1StringView("big"))) {
            test::writeFile(file, {});
            EXPECT_EQ(::truncate(encoded.constData(), 2LL << 30), 0);
        } else if (name.startsWith(QLatin1StringView("gone"))) {
            return file;
        } else if (name.endsWith(QLatin1StringView(".png"))) {
            EXPECT_TRUE(QImage(QSize(30, 20), QImage::Format_RGB32).save(file, "png"));
        } else {
            test::writeFile(file, "x");
        }
        return file;
    }
};

struct DropCase {
    const char* label;
    const char* name;
    int count; // files of that name with a number
    const char* host;
    int added;
};

class ShelfBadDropTest : public ShelfBadInputTest, public ::testing::WithParamInterface<DropCase> {};

TEST_P(ShelfBadDropTest, KeepsWhatItCanWithoutReadingItAndLosesNothing) {
    const DropCase& c = GetParam();
    const QString kept = make(QStringLiteral("kept.txt"));
    auto store = std::make_unique<ShelfStore>(support, clock);
    store->add({QUrl::fromLocalFile(kept)}, false);
    QList<QUrl> drop;
    for (int i = 0; i < c.count; ++i) {
        drop.append(
            QUrl::fromLocalFile(make(test::text(c.name) + (c.count > 1 ? QString::number(i) : QString()))));
        drop.back().setHost(QString::fromLatin1(c.host));
    }
    EXPECT_EQ(store->add(drop, true), c.added);
    EXPECT_EQ(store->add(drop, false), 0);
    const QList<ShelfItem> before = store->items();
    store.reset();
    const ShelfStore reopened(support, clock);
    EXPECT_EQ(reopened.items(), before);
    EXPECT_EQ(ShelfStore::resolve(reopened.items().back()), kept);
}

INSTANTIATE_TEST_SUITE_P(Drops, ShelfBadDropTest,
                         ::testing::Values(DropCase{"TenThousandFiles", "n", 10'000, "", 10'000},
                                           DropCase{"Fifo", "pipe", 1, "", 1},
                                           DropCase{"DeviceNode", "zero", 1, "", 1},
                                           DropCase{"NewlineInName", "two\nlines.txt", 1, "", 1},
                                           DropCase{"OtherHost", "remote.txt", 1, "elsewhere.example", 0},
                                           DropCase{"TwoGigabytes", "big", 1, "", 1}),
                         [](const auto& param) { return std::string(param.param.label); });

struct SourceCase {
    const char* label;
    const char* name;
    const char* key;
    const char* result; // the new file's name, or the start of why there is none
    bool made;
};

class ShelfBadSourceTest : public ShelfBadInputTest, public ::testing::WithParamInterface<SourceCase> {};

TEST_P(ShelfBadSourceTest, ConvertsOnlyWhatItCanRead) {
    const SourceCase& c = GetParam();
    const QString source = make(test::text(c.name));
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
    ::testing::Values(SourceCase{"Fifo", "pipe.png", "jpeg", "pipe.png: not a regular file", false},
                      SourceCase{"FifoZipped", "pipe.png", "zip", "nothing in the files", false},
                      SourceCase{"DeviceNode", "zero.png", "smaller", "zero.png: not a regular file", false},
                      SourceCase{"Gone", "gone.png", "png", "gone.png: the file is gone", false},
                      SourceCase{"TwoGigabytes", "big.png", "jpeg", "big.png: not an image", false},
                      SourceCase{"TwoGigabyteHeic", "big.heic", "png", "big.heic: not a HEIC image", false},
                      SourceCase{"TwoGigabytePdf", "big.pdf", "combine-pdf", "big.pdf: not a PDF", false},
                      SourceCase{"NewlineInName", "two\nlines.png", "jpeg", "two\nlines.jpg", true}),
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
    const QStringList sources{make(QStringLiteral("a.png")), make(QStringLiteral("b.png"))};
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
                                           DeletedCase{"CombinedPdf", "combine-pdf", 1, 1, 1}),
                         [](const auto& param) { return std::string(param.param.label); });

// A full disk, as a file size limit in a child process (no mount needed): the writes fail, and the
// shelf on disk and in memory stays as it was.
TEST_F(ShelfBadInputTest, FullDiskLosesNothing) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto check = [&] {
        // Noise: no format makes it small enough to fit.
        QImage noise(QSize(100, 100), QImage::Format_RGB32);
        QRandomGenerator::global()->fillRange(reinterpret_cast<quint32*>(noise.bits()), 100 * 100);
        const QString kept = path(QStringLiteral("kept.png"));
        noise.save(kept, "png");
        QList<QUrl> many;
        for (int i = 0; i < 20; ++i) {
            many.append(QUrl::fromLocalFile(make(QStringLiteral("n%1").arg(i))));
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
        // Ended without exit handlers: what libpng and Qt drop on their write-error paths is not
        // ours to report from the child.
        std::_Exit(wrong.isEmpty() ? 0 : 1);
    };
    EXPECT_EXIT(child(), ::testing::ExitedWithCode(0), "");
}

} // namespace
} // namespace mirrowisp
