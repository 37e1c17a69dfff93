#include "shelf/ShelfStore.h"

#include "shelf/ShelfBookmark.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace mirrowisp {
namespace {

using test::ManualClock;

class ShelfStoreTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    ManualClock clock;
    QString support = dir.path() + QStringLiteral("/support");

    std::unique_ptr<ShelfStore> open() { return std::make_unique<ShelfStore>(support, clock); }
    QString file(const QString& name, const QByteArray& content = "x") {
        const QString path = dir.path() + QStringLiteral("/files/") + name;
        test::writeFile(path, content);
        return path;
    }
    static QList<QUrl> urls(const QStringList& paths) {
        QList<QUrl> list;
        for (const QString& path : paths) {
            list.append(QUrl::fromLocalFile(path));
        }
        return list;
    }
    static QStringList names(const ShelfStore& store) {
        QStringList list;
        for (const ShelfItem& item : store.items()) {
            list.append(item.name);
        }
        return list;
    }
};

TEST_F(ShelfStoreTest, KeepsEachFileOnceAndPersistsAcrossRestarts) {
    const QString a = file(QStringLiteral("a.png"));
    const QString b = file(QStringLiteral("b.txt"));
    {
        auto store = open();
        EXPECT_EQ(store->add(urls({a, a, QDir::cleanPath(a + QStringLiteral("/../a.png"))}), false), 1);
        EXPECT_EQ(store->add(urls({b}), false), 1);
        store->flush();
        const QByteArray before = test::readFile(store->filePath());
        EXPECT_EQ(store->add(urls({a}), true), 0);
        store->flush();
        EXPECT_EQ(test::readFile(store->filePath()), before);
    }
    auto store = open();
    EXPECT_EQ(names(*store), (QStringList{QStringLiteral("b.txt"), QStringLiteral("a.png")}));
    EXPECT_EQ(store->items().back().addedAt, clock.now());
}

TEST_F(ShelfStoreTest, SkipsWhatIsNotALocalFileThatExists) {
    auto store = open();
    const QList<QUrl> odd{QUrl(QStringLiteral("file://otherhost/etc/hostname")),
                          QUrl(QStringLiteral("https://x.org/a")),
                          QUrl::fromLocalFile(dir.path() + QStringLiteral("/missing"))};
    EXPECT_EQ(store->add(odd, true), 0);
    EXPECT_TRUE(store->items().isEmpty());
    EXPECT_FALSE(QFileInfo::exists(store->filePath()));
}

struct StackCase {
    const char* label;
    int alreadyPresent;
    bool stacked;
    int expectedEntries; // after the drop of three files
    bool expectStack;
};

class ShelfStackTest : public ShelfStoreTest, public ::testing::WithParamInterface<StackCase> {};

TEST_P(ShelfStackTest, StacksOnlyWhenTwoOrMoreArrive) {
    const StackCase& c = GetParam();
    const QStringList paths{file(QStringLiteral("1")), file(QStringLiteral("2")), file(QStringLiteral("3"))};
    auto store = open();
    store->add(urls(paths.mid(0, c.alreadyPresent)), false);
    store->add(urls(paths), c.stacked);
    const QList<ShelfEntry> entries = store->entries();
    EXPECT_EQ(entries.size(), c.expectedEntries);
    EXPECT_EQ(entries.front().isStack(), c.expectStack);
    EXPECT_EQ(entries.front().items.front().stackID.has_value(), c.expectStack);
}

INSTANTIATE_TEST_SUITE_P(Drops, ShelfStackTest,
                         ::testing::Values(StackCase{"ThreeNewStacked", 0, true, 1, true},
                                           StackCase{"ThreeNewLoose", 0, false, 3, false},
                                           StackCase{"OneNewOfThree", 2, true, 3, false},
                                           StackCase{"TwoNewOfThree", 1, true, 2, true}),
                         [](const auto& param) { return std::string(param.param.label); });

