#include "usage/ClaudeUsageProbe.h"

#include "support/ScopedEnvironment.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace mirrowisp;
using namespace mirrowisp::ClaudeUsageProbe;

namespace {

QString readTrimmed(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()).trimmed() : QString();
}

void writeExecutable(const QString& path, const QByteArray& text) {
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(text);
    file.close();
    file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

} // namespace

TEST(ClaudeUsageProbeFetch, RunsTheToolInTheProbeFolderWithoutHooksAndReadsItsMeters) {
    test::TemporaryHome home;
    const QString cli = home.path() + QStringLiteral("/bin/claude");
    writeExecutable(cli,
                    "#!/bin/sh\n"
                    "pwd -P > \"$HOME/cwd\"; printf '%s\\n' \"$@\" > \"$HOME/args\"\n"
                    "echo 'Usage'; echo ' Current session: 91% used'; echo 'Current week (Opus): 3% used'\n");
    const FetchResult result = fetch(cli);
    ASSERT_FALSE(result.failure.has_value());
    ASSERT_EQ(result.meters.size(), 2);
    EXPECT_EQ(result.meters[0].label, QStringLiteral("5-hour"));
    EXPECT_EQ(result.meters[0].severity, QStringLiteral("critical"));
    EXPECT_EQ(result.meters[1].label, QStringLiteral("Weekly · Opus"));
    EXPECT_EQ(readTrimmed(home.path() + QStringLiteral("/args")),
              QStringLiteral("-p\n/usage\n--no-session-persistence\n--settings\n{\"disableAllHooks\":true}"));
    EXPECT_EQ(readTrimmed(home.path() + QStringLiteral("/cwd")),
              QDir(home.supportDir() + QStringLiteral("/probe")).canonicalPath());
}

TEST(ClaudeUsageProbeFetch, TellsASignedOutToolFromTextWithoutMetersAndAToolThatWillNotStart) {
    test::TemporaryHome home;
    const QString cli = home.path() + QStringLiteral("/claude");
    writeExecutable(cli, "#!/bin/sh\necho 'Current session: 5% used'; echo 'Error: PLEASE RUN /LOGIN'\n");
    EXPECT_EQ(fetch(cli).failure, Failure::notSignedIn);
    writeExecutable(cli, "#!/bin/sh\necho 'Invalid API key · Fix external API key' >&2\n");
    EXPECT_EQ(fetch(cli).failure, Failure::notSignedIn);
    writeExecutable(cli, "#!/bin/sh\necho 'Unknown command: /usage'\n");
    EXPECT_EQ(fetch(cli).failure, Failure::unparseable);
    EXPECT_EQ(fetch(home.path() + QStringLiteral("/gone")).failure, Failure::couldNotStart);
}

TEST(ClaudeUsageProbeFindCLI, PrefersTheUsualPlacesThenAsksTheLoginShell) {
    for (const char* place : {"/opt/homebrew/bin/claude", "/usr/local/bin/claude", "/usr/bin/claude"}) {
        if (QFileInfo::exists(QString::fromLatin1(place))) {
            GTEST_SKIP() << "this machine has " << place;
        }
    }
    test::TemporaryHome home;
    test::ScopedEnvironment environment;
    environment.set("SHELL", "/bin/bash");
    QFile profile(home.path() + QStringLiteral("/.bash_profile"));
    ASSERT_TRUE(profile.open(QIODevice::WriteOnly));
    profile.write("echo 'Hello from the profile'\nexport PATH=\"$HOME/tools:$PATH\"\n");
    profile.close();

    EXPECT_EQ(findCLI(), std::nullopt);
    writeExecutable(home.path() + QStringLiteral("/tools/claude"), "#!/bin/sh\n");
    EXPECT_EQ(findCLI(), home.path() + QStringLiteral("/tools/claude"));
    writeExecutable(home.path() + QStringLiteral("/.claude/local/claude"), "#!/bin/sh\n");
    EXPECT_EQ(findCLI(), home.path() + QStringLiteral("/.claude/local/claude"));
    writeExecutable(home.path() + QStringLiteral("/.local/bin/claude"), "#!/bin/sh\n");
    EXPECT_EQ(findCLI(), home.path() + QStringLiteral("/.local/bin/claude"));
}
