#include "shelf/ShelfDrop.h"

#include "shelf/ShelfStore.h"
#include "support/TestSupport.h"

#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace mirrowisp {
namespace {

struct DropCase {
    const char* label;
    QStringList urls;
    const char* mozURL;
    const char* text;
    QByteArray imageBytes;
    const char* expectedName; // in the owned folder; empty: the dropped file itself, or nothing
    const char* expectedContent;
};

class ShelfDropTest : public ::testing::TestWithParam<DropCase> {
protected:
    QTemporaryDir dir;
    test::ManualClock clock;
};

TEST_P(ShelfDropTest, WritesWhatHasNoFileOfItsOwn) {
    const DropCase& c = GetParam();
    ShelfStore store(dir.path(), clock);
    ShelfDrop drop;
    for (const QString& url : c.urls) {
        drop.urls.append(QUrl(QString(url).replace(QStringLiteral("$DIR"), dir.path())));
    }
    drop.mozURL = test::text(c.mozURL);
    drop.text = test::text(c.text);
    drop.imageBytes = c.imageBytes;
    drop.imageType = QStringLiteral("image/png");
    const QList<QUrl> files = shelfDropFiles(store, drop);
    if (!*c.expectedName) {
        EXPECT_EQ(files, drop.urls);
        return;
    }
    ASSERT_EQ(files.size(), 1);
    EXPECT_EQ(QFileInfo(files.front().toLocalFile()).fileName(), test::text(c.expectedName));
    EXPECT_EQ(test::readFile(files.front().toLocalFile()), QByteArray(c.expectedContent));
    EXPECT_EQ(store.add(files, true), 1);
    EXPECT_TRUE(store.items().front().isOwnedCopy);
}

INSTANTIATE_TEST_SUITE_P(
    Drops, ShelfDropTest,
    ::testing::Values(DropCase{"Files",
                               {QStringLiteral("file://$DIR/a"), QStringLiteral("file://$DIR/b")},
                               "",
                               "ignored",
                               {},
                               "",
                               ""},
                      DropCase{"BrowserLink",
                               {QStringLiteral("https://example.org/x")},
                               "https://example.org/x\nTitle",
                               "",
                               {},
                               "example.org.url",
                               "[InternetShortcut]\nURL=https://example.org/x\n"},
                      DropCase{"MozillaLinkOnly",
                               {},
                               "https://host.test/p\nA page",
                               "",
                               {},
                               "host.test.url",
                               "[InternetShortcut]\nURL=https://host.test/p\n"},
                      DropCase{"LinkAsText",
                               {},
                               "",
                               " https://a.test/ \n",
                               {},
                               "a.test.url",
                               "[InternetShortcut]\nURL=https://a.test/\n"},
                      DropCase{"Text", {}, "", "two words", {}, "two words.txt", "two words"},
                      DropCase{"ImageData",
                               {QStringLiteral("https://img.test/cat.png")},
                               "",
                               "",
                               QByteArray("\x89PNG..."),
                               "Image.png",
                               "\x89PNG..."}),
    [](const auto& param) { return std::string(param.param.label); });

} // namespace
} // namespace mirrowisp