TEST_F(ShelfStoreTest, StacksRemoveAndSplitAsOneEntry) {
    auto store = open();
    store->add(urls({file(QStringLiteral("loose"))}), false);
    store->add(urls({file(QStringLiteral("s1")), file(QStringLiteral("s2")), file(QStringLiteral("s3"))}),
               true);
    const QUuid stack = store->entries().front().id;
    store->remove(store->items().front().id);
    EXPECT_EQ(store->entry(stack)->items.size(), 2);
    store->split(stack);
    EXPECT_EQ(store->entries().size(), 3);
    store->removeEntry(store->entries().front().id);
    store->flush();
    EXPECT_EQ(names(*open()), (QStringList{QStringLiteral("s3"), QStringLiteral("loose")}));
}

TEST_F(ShelfStoreTest, DeletesOwnedCopiesOnlyWithTheirItem) {
    auto store = open();
    const QString mine = *store->writeText(QStringLiteral("note"));
    const QString link = *store->writeLink(QUrl(QStringLiteral("https://example.org/page?q=1")));
    const QString theirs = file(QStringLiteral("theirs.txt"));
    store->add(urls({mine, link, theirs}), false);
    EXPECT_EQ(test::readFile(link), QByteArray("[InternetShortcut]\nURL=https://example.org/page?q=1\n"));
    ASSERT_TRUE(store->items()[0].isOwnedCopy);
    EXPECT_FALSE(store->items()[2].isOwnedCopy);
    store->remove(store->items()[0].id);
    EXPECT_FALSE(QFileInfo::exists(mine));
    store->remove(store->items()[1].id);
    EXPECT_TRUE(QFileInfo::exists(theirs));
    store->add(urls({theirs}), false);
    store->clear();
    EXPECT_FALSE(QFileInfo::exists(link));
    EXPECT_TRUE(QFileInfo::exists(theirs));
}

struct TextCase {
    const char* label;
    const char* text;
    const char* expectedName;
};

class ShelfTextTest : public ShelfStoreTest, public ::testing::WithParamInterface<TextCase> {};

TEST_P(ShelfTextTest, NamesTheFileAfterTheTextAndKeepsAllOfIt) {
    auto store = open();
    const auto path = store->writeText(test::text(GetParam().text));
    ASSERT_TRUE(path);
    EXPECT_EQ(QFileInfo(*path).fileName(), test::text(GetParam().expectedName));
    EXPECT_EQ(test::readFile(*path), QByteArray(GetParam().text));
}

INSTANTIATE_TEST_SUITE_P(
    Texts, ShelfTextTest,
    ::testing::Values(TextCase{"Short", "hello", "hello.txt"}, TextCase{"Blank", " \n\t ", "Text.txt"},
                      TextCase{"Long", "abcdefghijklmnopqrstuvwxyz0123", "abcdefghijklmnopqrstuvwx.txt"},
                      TextCase{"Slash", "a/b/c", "a-b-c.txt"},
                      TextCase{"Trimmed", "  padded\n  rest", "padded\n  rest.txt"},
                      TextCase{"Dots", "..", "...txt"}),
    [](const auto& param) { return std::string(param.param.label); });

TEST_F(ShelfStoreTest, SameTextTwiceTakesTheNextNumber) {
    auto store = open();
    const QString text = QStringLiteral("the same first twenty-four characters, then more");
    const auto first = store->writeText(text);
    const auto second = store->writeText(text + QStringLiteral("!"));
    ASSERT_TRUE(first && second);
    EXPECT_EQ(QFileInfo(*second).fileName(), QStringLiteral("the same first twenty-fo 2.txt"));
    EXPECT_EQ(QFileInfo(*store->writeText(text)).fileName(),
              QStringLiteral("the same first twenty-fo 3.txt"));
}

