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
using namespace Qt::StringLiterals;

namespace {

RunResult shell(const QString& script, double timeout = 10.0, const std::optional<QString>& directory = {}) {
    return run(u"/bin/sh"_s, {u"-c"_s, script}, timeout, directory);
}

QString readTrimmed(const QString& path) {
    return QString::fromUtf8(test::readFile(path)).trimmed();
}

// A process is gone once /proc no longer has it or it is a zombie waiting for its reaper.
bool isGone(const QString& pid) {
    QFile stat(u"/proc/"_s + pid + u"/stat"_s);
    if (!stat.open(QIODevice::ReadOnly)) {
        return true;
    }
    const QByteArray text = stat.readAll();
    const qsizetype close = text.lastIndexOf(')');
    return close >= 0 && text.mid(close + 2, 1) == "Z";
}

} // namespace

TEST(ProcessRunner, SharesOnePipeForOutputAndErrorsAndIgnoresTheExitStatus) {
    const RunResult result = shell(u"echo one; echo two >&2; echo three; exit 3"_s);
    ASSERT_TRUE(result.ok());
    EXPECT_EQ(result.output, u"one\ntwo\nthree\n"_s);
    EXPECT_FALSE(result.truncated);
    EXPECT_EQ(result.exitStatus, 3);
}

TEST(ProcessRunner, GivesTheChildTheNullDeviceAsInputAndTheDirectoryAsked) {
    QTemporaryDir dir;
    const RunResult result = shell(u"readlink /proc/self/fd/0; cat; pwd -P; echo end"_s, 10.0, dir.path());
    ASSERT_TRUE(result.ok());
    EXPECT_EQ(result.output, u"/dev/null\n"_s + QDir(dir.path()).canonicalPath() + u"\nend\n"_s);
}

TEST(ProcessRunner, LeavesTheAgentsOwnVariablesOutAndTurnsColourOff) {
    test::ScopedEnvironment environment;
    environment.set("CLAUDECODE", "1");
    environment.set("CLAUDE_CODE_ENTRYPOINT", "cli");
    environment.set("CLAUDE_CONFIG_DIR", "/kept");
    environment.set("NO_COLOR", "0");
    const RunResult result = run(u"/usr/bin/env"_s, {}, 10.0);
    ASSERT_TRUE(result.ok());
    const QStringList lines = result.output.split(QLatin1Char('\n'));
    EXPECT_TRUE(lines.contains(u"CLAUDE_CONFIG_DIR=/kept"_s));
    EXPECT_TRUE(lines.contains(u"NO_COLOR=1"_s));
    EXPECT_FALSE(lines.contains(u"NO_COLOR=0"_s));
    EXPECT_FALSE(result.output.contains(u"CLAUDECODE="_s));
    EXPECT_FALSE(result.output.contains(u"CLAUDE_CODE_"_s));
}

TEST(ProcessRunner, ReportsAToolOrFolderThatIsNotThereAsNotStarted) {
    QTemporaryDir dir;
    EXPECT_EQ(run(dir.path() + u"/missing"_s, {}, 5.0).error, RunError::couldNotStart);
    EXPECT_EQ(shell(u"echo x"_s, 5.0, dir.path() + u"/nowhere"_s).error, RunError::couldNotStart);
    const QString plain = dir.path() + u"/plain"_s;
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

    const QStringList pids = {readTrimmed(dir.filePath(u"self"_s)), readTrimmed(dir.filePath(u"job"_s)),
                              readTrimmed(dir.filePath(u"grouped"_s))};
    for (const QString& pid : pids) {
        ASSERT_FALSE(pid.isEmpty());
        EXPECT_TRUE(test::waitUntil([&] { return isGone(pid); }, 3000)) << pid.toStdString();
    }
}

TEST(ProcessRunner, ReturnsWhenTheChildEndsEvenIfItsBackgroundJobsHoldThePipe) {
    QTemporaryDir dir;
    QElapsedTimer clock;
    clock.start();
    const RunResult quiet = shell(u"cd '%1'; sleep 300 & echo $! > job; echo done"_s.arg(dir.path()));
    ASSERT_TRUE(quiet.ok());
    EXPECT_EQ(quiet.output, u"done\n"_s);
    // A chatty job that keeps writing after its parent has gone.
    const RunResult chatty = shell(u"(while :; do echo x; done) & echo started"_s);
    ASSERT_TRUE(chatty.ok());
    EXPECT_TRUE(chatty.output.startsWith(u"started\n"_s) || chatty.output.contains(u"\nstarted\n"_s));
    EXPECT_LT(clock.elapsed(), 5000); // far inside the two 10-second time-outs

    const QString job = readTrimmed(dir.filePath(u"job"_s));
    ASSERT_FALSE(job.isEmpty());
    EXPECT_TRUE(test::waitUntil([&] { return isGone(job); }, 3000));
}

TEST(ProcessRunner, KeepsOnlyTheEndOfAFloodAndStillReturns) {
    QElapsedTimer clock;
    clock.start();
    const RunResult finite = shell(u"head -c 20000000 /dev/zero | tr '\\0' x; echo; echo END"_s, 30.0);
    ASSERT_TRUE(finite.ok());
    EXPECT_TRUE(finite.truncated);
    EXPECT_LE(finite.output.size(), outputLimitBytes);
    EXPECT_GT(finite.output.size(), outputLimitBytes / 2);
    EXPECT_TRUE(finite.output.endsWith(u"x\nEND\n"_s));

    const RunResult endless = run(u"/usr/bin/yes"_s, {}, 1.0);
    EXPECT_EQ(endless.error, RunError::timedOut);
    EXPECT_LT(clock.elapsed(), 20000);
}
