#include "integration/HookInstaller.h"

#include "integration/HookTestSupport.h"
#include "integration/Locations.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using namespace mirrowisp;
using namespace Qt::StringLiterals;
using mirrowisp::test::HookTest;

namespace {

QString settingsOf(AgentKind kind) {
    return HookInstaller::integration(kind).file;
}

// A JSON text with $C standing for the hook command and $S for the status-line command.
QJsonObject expected(AgentKind kind, const char* json) {
    const auto quoted = [](const QString& text) {
        const QByteArray list = QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact);
        return list.mid(1, list.size() - 2);
    };
    QByteArray text(json);
    text.replace("$C", quoted(HookInstaller::command(kind, false)));
    text.replace("$S", quoted(HookInstaller::command(kind, true)));
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(text, &error);
    EXPECT_EQ(error.error, QJsonParseError::NoError) << json;
    return document.object();
}

// Moves the file's modification time into the past, so that any write would show.
QDateTime age(const QString& path) {
    QFile file(path);
    const QDateTime past = QDateTime::currentDateTimeUtc().addSecs(-3600);
    EXPECT_TRUE(file.open(QIODevice::ReadWrite));
    EXPECT_TRUE(file.setFileTime(past, QFileDevice::FileModificationTime));
    return QFileInfo(path).lastModified();
}

} // namespace

// ---- What install writes, agent by agent ----

TEST_F(HookTest, EachSharedFileGetsItsAgentsEntryShape) {
    struct Case {
        AgentKind kind;
        const char* event;
        const char* entries; // the list under `event`
        int eventCount;
    };
    const Case cases[] = {
        {AgentKind::claude, "PreToolUse",
         R"({"x": [{"hooks": [{"command": $C, "timeout": 10, "type": "command"}]}]})", 14},
        {AgentKind::claude, "PermissionRequest",
         R"({"x": [{"hooks": [{"command": $C, "timeout": 86400, "type": "command",
                               "statusMessage": "Mirrowisp: approvals in the notch"}]}]})",
         14},
        {AgentKind::codex, "PreToolUse",
         R"({"x": [{"hooks": [{"command": $C, "timeout": 10, "type": "command",
                               "statusMessage": "Mirrowisp: session status"}]}]})",
         11},
        {AgentKind::codex, "PermissionRequest",
         R"({"x": [{"hooks": [{"command": $C, "timeout": 86400, "type": "command",
                               "statusMessage": "Waiting for your approval in Mirrowisp"}]}]})",
         11},
        {AgentKind::devin, "PermissionRequest",
         R"({"x": [{"matcher": "", "hooks": [{"command": $C, "timeout": 86400, "type": "command"}]}]})", 7},
        {AgentKind::gemini, "BeforeTool",
         R"({"x": [{"hooks": [{"command": $C, "timeout": 10000, "type": "command", "name": "Mirrowisp"}]}]})",
         8},
        {AgentKind::cursor, "preToolUse", R"({"x": [{"command": $C, "timeout": 10}]})", 10},
        {AgentKind::copilot, "PreToolUse", R"({"x": [{"type": "command", "bash": $C, "timeoutSec": 10}]})",
         9},
        {AgentKind::copilot, "notification",
         R"({"x": [{"type": "command", "bash": $C, "timeoutSec": 10,
                    "matcher": "permission_prompt|elicitation_dialog"}]})",
         9},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(AgentKinds::rawValue(c.kind).toStdString() + " " + c.event);
        ASSERT_FALSE(HookInstaller::install(c.kind, defaults()));
        const QJsonObject file = readJsonObject(settingsOf(c.kind));
        const QJsonObject hooks = file.value(u"hooks"_s).toObject();
        EXPECT_EQ(hooks.size(), c.eventCount);
        EXPECT_EQ(hooks.value(QString::fromLatin1(c.event)), expected(c.kind, c.entries).value(u"x"_s));
        // Only Claude has a status line, and it is ours while the user has none.
        EXPECT_EQ(file.value(u"statusLine"_s).toObject(),
                  c.kind == AgentKind::claude
                      ? expected(c.kind, R"({"command": $S, "padding": 0, "type": "command"})")
                      : QJsonObject());
        const bool versioned = c.kind == AgentKind::cursor || c.kind == AgentKind::copilot;
        EXPECT_EQ(file.contains(u"version"_s), versioned);
        // Sorted, indented for people, and slashes as they are.
        EXPECT_EQ(readFile(settingsOf(c.kind)), QJsonDocument(file).toJson(QJsonDocument::Indented));
    }
}

