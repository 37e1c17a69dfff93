#include "remote/RemoteHostStore.h"

#include "support/TestSupport.h"

#include <QDir>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace mirrowisp {
namespace {

TEST(RemoteHostStoreTest, KeepsHostsAcrossRestarts) {
    QTemporaryDir dir;
    RemoteHost box{QStringLiteral("me@box"), 2222, QStringLiteral("/k/id"), QStringLiteral("/home/me"),
                   QStringLiteral("Linux x86_64")};
    {
        RemoteHostStore store(dir.path());
        QSignalSpy changed(&store, &RemoteHostStore::changed);
        store.put(box);
        store.put(RemoteHost{QStringLiteral("other"), {}, {}, {}, {}});
        box.home = QStringLiteral("/srv/me");
        store.put(box); // replaces in place
        EXPECT_TRUE(store.remove(QStringLiteral("other")));
        EXPECT_FALSE(store.remove(QStringLiteral("other")));
        EXPECT_EQ(changed.count(), 4);
    }
    RemoteHostStore again(dir.path());
    EXPECT_EQ(again.hosts(), QList<RemoteHost>{box});
}

TEST(RemoteHostStoreTest, ADamagedFileGivesNoHostsAndIsKeptAside) {
    for (const QByteArray& damaged : {QByteArray("{\"hosts\": [}"), QByteArray("[1, 2]")}) {
        QTemporaryDir dir;
        test::writeFile(dir.filePath(QStringLiteral("remote-hosts.json")), damaged);
        RemoteHostStore store(dir.path());
        EXPECT_TRUE(store.hosts().isEmpty());
        store.put(RemoteHost{QStringLiteral("box"), {}, {}, {}, {}});
        store.flush();
        const QStringList kept =
            QDir(dir.path()).entryList({QStringLiteral("remote-hosts.json.unreadable-*")});
        ASSERT_EQ(kept.size(), 1);
        EXPECT_EQ(test::readFile(dir.filePath(kept.first())), damaged);
    }
}

} // namespace
} // namespace mirrowisp