TEST_F(ShelfStoreTest, DamagedFileGivesAnEmptyShelfKeptAsideOnTheNextSave) {
    test::writeFile(support + QStringLiteral("/shelf.json"), "[{\"id\": \"not a uuid\"}]");
    auto store = open();
    EXPECT_TRUE(store->items().isEmpty());
    store->add(urls({file(QStringLiteral("a"))}), false);
    store->flush();
    EXPECT_EQ(names(*open()), QStringList{QStringLiteral("a")});
    const QStringList aside =
        QDir(support).entryList({QStringLiteral("shelf.json.unreadable-*")}, QDir::Files);
    ASSERT_EQ(aside.size(), 1);
    EXPECT_EQ(test::readFile(support + QLatin1Char('/') + aside.front()),
              QByteArray("[{\"id\": \"not a uuid\"}]"));
}

struct MoveCase {
    const char* label;
    const char* movedTo;      // relative to the file's folder; empty: removed
    bool replacedAtPath;      // another file now stands at the old path
    const char* expected;     // relative; empty: nothing
    const char* newFile = ""; // made in the folder afterwards (ext4 hands it the freed inode at once)
};

class ShelfBookmarkTest : public ShelfStoreTest, public ::testing::WithParamInterface<MoveCase> {};

TEST_P(ShelfBookmarkTest, FindsTheFileAgain) {
    const MoveCase& c = GetParam();
    const QString original = file(QStringLiteral("doc.txt"));
    const QString folder = QFileInfo(original).path() + QLatin1Char('/');
    const auto token = makeShelfBookmark(original);
    ASSERT_TRUE(token);
    if (*c.movedTo) {
        QDir().mkpath(QFileInfo(folder + test::text(c.movedTo)).path());
        ASSERT_TRUE(QFile::rename(original, folder + test::text(c.movedTo)));
    } else {
        QFile::remove(original);
    }
    if (c.replacedAtPath) {
        file(QStringLiteral("doc.txt"), "new");
    }
    if (*c.newFile) {
        file(test::text(c.newFile), "new");
    }
    const auto resolved = resolveShelfBookmark(*token);
    if (*c.expected) {
        EXPECT_EQ(resolved, folder + test::text(c.expected));
    } else {
        EXPECT_FALSE(resolved);
    }
}

INSTANTIATE_TEST_SUITE_P(Moves, ShelfBookmarkTest,
                         ::testing::Values(MoveCase{"Renamed", "renamed.txt", false, "renamed.txt"},
                                           MoveCase{"IntoSubfolder", "sub/doc.txt", false, "sub/doc.txt"},
                                           MoveCase{"RenamedAndReplaced", "old.txt", true, "old.txt"},
                                           MoveCase{"ReplacedInPlace", "", true, "doc.txt"},
                                           MoveCase{"Deleted", "", false, ""},
                                           MoveCase{"DeletedAndItsInodeReused", "", false, "", "other.txt"}),
                         [](const auto& param) { return std::string(param.param.label); });

TEST_F(ShelfStoreTest, RenamedFileStaysOnTheShelfOnce) {
    const QString original = file(QStringLiteral("a.txt"));
    auto store = open();
    store->add(urls({original}), false);
    const QString renamed = QFileInfo(original).path() + QStringLiteral("/b.txt");
    ASSERT_TRUE(QFile::rename(original, renamed));
    EXPECT_EQ(ShelfStore::resolve(store->items().front()), renamed);
    EXPECT_EQ(store->add(urls({renamed}), false), 0);
}

TEST_F(ShelfStoreTest, DragOutEndsAfterReleaseOrTwentySeconds) {
    auto store = open();
    bool held = true;
    store->setButtonDown([&] { return held; });
    const QUuid entry = QUuid::createUuid();
    store->beginDragOut(entry);
    clock.advance(19.9);
    store->pollDragOut();
    EXPECT_EQ(store->draggingEntryID(), entry);
    held = false;
    store->pollDragOut();
    clock.advance(0.29);
    store->pollDragOut();
    EXPECT_EQ(store->draggingEntryID(), entry);
    clock.advance(0.02);
    store->pollDragOut();
    EXPECT_FALSE(store->draggingEntryID());

    held = true;
    store->beginDragOut(entry);
    clock.advance(20.01);
    store->pollDragOut();
    clock.advance(0.31);
    store->pollDragOut();
    EXPECT_FALSE(store->draggingEntryID());
}

} // namespace
} // namespace mirrowisp
