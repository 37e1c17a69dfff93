#include "integration/AgentEnvironment.h"

#include "support/ScopedEnvironment.h"
#include "support/TestSupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QThread>
#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace mirrowisp;
using namespace mirrowisp::AgentEnvironment;
using namespace Qt::StringLiterals;

namespace {

const QString bash = u"/bin/bash"_s;

using mirrowisp::test::writeFile;

// The usual Debian pair: the profile reads .bashrc, which stops early unless the shell is
// interactive.
const QByteArray bashrcGuard = "case $- in *i*) ;; *) return;; esac\n";
const QByteArray sourceBashrc = "[ -f ~/.bashrc ] && . ~/.bashrc\n";

// A temporary home with none of the agents' variables inherited from the test's own environment,
// and the published locations put back afterwards.
class AgentEnvironmentTest : public ::testing::Test {
protected:
    AgentEnvironmentTest() : saved_(current()) {
        for (const char* name : {"CLAUDE_CONFIG_DIR", "CODEX_HOME", "GEMINI_CLI_HOME", "COPILOT_HOME"}) {
            environment_.unset(name);
        }
        environment_.set("XDG_DATA_HOME", QFile::encodeName(home_.path() + u"/.local/share"_s));
        environment_.set("XDG_DATA_DIRS",
                         QFile::encodeName(dataDirs_.path() + u"/one:"_s + dataDirs_.path() + u"/two"_s));
    }
    ~AgentEnvironmentTest() override { setCurrent(saved_); }

    QString home() const { return home_.path(); }
    QString at(const char* relative) const {
        return home_.path() + QLatin1Char('/') + QLatin1String(relative);
    }

    test::TemporaryHome home_;
    QTemporaryDir dataDirs_;
    test::ScopedEnvironment environment_;
    Locations saved_;
};

bool systemHasAnyTool() {
    for (AgentKind kind : AgentKinds::all) {
        for (const QString& path : cli(kind, u"/nonexistent-home"_s).fallbacks) {
            if (isExecutableFile(path)) {
                return true;
            }
        }
    }
    return false;
}

} // namespace

TEST(AgentEnvironmentProbeOutput, ReadsOnlyWhatFollowsTheFirstSentinel) {
    const QString text = QStringLiteral("Welcome!\nBANNER=before\n__MIRROWISP__\n"
                                        "A=1\n\nB=x=y\nC=\n=D\nE= \t spaced \t\nBLANK= \t\nnothing\nA=2\n"
                                        "__MIRROWISP__\nF=3\n");
    const QMap<QString, QString> expected = {
        {u"A"_s, u"2"_s}, {u"B"_s, u"x=y"_s}, {u"E"_s, u"spaced"_s}, {u"F"_s, u"3"_s}};
    EXPECT_EQ(parseProbeOutput(text), expected);
    EXPECT_TRUE(parseProbeOutput(u"A=1\n__MIRROWISP__"_s).isEmpty());
}

TEST_F(AgentEnvironmentTest, BuildsDirectoriesFromTheShellsValues) {
    const Locations found = locations({{u"CLAUDE_CONFIG_DIR"_s, u"/srv/a=b/"_s},
                                       {u"CODEX_HOME"_s, u"~/x"_s},
                                       {u"XDG_CONFIG_HOME"_s, u"~"_s},
                                       {u"GEMINI_CLI_HOME"_s, u"/a"_s},
                                       {u"COPILOT_HOME"_s, u"~root/cp"_s}},
                                      home());
    EXPECT_EQ(found.home, home());
    EXPECT_EQ(found.dir(AgentKind::claude), u"/srv/a=b"_s);
    EXPECT_EQ(found.dir(AgentKind::codex), at("x"));
    EXPECT_EQ(found.dir(AgentKind::cursor), at(".cursor"));
    EXPECT_EQ(found.dir(AgentKind::opencode), at("opencode"));
    EXPECT_EQ(found.dir(AgentKind::amp), at("amp"));
    EXPECT_EQ(found.dir(AgentKind::devin), at("devin"));
    EXPECT_EQ(found.dir(AgentKind::gemini), u"/a/.gemini"_s);
    EXPECT_EQ(found.dir(AgentKind::copilot), u"/root/cp"_s);
}