TEST_F(HookTest, AnExistingVersionStaysAndAMissingOneBecomesOne) {
    writeFile(settingsOf(AgentKind::cursor), R"({"version": 2, "hooks": {}})");
    ASSERT_FALSE(HookInstaller::install(AgentKind::cursor, defaults()));
    EXPECT_EQ(readJsonObject(settingsOf(AgentKind::cursor)).value(u"version"_s).toInt(), 2);
    writeFile(settingsOf(AgentKind::copilot), R"({"hooks": {}})");
    ASSERT_FALSE(HookInstaller::install(AgentKind::copilot, defaults()));
    EXPECT_EQ(readJsonObject(settingsOf(AgentKind::copilot)).value(u"version"_s).toInt(), 1);
}

TEST_F(HookTest, InstallFollowsTheAgentFoldersOfTheCurrentLocations) {
    Locations moved = Locations::standard(home());
    moved.dirs[AgentKind::claude] = home() + u"/elsewhere/claude config"_s;
    AgentEnvironment::setCurrent(moved);
    ASSERT_FALSE(HookInstaller::install(AgentKind::claude, defaults()));
    EXPECT_TRUE(QFile::exists(home() + u"/elsewhere/claude config/settings.json"_s));
    EXPECT_FALSE(QFile::exists(home() + u"/.claude/settings.json"_s));
}

// ---- The steady state ----

TEST_F(HookTest, InstallingAgainChangesNothingForEveryAgent) {
    for (const AgentKind kind : AgentKinds::all) {
        SCOPED_TRACE(AgentKinds::rawValue(kind).toStdString());
        ASSERT_FALSE(HookInstaller::install(kind, defaults()));
        const QString path = settingsOf(kind);
        if (HookInstaller::integration(kind).kind != HookInstaller::Integration::Kind::plugin) {
            // The same content in other words, as another tool might have rewritten it.
            writeFile(path, QJsonDocument(readJsonObject(path)).toJson(QJsonDocument::Compact));
        }
        const QByteArray before = readFile(path);
        const QDateTime time = age(path);
        clearBackups();
        ASSERT_FALSE(HookInstaller::install(kind, defaults()));
        EXPECT_EQ(readFile(path), before);
        EXPECT_EQ(QFileInfo(path).lastModified(), time);
        EXPECT_TRUE(backups().isEmpty());
    }
}

TEST_F(HookTest, AnOldCommandOfOursIsReplacedNotDoubled) {
    writeFile(settingsOf(AgentKind::claude), R"({"hooks": {"Stop": [
        {"hooks": [{"type": "command", "command": "/old/place/mirrowisp-bridge --agent claude"}]}]},
        "statusLine": {"type": "command", "command": "/old/place/mirrowisp-bridge --statusline"}})");
    ASSERT_FALSE(HookInstaller::install(AgentKind::claude, defaults()));
    const QJsonObject file = readJsonObject(settingsOf(AgentKind::claude));
    EXPECT_EQ(file.value(u"hooks"_s).toObject().value(u"Stop"_s),
              expected(AgentKind::claude,
                       R"({"x": [{"hooks": [{"command": $C, "timeout": 10, "type": "command"}]}]})")
                  .value(u"x"_s));
    EXPECT_EQ(file.value(u"statusLine"_s).toObject().value(u"command"_s).toString(),
              HookInstaller::command(AgentKind::claude, true));
    EXPECT_EQ(backups().size(), 1);
}

