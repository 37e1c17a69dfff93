#include "remote/RemoteSetup.h"

#include "remote/RemoteFiles.h"
#include "remote/RemoteShell.h"
#include "support/ScopedEnvironment.h"
#include "support/SshServer.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QTemporaryDir>
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace mirrowisp {
namespace {

using test::readFile;
using test::writeFile;

const QString tool = QStringLiteral(MIRROWISP_BRIDGE_TOOL_PATH);

// A loopback port that was free a moment ago and is closed again.
int closedPort() {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ::bind(fd, reinterpret_cast<sockaddr*>(&address), length);
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    ::close(fd);
    return ntohs(address.sin_port);
}

QJsonObject parsed(const QByteArray& bytes) {
    return QJsonDocument::fromJson(bytes).object();
}

// One sshd for the whole suite; each test starts from an empty remote home.
class RemoteSetupTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        server_ = new test::SshServer;
        if (!server_->start()) {
            GTEST_FAIL() << server_->error().toStdString();
        }
    }
    static void TearDownTestSuite() {
        delete server_;
        server_ = nullptr;
    }
    void SetUp() override {
        env_.set("PATH", server_->path());
        QDir home(remote());
        home.removeRecursively();
        QDir().mkpath(remote());
    }

    static QString remote(const QString& path = {}) {
        return path.isEmpty() ? server_->remoteHome() : server_->remoteHome() + QLatin1Char('/') + path;
    }
    static RemoteHost host() { return RemoteHost{test::SshServer::host(), {}, {}, {}, {}}; }
    static QStringList backups() {
        return QDir(remote(QStringLiteral(".mirrowisp/backups"))).entryList(QDir::Files);
    }

    static inline test::SshServer* server_ = nullptr;
    test::ScopedEnvironment env_;
};

// The settings a user had before, with an entry and a value of their own.
const QByteArray userSettings = R"({"model": "opus", "hooks": {"Stop": [{"hooks": [{"type": "command",
  "command": "notify-send done"}]}]}})";

TEST_F(RemoteSetupTest, AddInstallsOnceAndRemoveGivesTheFilesBack) {
    writeFile(remote(QStringLiteral(".claude/settings.json")), userSettings);

    const RemoteOutcome first = RemoteSetupSteps::add(host(), tool);
    ASSERT_FALSE(first.error) << first.error->toStdString();
    EXPECT_TRUE(first.copiedTool);
    EXPECT_EQ(first.agents, QStringList{QStringLiteral("claude")});
    EXPECT_EQ(first.host.home, remote());
    EXPECT_EQ(readFile(remote(QStringLiteral(".mirrowisp/bin/mirrowisp-bridge"))), readFile(tool));
    EXPECT_TRUE(QFileInfo(remote(QStringLiteral(".mirrowisp/bin/mirrowisp-bridge"))).isExecutable());

    const QJsonObject installed = parsed(readFile(remote(QStringLiteral(".claude/settings.json"))));
    const QString hook = installed[QStringLiteral("hooks")][QStringLiteral("PreToolUse")][0]
                                  [QStringLiteral("hooks")][0][QStringLiteral("command")]
                                      .toString();
    EXPECT_TRUE(hook.contains(remote(QStringLiteral(".mirrowisp/bin/mirrowisp-bridge"))))
        << hook.toStdString();
    EXPECT_EQ(installed[QStringLiteral("model")], QStringLiteral("opus"));
    EXPECT_EQ(installed[QStringLiteral("hooks")][QStringLiteral("Stop")].toArray().size(), 2);
    ASSERT_EQ(backups().size(), 1);
    EXPECT_TRUE(backups().first().startsWith(QStringLiteral("claude-settings.json-")));
    EXPECT_EQ(readFile(remote(QStringLiteral(".mirrowisp/backups/")) + backups().first()), userSettings);

    // The same build and the same hooks: nothing is sent, nothing is written.
    const RemoteOutcome second = RemoteSetupSteps::add(host(), tool);
    ASSERT_FALSE(second.error);
    EXPECT_FALSE(second.copiedTool);
    EXPECT_EQ(backups().size(), 1);

    // The copy on the remote is the real tool: with no app behind it, it lets the agent go on.
    QProcess hookRun;
    hookRun.start(
        server_->binDir() + QStringLiteral("/ssh"),
        {test::SshServer::host(), QStringLiteral("~/.mirrowisp/bin/mirrowisp-bridge --agent claude")});
    hookRun.write(R"({"hook_event_name":"PreToolUse","session_id":"s1","tool_name":"Bash"})");
    hookRun.closeWriteChannel();
    ASSERT_TRUE(hookRun.waitForFinished(30000));
    EXPECT_EQ(hookRun.exitCode(), 0) << hookRun.readAllStandardError().toStdString();
    EXPECT_TRUE(hookRun.readAllStandardOutput().isEmpty());

    const RemoteOutcome removed = RemoteSetupSteps::remove(second.host);
    ASSERT_FALSE(removed.error) << removed.error->toStdString();
    EXPECT_EQ(parsed(readFile(remote(QStringLiteral(".claude/settings.json")))), parsed(userSettings));
    EXPECT_FALSE(QFileInfo::exists(remote(QStringLiteral(".mirrowisp/bin/mirrowisp-bridge"))));
    EXPECT_EQ(backups().size(), 2);
}