TEST_F(AgentEnvironmentTest, TakesTheShellsToolOnlyWhenItIsAnExecutableFile) {
    writeFile(at("tools/codex"), "#!/bin/sh\n", true);
    writeFile(at("tools/gemini"), "not executable\n");
    writeFile(at(".claude/local/claude"), "#!/bin/sh\n", true);
    writeFile(at(".local/bin/claude"), "#!/bin/sh\n", true);
    QDir().mkpath(at(".local/bin/amp")); // a directory is no tool
    const Locations found = locations({{u"cli.claude"_s, u"alias claude='x'"_s},
                                       {u"cli.codex"_s, at("tools/codex")},
                                       {u"cli.gemini"_s, at("tools/gemini")},
                                       {u"cli.amp"_s, u"amp"_s}},
                                      home());
    EXPECT_EQ(found.clis.value(AgentKind::claude), at(".local/bin/claude")); // the table's order
    EXPECT_EQ(found.clis.value(AgentKind::codex), at("tools/codex"));
    if (!systemHasAnyTool()) {
        EXPECT_EQ(found.clis.size(), 2);
    }
}

TEST_F(AgentEnvironmentTest, ReadsTheLoginShellsValuesPastItsBanners) {
    writeFile(at(".bash_profile"), "echo 'Welcome to the machine'\necho 'CODEX_HOME=/banner'\n"
                                   "export CLAUDE_CONFIG_DIR='/srv/claude=config'\n"
                                   "export CODEX_HOME='~/codex home'\n"
                                   "export COPILOT_HOME=\"$HOME/cp\"\n" +
                                       sourceBashrc);
    writeFile(at(".bashrc"), bashrcGuard + "echo 'interactive hello'\n");
    const Locations found = probe(bash, home(), 5.0);
    EXPECT_EQ(found.dir(AgentKind::claude), u"/srv/claude=config"_s);
    EXPECT_EQ(found.dir(AgentKind::codex), at("codex home"));
    EXPECT_EQ(found.dir(AgentKind::copilot), at("cp"));
}

TEST_F(AgentEnvironmentTest, AsksThePlainLoginShellWhenTheInteractiveOneHangs) {
    writeFile(at(".bash_profile"), "export CODEX_HOME=/from/login\n" + sourceBashrc);
    writeFile(at(".bashrc"), bashrcGuard + "read answer < \"$HOME/never\"\n");
    ASSERT_EQ(::mkfifo(QFile::encodeName(at("never")).constData(), 0600), 0); // nobody ever writes
    QElapsedTimer clock;
    clock.start();
    const Locations found = probe(bash, home(), 1.0);
    EXPECT_EQ(found.dir(AgentKind::codex), u"/from/login"_s);
    EXPECT_GE(clock.elapsed(), 1000); // the first attempt waited out its time-out
    EXPECT_LT(clock.elapsed(), 4000);
}

TEST_F(AgentEnvironmentTest, SearchesTheFallbacksWhenTheShellNamesAnAlias) {
    writeFile(at(".bash_profile"), "export PATH=\"$HOME/tools:$PATH\"\n" + sourceBashrc);
    writeFile(at(".bashrc"),
              bashrcGuard + "alias claude='echo not a tool'\nalias codex=\"$HOME/tools/codex\"\n");
    writeFile(at("tools/codex"), "#!/bin/sh\n", true);
    writeFile(at(".claude/local/claude"), "#!/bin/sh\n", true);
    const Locations found = probe(bash, home(), 5.0);
    EXPECT_EQ(found.clis.value(AgentKind::claude), at(".claude/local/claude"));
    // The alias for codex names a path, but `command -v` prints the alias, so the table decides;
    // codex has no fallback here, and the shell's PATH entry is never searched by the app itself.
    if (!systemHasAnyTool()) {
        EXPECT_FALSE(found.clis.contains(AgentKind::codex));
    }
}