// ---- Files we must not touch ----

// Every file install refuses: nothing written or backed up, on connect or disconnect, and the agent
// reported as blocked by it.
TEST_F(HookTest, ARefusedSettingsFileIsNeverWrittenNorBackedUp) {
    // Not regular or too large: one of each here, the rest where regular files are read.
    enum class Make { bytes, fifo, oversized };
    struct Case {
        const char* name;
        AgentKind agent;
        QByteArray bytes;
        const char* unexpectedKey = nullptr; // else unreadable
        Make make = Make::bytes;
        const char* reason = "";
    };
    const Case cases[] = {
        {"line comment", AgentKind::claude, "{\n  // mine\n  \"model\": \"opus\"\n}\n"},
        {"block comment", AgentKind::claude, "/* mine */ {\"model\": \"opus\"}"},
        {"trailing comma", AgentKind::claude, "{\"model\": \"opus\",}"},
        {"trailing comma in a list", AgentKind::claude, "{\"hooks\": {\"Stop\": [{\"command\": \"x\"},]}}"},
        {"top-level array", AgentKind::claude, "[]"},
        {"top-level string", AgentKind::claude, "\"settings\""},
        {"not UTF-8", AgentKind::claude, "{\"model\": \"op\xff\xfeus\"}"},
        {"Latin-1 text", AgentKind::claude, "{\"name\": \"Jos\xe9\"}"},
        {"raw control character", AgentKind::claude, "{\"model\": \"a\x01z\"}"},
        {"two objects", AgentKind::claude, "{} {}"},
        {"cut short", AgentKind::claude, "{\"hooks\": {"},
        {"a FIFO", AgentKind::claude, {}, nullptr, Make::fifo, "not a regular file"},
        {"over 16 MB", AgentKind::cursor, {}, nullptr, Make::oversized, "too large to read"},
        {"string event", AgentKind::claude, R"({"hooks": {"Stop": "echo done"}})", "hooks.Stop"},
        {"object event", AgentKind::claude, R"({"hooks": {"SessionStart": {"command": "x"}}})",
         "hooks.SessionStart"},
        {"null event", AgentKind::claude, R"({"hooks": {"PreCompact": null}})", "hooks.PreCompact"},
        {"hooks a string", AgentKind::codex, R"({"hooks": "none"})", "hooks"},
        {"hooks a list", AgentKind::codex, R"({"hooks": [1, 2]})", "hooks"},
        {"hooks null", AgentKind::codex, R"({"hooks": null})", "hooks"},
        {"Gemini object event", AgentKind::gemini, R"({"hooks": {"BeforeTool": {"a": 1}}})",
         "hooks.BeforeTool"},
        {"list of numbers", AgentKind::devin, R"({"hooks": {"Stop": [1]}})", "hooks.Stop"},
        {"Cursor string event", AgentKind::cursor, R"({"version": 1, "hooks": {"stop": "x"}})", "hooks.stop"},
        {"Copilot notification", AgentKind::copilot, R"({"hooks": {"notification": 3}})",
         "hooks.notification"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const QString path = settingsOf(c.agent);
        const QByteArray name = QFile::encodeName(path);
        QDir().mkpath(QFileInfo(path).absolutePath());
        QByteArray bytes = c.bytes;
        switch (c.make) {
        case Make::bytes:
            break;
        case Make::fifo:
            ASSERT_EQ(::mkfifo(name.constData(), 0600), 0);
            break;
        case Make::oversized:
            bytes = "{\"a\": \"" + QByteArray(16 * 1024 * 1024, 'x') + "\"}";
            break;
        }
        if (!bytes.isEmpty()) {
            writeFile(path, bytes);
        }
        struct stat before {};
        ASSERT_EQ(::lstat(name.constData(), &before), 0);
        const HookError expected = c.unexpectedKey
                                       ? HookError::unexpected(path, QString::fromLatin1(c.unexpectedKey))
                                       : HookError::unreadable(path, QString::fromLatin1(c.reason));

        EXPECT_EQ(HookInstaller::install(c.agent, defaults()), expected);
        EXPECT_EQ(HookInstaller::uninstall(c.agent), expected);
        EXPECT_EQ(HookInstaller::disconnect(c.agent, defaults()), expected);
        EXPECT_EQ(HookInstaller::connect(c.agent, defaults()), expected);
        EXPECT_FALSE(HookInstaller::isDisconnectedByUser(c.agent, defaults()));
        const AgentSetup setup = HookInstaller::setup(c.agent, 1.0, defaults(), {});
        EXPECT_EQ(setup.kind, AgentSetup::Kind::unreadableConfig);
        EXPECT_EQ(setup.unexpectedKey, c.unexpectedKey ? std::optional(expected.detail) : std::nullopt);
        struct stat after {};
        ASSERT_EQ(::lstat(name.constData(), &after), 0);
        EXPECT_EQ(after.st_mode, before.st_mode);
        if (!bytes.isEmpty()) {
            EXPECT_EQ(readFile(path), bytes);
        }
        EXPECT_TRUE(backups().isEmpty());
        ::unlink(name.constData());
    }
}

TEST_F(HookTest, ABlankFileCountsAsNoFileAndIsReplaced) {
    for (const QByteArray& bytes : {QByteArray(), QByteArray(" \t\r\n\n  ")}) {
        const QString path = settingsOf(AgentKind::devin);
        writeFile(path, bytes);
        EXPECT_EQ(HookInstaller::readConfig(path).state, HookInstaller::ConfigFile::State::missing);
        clearBackups();
        ASSERT_FALSE(HookInstaller::install(AgentKind::devin, defaults()));
        EXPECT_EQ(readJsonObject(path).value(u"hooks"_s).toObject().size(), 7);
        clearBackups(); // install backed up the blank file within this second
        EXPECT_EQ(HookInstaller::uninstall(AgentKind::devin), std::nullopt);
        QFile::remove(path);
    }
    EXPECT_EQ(HookInstaller::readConfig(home() + u"/nothing.json"_s).state,
              HookInstaller::ConfigFile::State::missing);
}

// ---- Foreign entries, and uninstall ----

// Install keeps every value of the user's and adds ours after theirs; uninstall gives back their file.
TEST_F(HookTest, InstallThenUninstallGivesBackTheUsersFile) {
    struct Case {
        const char* name;
        AgentKind agent;
        const char* user;  // nullptr: no file
        const char* after; // nullptr: the user's file again; "": no file
    };
    const Case cases[] = {
        {"foreign entries of every shape", AgentKind::claude, R"json({
          "hooks": {"MyOwnEvent": "just a string", "Counter": 3, "Flags": {"a": true},
                    "Mixed": [{"command": "mirrowisp-bridge but not a list of objects"}, 7], "Empty": null,
                    "Stop": [{"command": "echo flat"}, {"bash": "echo bash"},
                             {"matcher": "*", "hooks": [{"type": "command", "command": "notify-me"}]},
                             {"something": "else"}]},
          "permissions": {"allow": ["Bash(ls:*)"]}})json",
         nullptr},
        {"the user's status line", AgentKind::claude,
         R"({"statusLine": {"type": "command", "command": "~/bin/my-status"}})", nullptr},
        {"no hooks of the user's", AgentKind::claude, R"({"theme": "dark"})", nullptr},
        {"our hook inside the user's group", AgentKind::claude,
         R"({"hooks": {"PreToolUse": [{"matcher": "Bash", "hooks": [{"command": $C}, {"command": "mine"}]}]}})",
         R"({"hooks": {"PreToolUse": [{"matcher": "Bash", "hooks": [{"command": "mine"}]}]}})"},
        {"Copilot's file with the user's hooks", AgentKind::copilot,
         R"({"version": 1, "hooks": {"Stop": [{"type": "command", "bash": "say done"}]}})", nullptr},
        {"Copilot's file, ours alone", AgentKind::copilot, nullptr, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const QString path = settingsOf(c.agent);
        QFile::remove(path);
        const QJsonObject user = c.user ? expected(c.agent, c.user) : QJsonObject();
        if (c.user) {
            writeFile(path, QJsonDocument(user).toJson());
        }
        clearBackups();
        ASSERT_FALSE(HookInstaller::install(c.agent, defaults()));
        EXPECT_TRUE(HookInstaller::isInstalled(c.agent));
        const QJsonObject hooks = readJsonObject(path).value(u"hooks"_s).toObject();
        // What is the user's: the file as uninstall leaves it.
        const bool gone = c.after && *c.after == '\0';
        const QJsonObject left = gone ? QJsonObject() : c.after ? expected(c.agent, c.after) : user;
        const QJsonObject theirs = left.value(u"hooks"_s).toObject();
        for (auto it = theirs.begin(); it != theirs.end(); ++it) {
            SCOPED_TRACE(it.key().toStdString());
            QJsonValue now = hooks.value(it.key());
            if (HookInstaller::integration(c.agent).events.contains(it.key())) {
                QJsonArray list = now.toArray();
                EXPECT_TRUE(HookInstaller::containsMarker(list.takeAt(list.size() - 1).toObject()));
                now = list; // ours comes last, after theirs
            }
            EXPECT_EQ(now, it.value());
        }

        clearBackups();
        ASSERT_FALSE(HookInstaller::uninstall(c.agent));
        EXPECT_FALSE(HookInstaller::isInstalled(c.agent));
        if (gone) {
            EXPECT_FALSE(QFile::exists(path));
        } else {
            EXPECT_EQ(readJsonObject(path), left);
        }
        EXPECT_EQ(backups().size(), 1);
    }
}