TEST_F(RemoteSetupTest, AFileThatDoesNotParseIsLeftAloneAndTheOthersAreInstalled) {
    const QByteArray broken = "{\"hooks\": {,}";
    writeFile(remote(QStringLiteral(".claude/settings.json")), broken);
    // Found where the remote login shell says, as here.
    writeFile(remote(QStringLiteral(".profile")), "export CODEX_HOME=\"$HOME/codex-home\"\n");
    QDir().mkpath(remote(QStringLiteral("codex-home")));

    // Earlier backups on the host, kept there as here: the twenty newest and the first of each file.
    const QDateTime start(QDate(2026, 1, 1), QTime(0, 0), Qt::UTC);
    const auto old = [&](int i) {
        return QStringLiteral("gemini-settings.json-") +
               start.addSecs(i).toString(QStringLiteral("yyyy-MM-ddTHH-mm-ssZ"));
    };
    for (int i = 0; i < 22; ++i) {
        const QString path = remote(QStringLiteral(".mirrowisp/backups/")) + old(i);
        writeFile(path, QByteArray::number(i));
        QFile file(path);
        file.open(QIODevice::ReadWrite);
        file.setFileTime(start.addSecs(i), QFileDevice::FileModificationTime);
    }

    const RemoteOutcome outcome = RemoteSetupSteps::add(host(), tool);
    ASSERT_FALSE(outcome.error) << outcome.error->toStdString();
    EXPECT_EQ(outcome.agents, QStringList{QStringLiteral("codex")});
    EXPECT_EQ(backups().size(), 21);
    EXPECT_TRUE(backups().contains(old(0)));
    EXPECT_FALSE(backups().contains(old(1)));
    ASSERT_EQ(outcome.problems.size(), 1);
    EXPECT_TRUE(outcome.problems.first().contains(remote(QStringLiteral(".claude/settings.json"))));
    EXPECT_EQ(readFile(remote(QStringLiteral(".claude/settings.json"))), broken);
    EXPECT_TRUE(QFileInfo::exists(remote(QStringLiteral("codex-home/hooks.json"))));
}

// Two changes within one second: the second backup takes the next suffix; the file keeps its mode.
TEST_F(RemoteSetupTest, WritesBesideTheFileAfterABackup) {
    const QString path = remote(QStringLiteral(".gemini/settings.json"));
    writeFile(path, "{}");
    ::chmod(QFile::encodeName(path).constData(), 0640);
    const QDateTime now(QDate(2026, 3, 1), QTime(12, 0), Qt::UTC);
    for (const QByteArray& bytes : {QByteArray("{\"a\": 1}"), QByteArray("{\"a\": 2}")}) {
        HookInstaller::FileEdit edit;
        edit.action = HookInstaller::FileEdit::Action::write;
        edit.bytes = bytes;
        const RemoteShell::Result result = RemoteShell::run(
            host(), RemoteFiles::applyCommand(edit, path, remote(QStringLiteral(".mirrowisp/backups")), now),
            bytes);
        ASSERT_TRUE(result.ok()) << result.err.toStdString();
    }
    EXPECT_EQ(readFile(path), "{\"a\": 2}");
    EXPECT_EQ(QFileInfo(path).permissions() & 0x0777,
              QFileDevice::ReadGroup | QFileDevice::WriteUser | QFileDevice::ReadUser);
    const QString name = QStringLiteral("gemini-settings.json-2026-03-01T12-00-00Z");
    EXPECT_EQ(backups(), (QStringList{name, name + QStringLiteral("-01")}));
    EXPECT_EQ(readFile(remote(QStringLiteral(".mirrowisp/backups/")) + name + QStringLiteral("-01")),
              "{\"a\": 1}");
}

// Each way a host can refuse: one clear sentence, and nothing written there.
enum class Trouble { closedPort, wrongKey, otherSystem, readOnlyHome, sharedSupportFolder };

struct Refusal {
    const char* name;
    Trouble trouble;
    const char* says;
};

void PrintTo(const Refusal& refusal, std::ostream* out) {
    *out << refusal.name;
}