TEST_F(AgentEnvironmentTest, FindsToolsOnTheLoginShellsPath) {
    writeFile(at(".bash_profile"), "export PATH=\"$HOME/tools:$PATH\"\n");
    writeFile(at("tools/codex"), "#!/bin/sh\n", true);
    writeFile(at("tools/cursor-agent"), "#!/bin/sh\n", true);
    const Locations found = probe(bash, home(), 5.0);
    EXPECT_EQ(found.clis.value(AgentKind::codex), at("tools/codex"));
    EXPECT_EQ(found.clis.value(AgentKind::cursor), at("tools/cursor-agent"));
}

TEST_F(AgentEnvironmentTest, ReadsEachShellsProfileAndTreatsBlankValuesAsUnset) {
    environment_.set("XDG_CONFIG_HOME", "/elsewhere"); // the app's own value must not leak through
    struct Case {
        const char* name;
        QString shell;
        const char* profile;
        QByteArray text;
        AgentKind agent;
        QString dir;
    };
    const QByteArray blank = "export XDG_CONFIG_HOME=\nexport CLAUDE_CONFIG_DIR='  '\n";
    const Case cases[] = {
        {"blank XDG", bash, ".bash_profile", blank, AgentKind::opencode, at(".config/opencode")},
        {"blank Claude", bash, ".bash_profile", blank, AgentKind::claude, at(".claude")},
        {"POSIX shell", u"/bin/sh"_s, ".profile",
         "echo 'dash says hi'\nCODEX_HOME=/posix; export CODEX_HOME\n", AgentKind::codex, u"/posix"_s},
        {"megabytes of banner", bash, ".bash_profile",
         "head -c 8000000 /dev/zero | tr '\\0' '#'\necho\nexport CODEX_HOME=/big\n", AgentKind::codex,
         u"/big"_s},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        writeFile(at(c.profile), c.text);
        EXPECT_EQ(probe(c.shell, home(), 10.0).dir(c.agent), c.dir);
        QFile::remove(at(c.profile));
    }
}

TEST_F(AgentEnvironmentTest, FallsBackOnTheDefaultsWhenTheShellNeverAnswers) {
    writeFile(at(".bash_profile"), "export CODEX_HOME=/never\nyes 'a shell that talks forever'\n");
    QElapsedTimer clock;
    clock.start();
    const Locations found = probe(bash, home(), 1.0);
    EXPECT_LT(clock.elapsed(), 5000); // two attempts of one second each, and nothing more
    EXPECT_EQ(found.dirs, Locations::standard(home()).dirs);

    clock.restart();
    EXPECT_EQ(probe(at("no-such-shell"), home(), 1.0).dirs, Locations::standard(home()).dirs);
    EXPECT_LT(clock.elapsed(), 1000);
}

TEST_F(AgentEnvironmentTest, FindsNothingInAnEmptyHome) {
    if (systemHasAnyTool()) {
        GTEST_SKIP() << "this machine has an agent's tool installed system-wide";
    }
    writeFile(at(".bash_profile"), "export PATH=/usr/bin:/bin\n");
    const Locations found = probe(bash, home(), 5.0);
    EXPECT_TRUE(found.clis.isEmpty());
    EXPECT_EQ(found.dirs.size(), 8);
    setCurrent(found);
    for (AgentKind kind : AgentKinds::all) {
        EXPECT_FALSE(isInstalled(kind)) << AgentKinds::rawValue(kind).toStdString();
    }
}