// ---- Connect and disconnect ----

TEST_F(HookTest, DisconnectRemovesTheHooksAndRemembersConnectUndoesBoth) {
    ASSERT_FALSE(HookInstaller::disconnect(AgentKind::cursor, defaults())); // no file: nothing to do
    EXPECT_FALSE(QFile::exists(settingsOf(AgentKind::cursor)));
    ASSERT_FALSE(HookInstaller::connect(AgentKind::gemini, defaults()));
    EXPECT_TRUE(HookInstaller::isInstalled(AgentKind::gemini));
    EXPECT_FALSE(HookInstaller::isDisconnectedByUser(AgentKind::gemini, defaults()));

    ASSERT_FALSE(HookInstaller::disconnect(AgentKind::gemini, defaults()));
    EXPECT_FALSE(HookInstaller::isInstalled(AgentKind::gemini));
    EXPECT_TRUE(HookInstaller::isDisconnectedByUser(AgentKind::gemini, defaults()));
    EXPECT_EQ(defaults().boolValue(u"disconnected.gemini"_s), true);
    EXPECT_FALSE(HookInstaller::isDisconnectedByUser(AgentKind::claude, defaults()));

    clearBackups();
    ASSERT_FALSE(HookInstaller::connect(AgentKind::gemini, defaults()));
    EXPECT_TRUE(HookInstaller::isInstalled(AgentKind::gemini));
    EXPECT_FALSE(defaults().contains(u"disconnected.gemini"_s));
}

