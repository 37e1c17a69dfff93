#include "base/AtomicJsonFile.h"

#include "support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonObject>
#include <gtest/gtest.h>

using namespace mirrowisp;
using namespace Qt::StringLiterals;
using mirrowisp::test::readFile;
using mirrowisp::test::TemporaryHome;

namespace {

QJsonDocument document(const char* name, const QJsonValue& value) {
    return QJsonDocument(QJsonObject{{QString::fromLatin1(name), value}});
}

} // namespace

TEST(AtomicJsonFile, CreatesMissingFoldersAndReplacesWholeContent) {
    const TemporaryHome home;
    const QString path = home.path() + u"/a/b/settings.json"_s;

    EXPECT_FALSE(writeJsonAtomically(path, document("command", u"/usr/bin/tool --long-option"_s)));
    EXPECT_FALSE(writeJsonAtomically(path, document("x", 1)));

    EXPECT_EQ(readFile(path), QByteArray("{\n    \"x\": 1\n}\n"));
    EXPECT_EQ(QDir(home.path() + u"/a/b"_s).entryList(QDir::Files | QDir::Hidden),
              QStringList{u"settings.json"_s});
}

TEST(AtomicJsonFile, WritesThroughASymbolicLinkAndKeepsTheLink) {
    const TemporaryHome home;
    const QString target = home.path() + u"/dotfiles/settings.json"_s;
    const QString link = home.path() + u"/settings.json"_s;
    ASSERT_FALSE(writeFileAtomically(target, "{}"));
    ASSERT_TRUE(QFile::link(target, link));

    EXPECT_FALSE(writeFileAtomically(link, "{\"a\": 1}"));

    EXPECT_TRUE(QFileInfo(link).isSymLink());
    EXPECT_EQ(readFile(target), QByteArray("{\"a\": 1}"));
}

TEST(AtomicJsonFile, AFailureAnswersTheErrorAndLeavesTheOldFile) {
    const TemporaryHome home;
    const QString folderAsFile = home.path() + u"/taken"_s;
    ASSERT_FALSE(writeFileAtomically(folderAsFile, "keep me"));

    const auto error = writeFileAtomically(folderAsFile + u"/settings.json"_s, "{}");
    ASSERT_TRUE(error.has_value());
    EXPECT_FALSE(error->isEmpty());
    EXPECT_EQ(readFile(folderAsFile), QByteArray("keep me"));

    const QString directory = home.path() + u"/directory"_s;
    ASSERT_TRUE(QDir().mkpath(directory));
    EXPECT_TRUE(writeFileAtomically(directory, "{}").has_value());
    EXPECT_TRUE(QFileInfo(directory).isDir());
    EXPECT_EQ(QDir(home.path()).entryList(QDir::Files | QDir::Hidden), QStringList{u"taken"_s});
}
