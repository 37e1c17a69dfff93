#include "remote/RemoteLinks.h"

#include "agents/AgentStore.h"
#include "base/UserDefaults.h"
#include "support/ScopedEnvironment.h"
#include "support/SshServer.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QJsonDocument>
#include <QProcess>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

using namespace mirrowisp;
using namespace mirrowisp::test;
using namespace Qt::StringLiterals;

namespace {

bool canConnect(const QString& path) {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const QByteArray bytes = QFile::encodeName(path);
    std::memcpy(address.sun_path, bytes.constData(), static_cast<size_t>(bytes.size()) + 1);
    const bool ok = ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    ::close(fd);
    return ok;
}

QJsonObject permissionRequest(const QString& sessionID) {
    return {{u"hook_event_name"_s, u"PermissionRequest"_s},
            {u"session_id"_s, sessionID},
            {u"cwd"_s, u"/srv/shop"_s},
            {u"tool_name"_s, u"Bash"_s},
            {u"tool_input"_s, QJsonObject{{u"command"_s, u"make"_s}}}};
}

// The hook tool as an agent on the host starts it: through ssh, or (with the server down, when
// nothing can be started there) right here with the host's HOME, which is what it would see.
std::unique_ptr<QProcess> remoteTool(const SshServer& server, const QJsonObject& event,
                                     bool throughSsh = true) {
    auto process = std::make_unique<QProcess>();
    const QString tool = QStringLiteral(MIRROWISP_BRIDGE_TOOL_PATH);
    if (throughSsh) {
        process->start(u"ssh"_s, {SshServer::host(), Ssh::quote(tool) + u" --agent claude"_s});
    } else {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(u"HOME"_s, server.remoteHome());
        env.remove(u"MIRROWISP_SUPPORT_DIR"_s);
        process->setProcessEnvironment(env);
        process->start(tool, {u"--agent"_s, u"claude"_s});
    }
    process->write(QJsonDocument(event).toJson(QJsonDocument::Compact));
    process->closeWriteChannel();
    return process;
}

class RemoteLinksTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(server.start()) << server.error().toStdString();
        environment.set("PATH", server.path());
        QDir().mkpath(server.remoteHome() + u"/.mirrowisp"_s);
        links.reportTo(store);
    }

    RemoteHost host(const QString& remoteHome) const {
        return RemoteHost{SshServer::host(), std::nullopt, {}, remoteHome, u"Linux x86_64"_s};
    }
    RemoteLinkState state() const { return links.link(SshServer::host())->state(); }
    bool reaches(RemoteLinkState wanted) {
        return waitUntil([&] { return state() == wanted; }, 20000);
    }

    TemporaryHome home;
    SshServer server;
    ScopedEnvironment environment;
    UserDefaults defaults{home.path() + u"/defaults.json"_s};
    ManualClock clock;
    AgentStore store{defaults, clock};
    RemoteLinks links{
        [this](const std::shared_ptr<BridgeConnection>& connection) { store.handle(connection); }, clock};
};