// ---- Backups ----

TEST_F(HookTest, BackupsAreNamedByTimeSkipRepeatsAndNeverOverwriteEachOther) {
    const QString path = settingsOf(AgentKind::claude);
    const QString folder = HookInstaller::backupsDirectory();
    const QDateTime when(QDate(2026, 1, 31), QTime(9, 15, 0), Qt::UTC);
    writeFile(path, R"({"a": 1})");
    ASSERT_FALSE(HookInstaller::backup(path, when));
    EXPECT_EQ(backups(), QStringList{u"claude-settings.json-2026-01-31T09-15-00Z"_s});
    EXPECT_EQ(readFile(folder + u"/claude-settings.json-2026-01-31T09-15-00Z"_s), QByteArray(R"({"a": 1})"));
    // The same content again is no new backup, however much later.
    ASSERT_FALSE(HookInstaller::backup(path, when.addSecs(3600)));
    EXPECT_EQ(backups().size(), 1);
    // New content within the same second is kept beside the first, and counts as the newer one.
    writeFile(path, R"({"a": 2})");
    ASSERT_FALSE(HookInstaller::backup(path, when.addMSecs(900)));
    EXPECT_EQ(readFile(folder + u"/claude-settings.json-2026-01-31T09-15-00Z"_s), QByteArray(R"({"a": 1})"));
    EXPECT_EQ(readFile(folder + u"/claude-settings.json-2026-01-31T09-15-00Z-01"_s),
              QByteArray(R"({"a": 2})"));
    ASSERT_FALSE(HookInstaller::backup(path, when.addMSecs(950)));
    EXPECT_EQ(backups().size(), 2) << "the newest backup within the second was not recognised";
    EXPECT_FALSE(HookInstaller::backup(home() + u"/absent.json"_s, when));
    EXPECT_EQ(backups().size(), 2);
}

