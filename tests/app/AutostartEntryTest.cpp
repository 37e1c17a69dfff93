#include "app/AutostartEntry.h"

#include "support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <gtest/gtest.h>

using namespace mirrowisp;
using namespace Qt::Literals::StringLiterals;
using mirrowisp::test::TemporaryHome;
using mirrowisp::test::writeFile;

namespace {

QByteArray readText(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

class AutostartEntryTest : public ::testing::Test {
protected:
    TemporaryHome home;
    QString entryPath = home.path() + u"/.config/autostart/mirrowisp.desktop"_s;
    AutostartEntry entry{entryPath, u"/opt/Mirrowisp Beta/bin/mirrowisp"_s};
};

} // namespace

TEST_F(AutostartEntryTest, TheDefaultEntryLivesInTheConfigHomesAutostartFolder) {
    EXPECT_EQ(AutostartEntry::defaultEntryPath(), entryPath);
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(home.path() + u"/xdg"_s));
    EXPECT_EQ(AutostartEntry().entryPath(), home.path() + u"/xdg/autostart/mirrowisp.desktop"_s);
}

TEST_F(AutostartEntryTest, EnablingWritesADesktopEntryAndDisablingRemovesIt) {
    EXPECT_FALSE(entry.isEnabled());

    EXPECT_EQ(entry.setEnabled(true), std::nullopt);
    EXPECT_TRUE(entry.isEnabled());
    EXPECT_EQ(readText(entryPath), QByteArray("[Desktop Entry]\n"
                                              "Type=Application\n"
                                              "Name=Mirrowisp\n"
                                              "Exec=\"/opt/Mirrowisp Beta/bin/mirrowisp\"\n"
                                              "Icon=io.mirrowisp.Mirrowisp\n"
                                              "Terminal=false\n"
                                              "X-GNOME-Autostart-enabled=true\n"));
    EXPECT_EQ(QDir(QFileInfo(entryPath).absolutePath()).entryList(QDir::Files | QDir::Hidden),
              QStringList{u"mirrowisp.desktop"_s});

    EXPECT_EQ(entry.setEnabled(false), std::nullopt);
    EXPECT_FALSE(QFile::exists(entryPath));
    EXPECT_FALSE(entry.isEnabled());
    EXPECT_EQ(entry.setEnabled(false), std::nullopt); // already off is no failure
}

TEST_F(AutostartEntryTest, AnEntrySwitchedOffByTheDesktopCountsAsDisabledUntilEnabledAgain) {
    const std::pair<const char*, bool> cases[] = {
        {"[Desktop Entry]\nType=Application\nExec=mirrowisp\n", true},
        {"[Desktop Entry]\nExec=mirrowisp\nHidden=true\n", false},
        {"[Desktop Entry]\nExec=mirrowisp\nHidden = true\n", false},
        {"[Desktop Entry]\nExec=mirrowisp\nHidden=false\n", true},
        {"[Desktop Entry]\nExec=mirrowisp\nX-GNOME-Autostart-enabled=false\n", false},
        {"# written by hand\n[Desktop Entry]\nX-GNOME-Autostart-enabled=true\n", true},
        {"[Desktop Entry]\nExec=mirrowisp\n[Desktop Action quit]\nHidden=true\n", true},
        {"Exec=mirrowisp\n", false}, // no desktop entry at all
        {"", false},
    };
    for (const auto& [text, enabled] : cases) {
        writeFile(entryPath, text);
        EXPECT_EQ(entry.isEnabled(), enabled) << text;
    }

    writeFile(entryPath, "[Desktop Entry]\nExec=mirrowisp\nHidden=true\n");
    EXPECT_EQ(entry.setEnabled(true), std::nullopt);
    EXPECT_TRUE(entry.isEnabled());
}

TEST_F(AutostartEntryTest, ExecQuotesThePathSoLaunchersReadItBackExactly) {
    const std::pair<QString, QString> cases[] = {
        {u"/usr/bin/mirrowisp"_s, uR"("/usr/bin/mirrowisp")"_s},
        {u"/home/a b/mirrowisp"_s, uR"("/home/a b/mirrowisp")"_s},
        {uR"(/o/say"hi"/m)"_s, uR"("/o/say\\"hi\\"/m")"_s},
        {u"/o/$HOME/`id`/m"_s, uR"("/o/\\$HOME/\\`id\\`/m")"_s},
        {uR"(/o/back\slash/m)"_s, uR"("/o/back\\\\slash/m")"_s},
        {u"/o/100%/m"_s, uR"("/o/100%%/m")"_s},
        {u"/o/tab\there/m"_s, uR"("/o/tab\there/m")"_s},
        {u"/o/é ü/m"_s, u"\"/o/é ü/m\""_s},
    };
    for (const auto& [path, exec] : cases) {
        EXPECT_EQ(AutostartEntry::execValue(path), exec) << path.toStdString();
    }
}

TEST_F(AutostartEntryTest, AFailedChangeAnswersTheErrorAndChangesNothing) {
    writeFile(home.path() + u"/.config/autostart"_s, "a file where the folder should be");
    const auto error = entry.setEnabled(true);
    ASSERT_TRUE(error.has_value());
    EXPECT_FALSE(error->isEmpty());
    EXPECT_FALSE(entry.isEnabled());

    // A folder in place of the entry can't be removed as a file.
    const QString folderEntry = home.path() + u"/elsewhere/mirrowisp.desktop"_s;
    ASSERT_TRUE(QDir().mkpath(folderEntry + u"/inside"_s));
    AutostartEntry stuck(folderEntry, u"/usr/bin/mirrowisp"_s);
    EXPECT_TRUE(stuck.setEnabled(false).has_value());
    EXPECT_TRUE(QFileInfo(folderEntry).isDir());
}