TEST_F(RemoteLinksTest, ARemoteRequestIsAnsweredHereAndSurvivesADrop) {
    links.setHosts({host(server.remoteHome())});
    ASSERT_TRUE(reaches(RemoteLinkState::connected))
        << links.state(SshServer::host())[u"reason"_s].toString().toStdString();

    const QFileInfo remoteSocket(server.remoteHome() + u"/.mirrowisp/bridge.sock"_s);
    EXPECT_EQ(remoteSocket.permissions() & 0x0777, QFile::ReadUser | QFile::WriteUser) << "the user's alone";
    EXPECT_EQ(QDir(remoteSocket.path()).entryList(QDir::System).size(), 1) << "no attempt's name is left";

    auto tool = remoteTool(server, permissionRequest(u"r1"_s));
    AgentSession* session = nullptr;
    ASSERT_TRUE(waitUntil(
        [&] {
            session = store.findSession(AgentSession::makeID(AgentKind::claude, u"r1"_s, SshServer::host()));
            return session != nullptr && !session->pending().empty();
        },
        20000));
    EXPECT_EQ(session->host(), SshServer::host());
    store.allow(*session->pending().front(), *session, false);
    ASSERT_TRUE(tool->waitForFinished(20000));
    EXPECT_EQ(tool->exitCode(), 0);
    EXPECT_TRUE(tool->readAllStandardOutput().contains("\"allow\""));

    server.stop();
    ASSERT_TRUE(reaches(RemoteLinkState::reconnecting));
    EXPECT_TRUE(links.link(SshServer::host())->awaySince().has_value());
    // With the forward gone the tool on the host gets no answer and lets the agent go on.
    auto alone = remoteTool(server, permissionRequest(u"r2"_s), false);
    ASSERT_TRUE(alone->waitForFinished(5000));
    EXPECT_EQ(alone->exitCode(), 0);
    EXPECT_TRUE(alone->readAllStandardOutput().isEmpty());

    ASSERT_TRUE(server.start()) << server.error().toStdString();
    clock.advance(Backoff::longestDelay);
    links.tick(clock.now());
    ASSERT_TRUE(reaches(RemoteLinkState::connected));
    EXPECT_FALSE(links.link(SshServer::host())->awaySince().has_value());
    auto again = remoteTool(server, permissionRequest(u"r3"_s));
    EXPECT_TRUE(waitUntil(
        [&] {
            return store.findSession(AgentSession::makeID(AgentKind::claude, u"r3"_s, SshServer::host()));
        },
        20000));

    // A removed host's socket refuses at once, and its sessions count as gone from now.
    const QString socket = RemoteLinks::socketPath(SshServer::host());
    EXPECT_TRUE(canConnect(socket));
    links.setHosts({});
    EXPECT_FALSE(canConnect(socket));
    EXPECT_TRUE(links.state(SshServer::host()).isEmpty());
    clock.advance(30.1);
    store.cleanup(clock.now());
    EXPECT_EQ(store.findSession(AgentSession::makeID(AgentKind::claude, u"r1"_s, SshServer::host())),
              nullptr);
    again->waitForFinished(20000);
}

struct BadHost {
    const char* name;
    QString destination;
    QString home;
    const char* reason;
    bool openToOthers = false; // `home` is made under the remote home with a world-writable folder
};

class RemoteLinksBadHost : public RemoteLinksTest, public testing::WithParamInterface<BadHost> {};

TEST_P(RemoteLinksBadHost, FailsWithOneClearReason) {
    const BadHost& bad = GetParam();
    RemoteHost remote = host(bad.home);
    if (bad.openToOthers) {
        remote.home = server.remoteHome() + bad.home;
        QDir().mkpath(remote.home + u"/.mirrowisp"_s);
        QFile::setPermissions(remote.home + u"/.mirrowisp"_s, QFileDevice::Permissions(0x7777));
    }
    remote.destination = bad.destination;
    links.setHosts({remote});
    ASSERT_TRUE(
        waitUntil([&] { return links.link(bad.destination)->state() == RemoteLinkState::failed; }, 30000));
    const QJsonObject state = links.state(bad.destination);
    EXPECT_EQ(state[u"state"_s].toString(), u"failed"_s);
    EXPECT_TRUE(state[u"reason"_s].toString().contains(QLatin1StringView(bad.reason)))
        << state[u"reason"_s].toString().toStdString();
}

INSTANTIATE_TEST_SUITE_P(
    Hosts, RemoteLinksBadHost,
    testing::Values(BadHost{"NoFolderForTheSocket", SshServer::host(), u"/missing"_s, "forwarding failed"},
                    BadHost{"FolderOpenToOthers", SshServer::host(), u"/open"_s, "other users", true},
                    BadHost{"HomeNotKnown", SshServer::host(), u"relative"_s, "not known"},
                    BadHost{"NoSuchHost", u"nowhere.invalid"_s, u"/tmp"_s, "nowhere.invalid"}),
    [](const auto& row) { return std::string(row.param.name); });

} // namespace
