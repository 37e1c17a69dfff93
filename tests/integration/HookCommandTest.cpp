#include "integration/HookInstaller.h"
#include "integration/HookTestSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <sys/stat.h>

using namespace mirrowisp;
using namespace Qt::StringLiterals;
using mirrowisp::test::HookTest;

namespace {

// Runs a hook command the way an agent does: as one string given to the shell.
ProcessRun runHook(const QString& command, const QByteArray& input) {
    return test::runProcess(u"/bin/sh"_s, {u"-c"_s, command}, input);
}

// A stand-in for the bridge tool that records its arguments and standard input.
QString writeRecorder(const QString& folder, const QString& log) {
    const QString path = folder + u"/recorder.sh"_s;
    const QByteArray to = "'" + QFile::encodeName(log) + "'";
    writeFile(path,
              "#!/bin/sh\nfor a in \"$@\"; do printf '[%s]' \"$a\"; done > " + to + "\nprintf '\\n' >> " +
                  to + "\ncat >> " + to + "\nprintf '{\"ok\":1}'\n",
              true);
    return path;
}

QString linkTarget(const QString& path) {
    return QFileInfo(path).symLinkTarget();
}

} // namespace

TEST_F(HookTest, ASupportFolderWithBlanksAndQuotesSurvivesTheShell) {
    // Blanks and single quotes are what home folders hold; the command quotes both.
    const QString odd = home() + u"/Ann's Mirrowisp 'support' dir"_s;
    qputenv("MIRROWISP_SUPPORT_DIR", QFile::encodeName(odd));
    const QString log = home() + u"/calls.log"_s;
    HookInstaller::refreshBridgeLink(writeRecorder(home() + u"/tools"_s, log));
    ASSERT_TRUE(QFileInfo(odd + u"/bin/mirrowisp-bridge"_s).isSymLink());

    for (const AgentKind kind : {AgentKind::claude, AgentKind::cursor, AgentKind::gemini}) {
        SCOPED_TRACE(AgentKinds::rawValue(kind).toStdString());
        QFile::remove(log);
        const ProcessRun run = runHook(HookInstaller::command(kind, false), R"({"hook_event_name":"Stop"})");
        EXPECT_EQ(run.exitCode, 0) << run.err.constData();
        EXPECT_EQ(run.out, QByteArray(R"({"ok":1})"));
        EXPECT_EQ(readFile(log), "[--agent][" + AgentKinds::rawValue(kind).toUtf8() + "]\n" +
                                     QByteArray(R"({"hook_event_name":"Stop"})"));
    }
    QFile::remove(log);
    const ProcessRun status = runHook(HookInstaller::command(AgentKind::claude, true), "{}");
    EXPECT_EQ(status.exitCode, 0);
    EXPECT_EQ(readFile(log), QByteArray("[--agent][claude][--statusline]\n{}"));
}

TEST_F(HookTest, WithoutTheToolAHookEndsQuietlyAndCursorGetsAnEmptyAnswer) {
    ASSERT_FALSE(QFileInfo::exists(HookInstaller::bridgeLinkPath()));
    const ProcessRun claude = runHook(HookInstaller::command(AgentKind::claude, false), "{}");
    EXPECT_EQ(claude.exitCode, 0);
    EXPECT_TRUE(claude.out.isEmpty());
    EXPECT_TRUE(claude.err.isEmpty());
    const ProcessRun cursor = runHook(HookInstaller::command(AgentKind::cursor, false), "{}");
    EXPECT_EQ(cursor.exitCode, 0);
    EXPECT_EQ(cursor.out, QByteArray("{}\n"));

    // A link left behind to a tool that was removed counts as no tool.
    HookInstaller::refreshBridgeLink(writeRecorder(home() + u"/gone"_s, home() + u"/x"_s));
    QDir(home() + u"/gone"_s).removeRecursively();
    EXPECT_EQ(runHook(HookInstaller::command(AgentKind::codex, false), "{}").exitCode, 0);
    EXPECT_EQ(runHook(HookInstaller::command(AgentKind::cursor, false), "{}").out, QByteArray("{}\n"));
}

TEST_F(HookTest, TheBridgeLinkPointsAtTheToolAndIsReplacedWhenItPointsElsewhere) {
    const QString link = HookInstaller::bridgeLinkPath();
    const QString first = writeRecorder(home() + u"/one"_s, home() + u"/log"_s);
    const QString second = writeRecorder(home() + u"/two"_s, home() + u"/log"_s);

    HookInstaller::refreshBridgeLink(home() + u"/missing/mirrowisp-bridge"_s);
    EXPECT_FALSE(QFileInfo(link).exists() || QFileInfo(link).isSymLink());

    HookInstaller::refreshBridgeLink(first);
    EXPECT_EQ(linkTarget(link), first);
    struct stat before {};
    ASSERT_EQ(::lstat(QFile::encodeName(link).constData(), &before), 0);
    HookInstaller::refreshBridgeLink(first);
    struct stat same {};
    ASSERT_EQ(::lstat(QFile::encodeName(link).constData(), &same), 0);
    EXPECT_EQ(same.st_ino, before.st_ino); // left alone when it is right

    HookInstaller::refreshBridgeLink(second);
    EXPECT_EQ(linkTarget(link), second);

    // A copy or a folder in its place is replaced by the link as well.
    QFile::remove(link);
    writeFile(link, "an old copy");
    HookInstaller::refreshBridgeLink(first);
    EXPECT_EQ(linkTarget(link), first);
    QFile::remove(link);
    ASSERT_TRUE(QDir().mkpath(link + u"/inner"_s));
    HookInstaller::refreshBridgeLink(second);
    EXPECT_EQ(linkTarget(link), second);
    EXPECT_EQ(QDir(QFileInfo(link).absolutePath())
                  .entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot),
              QStringList{u"mirrowisp-bridge"_s});
}
