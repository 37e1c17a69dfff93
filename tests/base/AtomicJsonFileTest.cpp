#include "base/AtomicJsonFile.h"

#include "support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonObject>
#include <gtest/gtest.h>

using namespace mirrowisp;
using mirrowisp::test::readFile;
using mirrowisp::test::TemporaryHome;

namespace {

QJsonDocument document(const char* name, const QJsonValue& value) {
    return QJsonDocument(QJsonObject{{QString::fromLatin1(name), value}});
}

} // namespace

TEST(AtomicJsonFile, CreatesMissingFoldersAndReplacesWholeContent) {
    const TemporaryHome home;
    const QString path = home.path() + QStringLiteral("/a/b/settings.json");

    EXPECT_FALSE(
        writeJsonAtomically(path, document("command", QStringLiteral("/usr/bin/tool --long-option"))));
    EXPECT_FALSE(writeJsonAtomically(path, document("x", 1)));

    EXPECT_EQ(readFile(path), QByteArray("{\n    \"x\": 1\n}\n"));
    EXPECT_EQ(QDir(home.path() + QStringLiteral("/a/b")).entryList(QDir::Files | QDir::Hidden),
              QStringList{QStringLiteral("settings.json")});
}

TEST(AtomicJsonFile, WritesThroughASymbolicLinkAndKeepsTheLink) {
    const TemporaryHome home;
    const QString target = home.path() + QStringLiteral("/dotfiles/settings.json");
    const QString link = home.path() + QStringLiteral("/settings.json");
    ASSERT_FALSE(writeFileAtomically(target, "{}"));
    ASSERT_TRUE(QFile::link(target, link));

    EXPECT_FALSE(writeFileAtomically(link, "{\"a\": 1}"));

    EXPECT_TRUE(QFileInfo(link).isSymLink());
    EXPECT_EQ(readFile(target), QByteArray("{\"a\": 1}"));
}

TEST(AtomicJsonFile, AFailureAnswersTheErrorAndLeavesTheOldFile) {
    const TemporaryHome home;
    const QString folderAsFile = home.path() + QStringLiteral("/taken");
    ASSERT_FALSE(writeFileAtomically(folderAsFile, "keep me"));

    const auto error = writeFileAtomically(folderAsFile + QStringLiteral("/settings.json"), "{}");
    ASSERT_TRUE(error.has_value());
    EXPECT_FALSE(error->isEmpty());
    EXPECT_EQ(readFile(folderAsFile), QByteArray("keep me"));

    const QString directory = home.path() + QStringLiteral("/directory");
    ASSERT_TRUE(QDir().mkpath(directory));
    EXPECT_TRUE(writeFileAtomically(directory, "{}").has_value());
    EXPECT_TRUE(QFileInfo(directory).isDir());
    EXPECT_EQ(QDir(home.path()).entryList(QDir::Files | QDir::Hidden), QStringList{QStringLiteral("taken")});
}
