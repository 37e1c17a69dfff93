#include "usage/ClaudeUsageProbe.h"

#include "support/ScopedEnvironment.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <gtest/gtest.h>

using namespace mirrowisp;
using namespace mirrowisp::ClaudeUsageProbe;

namespace {

using test::writeFile;

QString readTrimmed(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()).trimmed() : QString();
}

} // namespace

TEST(ClaudeUsageProbeFetch, RunsTheToolInTheProbeFolderWithoutHooksAndReadsItsMeters) {
    test::TemporaryHome home;
    const QString cli = home.path() + QStringLiteral("/bin/claude");
    writeFile(cli,
              "#!/bin/sh\n"
              "pwd -P > \"$HOME/cwd\"; printf '%s\\n' \"$@\" > \"$HOME/args\"\n"
              "echo 'Usage'; echo ' Current session: 91% used'; echo 'Current week (Opus): 3% used'\n",
              true);
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
    const std::pair<const char*, Failure> cases[] = {
        {"echo 'Current session: 5% used'; echo 'Error: PLEASE RUN /LOGIN'", Failure::notSignedIn},
        {"echo 'Invalid API key · Fix external API key' >&2", Failure::notSignedIn},
        {"echo 'Unknown command: /usage'", Failure::unparseable},
    };
    for (const auto& [script, failure] : cases) {
        writeFile(cli, QByteArray("#!/bin/sh\n") + script + '\n', true);
        EXPECT_EQ(fetch(cli).failure, failure) << script;
    }
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
    writeFile(home.path() + QStringLiteral("/.bash_profile"),
              "echo 'Hello from the profile'\nexport PATH=\"$HOME/tools:$PATH\"\n");

    EXPECT_EQ(findCLI(), std::nullopt);
    writeFile(home.path() + QStringLiteral("/tools/claude"), "#!/bin/sh\n", true);
    EXPECT_EQ(findCLI(), home.path() + QStringLiteral("/tools/claude"));
    writeFile(home.path() + QStringLiteral("/.claude/local/claude"), "#!/bin/sh\n", true);
    EXPECT_EQ(findCLI(), home.path() + QStringLiteral("/.claude/local/claude"));
    writeFile(home.path() + QStringLiteral("/.local/bin/claude"), "#!/bin/sh\n", true);
    EXPECT_EQ(findCLI(), home.path() + QStringLiteral("/.local/bin/claude"));
}