TEST_F(HookTest, PruningKeepsTheTwentyNewestAndTheFirstBackupOfEachFile) {
    const QString folder = HookInstaller::backupsDirectory();
    const QDateTime start(QDate(2026, 1, 1), QTime(0, 0, 0), Qt::UTC);
    const auto name = [&](int i) {
        return u"codex-hooks.json-"_s + start.addSecs(i).toString(u"yyyy-MM-ddTHH-mm-ssZ"_s);
    };
    for (int i = 0; i < 22; ++i) {
        writeFile(folder + QLatin1Char('/') + name(i), QByteArray::number(i));
        QFile file(folder + QLatin1Char('/') + name(i));
        ASSERT_TRUE(file.open(QIODevice::ReadWrite));
        ASSERT_TRUE(file.setFileTime(start.addSecs(i), QFileDevice::FileModificationTime)); // 0 the oldest
    }
    writeFile(settingsOf(AgentKind::claude), R"({"b": 2})");
    ASSERT_FALSE(HookInstaller::install(AgentKind::claude, defaults()));

    const QStringList names = backups();
    EXPECT_EQ(names.size(), 21);
    EXPECT_TRUE(names.contains(name(0))) << "the user's original";
    EXPECT_FALSE(names.contains(name(1)));
    EXPECT_FALSE(names.contains(name(2)));
    EXPECT_TRUE(names.contains(name(3)));
    EXPECT_EQ(names.filter(u"claude-settings.json-"_s).size(), 1);
}