TEST_F(AgentEnvironmentTest, CountsFilesAnAgentLeftBehindButNotItsBareDirectory) {
    Locations here = Locations::standard(home(), at("xdg"));
    setCurrent(here);
    for (AgentKind kind : AgentKinds::all) {
        QDir().mkpath(here.dir(kind));
    }
    QDir().mkpath(at(".local/share/opencode"));
    for (AgentKind kind : AgentKinds::all) {
        EXPECT_FALSE(isInstalled(kind)) << AgentKinds::rawValue(kind).toStdString();
    }

    writeFile(at(".claude.json"), "{}");
    QDir().mkpath(here.dir(AgentKind::codex) + u"/sessions"_s);
    writeFile(here.dir(AgentKind::cursor) + u"/cli-config.json"_s, "{}");
    writeFile(at(".local/share/opencode/opencode.db"), ""); // under the home, whatever the XDG folder
    writeFile(at("xdg/amp/settings.jsonc"), "{}");
    QDir().mkpath(at(".local/share/devin"));
    QDir().mkpath(here.dir(AgentKind::gemini) + u"/tmp"_s);
    writeFile(here.dir(AgentKind::copilot) + u"/config.json"_s, "{}");
    for (AgentKind kind : AgentKinds::all) {
        EXPECT_TRUE(isInstalled(kind)) << AgentKinds::rawValue(kind).toStdString();
    }
}

TEST_F(AgentEnvironmentTest, CountsAFoundToolAndADesktopEntry) {
    Locations here = Locations::standard(home());
    here.clis[AgentKind::amp] = u"/opt/amp/bin/amp"_s;
    setCurrent(here);
    EXPECT_TRUE(isInstalled(AgentKind::amp));

    EXPECT_FALSE(isInstalled(AgentKind::cursor));
    EXPECT_FALSE(isInstalled(AgentKind::devin));
    writeFile(at(".local/share/applications/cursor.desktop"), "[Desktop Entry]\n");
    writeFile(dataDirs_.path() + u"/two/applications/windsurf.desktop"_s, "[Desktop Entry]\n");
    writeFile(at(".local/share/applications/claude.desktop"), "[Desktop Entry]\n"); // no such app on Linux
    EXPECT_TRUE(isInstalled(AgentKind::cursor));
    EXPECT_TRUE(isInstalled(AgentKind::devin));
    EXPECT_FALSE(isInstalled(AgentKind::claude));
}

TEST_F(AgentEnvironmentTest, ResolvePublishesOnTheMainThreadAndThenRunsTheCompletion) {
    environment_.set("SHELL", bash.toUtf8());
    writeFile(at(".bash_profile"), "export CODEX_HOME=/resolved\n");
    setCurrent(Locations::standard(home()));
    bool done = false;
    bool onMain = false;
    QString seen;
    resolve([&] {
        onMain = QThread::currentThread() == QCoreApplication::instance()->thread();
        seen = current().dir(AgentKind::codex);
        done = true;
    });
    ASSERT_TRUE(test::waitUntil([&] { return done; }, 15000));
    EXPECT_TRUE(onMain);
    EXPECT_EQ(seen, u"/resolved"_s);
    EXPECT_EQ(current().dir(AgentKind::codex), u"/resolved"_s);
}

TEST(AgentEnvironmentTilde, ExpandsOnlyALeadingTilde) {
    EXPECT_EQ(expandTilde(u"~"_s, u"/h"_s), u"/h"_s);
    EXPECT_EQ(expandTilde(u"~/a/~b"_s, u"/h"_s), u"/h/a/~b"_s);
    EXPECT_EQ(expandTilde(u"/a/~"_s, u"/h"_s), u"/a/~"_s);
    EXPECT_EQ(expandTilde(u"~root/x"_s, u"/h"_s), u"/root/x"_s);
    EXPECT_EQ(expandTilde(u"~no-such-user-here/x"_s, u"/h"_s), u"~no-such-user-here/x"_s);
}
