#include "base/ProcessRunner.h"

#include "support/ScopedEnvironment.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace mirrowisp;
using namespace mirrowisp::ProcessRunner;

namespace {

RunResult shell(const QString& script, double timeout = 10.0, const std::optional<QString>& directory = {}) {
    return run(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), script}, timeout, directory);
}

QString readTrimmed(const QString& path) {
    return QString::fromUtf8(test::readFile(path)).trimmed();
}

// A process is gone once /proc no longer has it or it is a zombie waiting for its reaper.
bool isGone(const QString& pid) {
    QFile stat(QStringLiteral("/proc/") + pid + QStringLiteral("/stat"));
    if (!stat.open(QIODevice::ReadOnly)) {
        return true;
    }
    const QByteArray text = stat.readAll();
    const qsizetype close = text.lastIndexOf(')');
    return close >= 0 && text.mid(close + 2, 1) == "Z";
}

} // namespace

TEST(ProcessRunner, SharesOnePipeForOutputAndErrorsAndIgnoresTheExitStatus) {
    const RunResult result = shell(QStringLiteral("echo one; echo two >&2; echo three; exit 3"));
    ASSERT_TRUE(result.ok());
    EXPECT_EQ(result.output, QStringLiteral("one\ntwo\nthree\n"));
    EXPECT_FALSE(result.truncated);
    EXPECT_EQ(result.exitStatus, 3);
}

TEST(ProcessRunner, GivesTheChildTheNullDeviceAsInputAndTheDirectoryAsked) {
    QTemporaryDir dir;
    const RunResult result =
        shell(QStringLiteral("readlink /proc/self/fd/0; cat; pwd -P; echo end"), 10.0, dir.path());
    ASSERT_TRUE(result.ok());
    EXPECT_EQ(result.output,
              QStringLiteral("/dev/null\n") + QDir(dir.path()).canonicalPath() + QStringLiteral("\nend\n"));
}

TEST(ProcessRunner, LeavesTheAgentsOwnVariablesOutAndTurnsColourOff) {
    test::ScopedEnvironment environment;
    environment.set("CLAUDECODE", "1");
    environment.set("CLAUDE_CODE_ENTRYPOINT", "cli");
    environment.set("CLAUDE_CONFIG_DIR", "/kept");
    environment.set("NO_COLOR", "0");
    const RunResult result = run(QStringLiteral("/usr/bin/env"), {}, 10.0);
    ASSERT_TRUE(result.ok());
    const QStringList lines = result.output.split(QLatin1Char('\n'));
    EXPECT_TRUE(lines.contains(QStringLiteral("CLAUDE_CONFIG_DIR=/kept")));
    EXPECT_TRUE(lines.contains(QStringLiteral("NO_COLOR=1")));
    EXPECT_FALSE(lines.contains(QStringLiteral("NO_COLOR=0")));
    EXPECT_FALSE(result.output.contains(QStringLiteral("CLAUDECODE=")));
    EXPECT_FALSE(result.output.contains(QStringLiteral("CLAUDE_CODE_")));
}

TEST(ProcessRunner, ReportsAToolOrFolderThatIsNotThereAsNotStarted) {
    QTemporaryDir dir;
    EXPECT_EQ(run(dir.path() + QStringLiteral("/missing"), {}, 5.0).error, RunError::couldNotStart);
    EXPECT_EQ(shell(QStringLiteral("echo x"), 5.0, dir.path() + QStringLiteral("/nowhere")).error,
              RunError::couldNotStart);
    const QString plain = dir.path() + QStringLiteral("/plain");
    test::writeFile(plain, "not a program");
    EXPECT_EQ(run(plain, {}, 5.0).error, RunError::couldNotStart);
}

TEST(ProcessRunner, KillsAHangingChildAndEverythingItStartedAtTheTimeOut) {
    QTemporaryDir dir;
    // A background job in the child's group, and one that moved to a process group of its own.
    const QString script = QStringLiteral("cd '%1'; sleep 300 & echo $! > job; "
                                          "python3 -c 'import os, time; os.setpgid(0, 0); open(\"grouped\", "
                                          "\"w\").write(str(os.getpid())); "
                                          "time.sleep(300)' & "
                                          "echo $$ > self; wait")
                               .arg(dir.path());
    QElapsedTimer clock;
    clock.start();
    const RunResult result = shell(script, 1.5);
    EXPECT_EQ(result.error, RunError::timedOut);
    EXPECT_LT(clock.elapsed(), 4000);

    const QStringList pids = {readTrimmed(dir.filePath(QStringLiteral("self"))),
                              readTrimmed(dir.filePath(QStringLiteral("job"))),
                              readTrimmed(dir.filePath(QStringLiteral("grouped")))};
    for (const QString& pid : pids) {
        ASSERT_FALSE(pid.isEmpty());
        EXPECT_TRUE(test::waitUntil([&] { return isGone(pid); }, 3000)) << pid.toStdString();
    }
}

TEST(ProcessRunner, ReturnsWhenTheChildEndsEvenIfItsBackgroundJobsHoldThePipe) {
    QTemporaryDir dir;
    QElapsedTimer clock;
    clock.start();
    const RunResult quiet =
        shell(QStringLiteral("cd '%1'; sleep 300 & echo $! > job; echo done").arg(dir.path()));
    ASSERT_TRUE(quiet.ok());
    EXPECT_EQ(quiet.output, QStringLiteral("done\n"));
    // A chatty job that keeps writing after its parent has gone.
    const RunResult chatty = shell(QStringLiteral("(while :; do echo x; done) & echo started"));
    ASSERT_TRUE(chatty.ok());
    EXPECT_TRUE(chatty.output.startsWith(QStringLiteral("started\n")) ||
                chatty.output.contains(QStringLiteral("\nstarted\n")));
    EXPECT_LT(clock.elapsed(), 5000); // far inside the two 10-second time-outs

    const QString job = readTrimmed(dir.filePath(QStringLiteral("job")));
    ASSERT_FALSE(job.isEmpty());
    EXPECT_TRUE(test::waitUntil([&] { return isGone(job); }, 3000));
}

TEST(ProcessRunner, KeepsOnlyTheEndOfAFloodAndStillReturns) {
    QElapsedTimer clock;
    clock.start();
    const RunResult finite =
        shell(QStringLiteral("head -c 20000000 /dev/zero | tr '\\0' x; echo; echo END"), 30.0);
    ASSERT_TRUE(finite.ok());
    EXPECT_TRUE(finite.truncated);
    EXPECT_LE(finite.output.size(), outputLimitBytes);
    EXPECT_GT(finite.output.size(), outputLimitBytes / 2);
    EXPECT_TRUE(finite.output.endsWith(QStringLiteral("x\nEND\n")));

    const RunResult endless = run(QStringLiteral("/usr/bin/yes"), {}, 1.0);
    EXPECT_EQ(endless.error, RunError::timedOut);
    EXPECT_LT(clock.elapsed(), 20000);
}