TEST_F(HookTest, BackupsAndRewrittenSettingsKeepTheirOwnersModeInPrivateFolders) {
    // A support folder made before, open to all: it is closed on the next backup.
    ASSERT_TRUE(QDir().mkpath(support()));
    ASSERT_EQ(::chmod(QFile::encodeName(support()).constData(), 0755), 0);
    for (const mode_t mode : {mode_t(0600), mode_t(0640), mode_t(0644)}) {
        SCOPED_TRACE(mode);
        clearBackups();
        const QString path = settingsOf(AgentKind::claude);
        const QByteArray name = QFile::encodeName(path);
        writeFile(path, R"({"env": {"TOKEN": "secret"}})");
        ASSERT_EQ(::chmod(name.constData(), mode), 0);
        ASSERT_FALSE(HookInstaller::install(AgentKind::claude, defaults()));
        clearBackups();
        ASSERT_FALSE(HookInstaller::uninstall(AgentKind::claude));

        struct stat info {};
        ASSERT_EQ(::stat(name.constData(), &info), 0);
        EXPECT_EQ(info.st_mode & 0777, mode);
        ASSERT_EQ(backups().size(), 1);
        const QString copy = HookInstaller::backupsDirectory() + QLatin1Char('/') + backups().constFirst();
        ASSERT_EQ(::stat(QFile::encodeName(copy).constData(), &info), 0);
        EXPECT_EQ(info.st_mode & 0777, mode);
        for (const QString& folder : {support(), HookInstaller::backupsDirectory()}) {
            ASSERT_EQ(::stat(QFile::encodeName(folder).constData(), &info), 0);
            EXPECT_EQ(info.st_mode & 0777, 0700u) << folder.toStdString();
        }
        QFile::remove(path);
    }
}

// A change that can't be completed leaves the file as it was, the agent connected and no backup behind,
// however often it is tried.
TEST_F(HookTest, AChangeThatCannotBeMadeLeavesTheFileAndNoBackup) {
    const QString path = settingsOf(AgentKind::claude);
    for (const bool backupBlocked : {true, false}) {
        SCOPED_TRACE(backupBlocked ? "no backup possible" : "no write possible");
        writeFile(path, R"({"model": "opus"})");
        rlimit old{};
        ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &old), 0);
        if (backupBlocked) {
            writeFile(HookInstaller::backupsDirectory(), "a file, not a folder");
        } else {
            // No file over 1 KB can be written: the new settings fail as a read-only file would (which
            // root could still write), while a backup of the old would still fit.
            std::signal(SIGXFSZ, SIG_IGN);
            rlimit small = old;
            small.rlim_cur = 1024;
            ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
        }
        std::vector<HookResult> results;
        for (int pass = 0; pass < 3; ++pass) {
            results.push_back(HookInstaller::install(AgentKind::claude, defaults()));
        }
        if (backupBlocked) { // (the smaller file disconnect writes would fit under the limit)
            results.push_back(HookInstaller::disconnect(AgentKind::claude, defaults()));
        }
        ::setrlimit(RLIMIT_FSIZE, &old);
        for (const HookResult& result : results) {
            ASSERT_TRUE(result);
            EXPECT_EQ(result->kind, HookError::Kind::fileSystem);
        }
        EXPECT_FALSE(HookInstaller::isDisconnectedByUser(AgentKind::claude, defaults()));
        EXPECT_EQ(readFile(path), QByteArray(R"({"model": "opus"})"));
        EXPECT_TRUE(backups().isEmpty());
        QFile::remove(HookInstaller::backupsDirectory());
    }
}

// ---- isInstalled ----

TEST_F(HookTest, IsInstalledLooksForAnyHookOfOursAndNotAtTheStatusLine) {
    const QString path = settingsOf(AgentKind::claude);
    writeFile(path, R"({"statusLine": {"command": "mirrowisp-bridge --statusline"}})");
    EXPECT_FALSE(HookInstaller::isInstalled(AgentKind::claude));
    writeFile(path,
              R"({"hooks": {"Stop": [{"hooks": [{"command": "x/mirrowisp-bridge --agent claude"}]}]}})");
    EXPECT_TRUE(HookInstaller::isInstalled(AgentKind::claude));
    writeFile(path, R"({"hooks": {"Stop": "mirrowisp-bridge"}})");
    EXPECT_FALSE(HookInstaller::isInstalled(AgentKind::claude));
    writeFile(settingsOf(AgentKind::copilot), R"({"hooks": {"Stop": [{"bash": "mirrowisp-bridge"}]}})");
    EXPECT_TRUE(HookInstaller::isInstalled(AgentKind::copilot));
}