class RemoteRefusalTest : public RemoteSetupTest, public ::testing::WithParamInterface<Refusal> {
protected:
    void TearDown() override {
        // Undo a read-only home, whichever way it was made.
        QProcess::execute(QStringLiteral("chattr"), {QStringLiteral("-i"), remote()});
        QFile(remote()).setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

    RemoteHost prepare(Trouble trouble) {
        RemoteHost target = host();
        switch (trouble) {
        case Trouble::closedPort: {
            target.port = closedPort();
            break;
        }
        case Trouble::wrongKey: {
            const QString key = scratch_.filePath(QStringLiteral("other_key"));
            QProcess::execute(QStringLiteral("ssh-keygen"),
                              {QStringLiteral("-q"), QStringLiteral("-t"), QStringLiteral("ed25519"),
                               QStringLiteral("-N"), QString(), QStringLiteral("-f"), key});
            // A name the client knows with that key alone, since the test's own host name adds the good one.
            QFile config(server_->clientConfig());
            config.open(QIODevice::Append);
            config.write(
                QStringLiteral("\nHost wrong-key\n  HostName 127.0.0.1\n  Port %1\n  IdentitiesOnly yes\n"
                               "  UserKnownHostsFile %2/known_hosts\n  StrictHostKeyChecking accept-new\n")
                    .arg(server_->port())
                    .arg(scratch_.path())
                    .toUtf8());
            target.destination = QStringLiteral("wrong-key");
            target.identity = key;
            break;
        }
        case Trouble::otherSystem:
            // The remote's shell start-up puts an ARM machine's uname first.
            writeFile(remote(QStringLiteral("fake/uname")), "#!/bin/sh\necho Linux aarch64\n", true);
            writeFile(remote(QStringLiteral(".bashrc")), "PATH=\"$HOME/fake:$PATH\"\n");
            break;
        case Trouble::readOnlyHome:
            if (::geteuid() == 0) {
                QProcess::execute(QStringLiteral("chattr"), {QStringLiteral("+i"), remote()});
            } else {
                QFile(remote()).setPermissions(QFile::ReadOwner | QFile::ExeOwner);
            }
            break;
        case Trouble::sharedSupportFolder:
            QDir().mkpath(remote(QStringLiteral(".mirrowisp")));
            ::chmod(QFile::encodeName(remote(QStringLiteral(".mirrowisp"))).constData(), 0777);
            break;
        }
        return target;
    }

    QTemporaryDir scratch_;
};

TEST_P(RemoteRefusalTest, SaysWhyAndWritesNothing) {
    const RemoteOutcome outcome = RemoteSetupSteps::add(prepare(GetParam().trouble), tool);
    ASSERT_TRUE(outcome.error);
    EXPECT_TRUE(outcome.error->contains(QLatin1String(GetParam().says))) << outcome.error->toStdString();
    EXPECT_FALSE(QFileInfo::exists(remote(QStringLiteral(".mirrowisp/bin/mirrowisp-bridge"))));
}

INSTANTIATE_TEST_SUITE_P(Hosts, RemoteRefusalTest,
                         ::testing::Values(Refusal{"closedPort", Trouble::closedPort, "does not answer"},
                                           Refusal{"wrongKey", Trouble::wrongKey, "refused the key"},
                                           Refusal{"otherSystem", Trouble::otherSystem, "runs Linux aarch64"},
                                           Refusal{"readOnlyHome", Trouble::readOnlyHome,
                                                   "cannot be written"},
                                           Refusal{"sharedSupportFolder", Trouble::sharedSupportFolder,
                                                   "can be written by every user"}),
                         [](const auto& each) { return std::string(each.param.name); });

// What ssh says when it fails by itself, as the user reads it.
TEST(RemoteShellTest, NamesWhySshFailed) {
    const struct {
        const char* err;
        const char* says;
    } cases[] = {
        {"ssh: connect to host h port 22: Connection refused\n", "does not answer"},
        {"user@h: Permission denied (publickey).\n", "refused the key"},
        {"user@h: Permission denied (publickey,password).\n", "asks for a password"},
        {"Host key verification failed.\n", "host key"},
        {"ssh: Could not resolve hostname h: Name or service not known\n", "does not answer"},
    };
    for (const auto& c : cases) {
        RemoteShell::Result result;
        result.exitCode = 255;
        result.err = c.err;
        const auto problem =
            RemoteShell::connectionProblem(result, RemoteHost{QStringLiteral("h"), {}, {}, {}, {}});
        ASSERT_TRUE(problem) << c.err;
        EXPECT_TRUE(problem->contains(QLatin1String(c.says))) << problem->toStdString();
    }
    RemoteShell::Result commandFailed;
    commandFailed.exitCode = 1;
    EXPECT_FALSE(RemoteShell::connectionProblem(commandFailed, RemoteHost{}));
}

} // namespace
} // namespace mirrowisp
