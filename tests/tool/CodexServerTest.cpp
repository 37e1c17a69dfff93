// Codex's background server runs the hooks of every terminal UI of one CODEX_HOME: the tool must report
// the UI that runs the session, not the server nor the terminal that happened to start it.

#include "CodexServer.h"

#include "ToolHarness.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QJsonObject>
#include <QTemporaryDir>
#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

using namespace mirrowisp::test;
using namespace Qt::StringLiterals;
using bridge::SocketInode;

namespace {

struct FakeProcess {
    pid_t pid = 0;
    const char* comm = "codex";
    int tty = 34816; // /dev/pts/0
    const char* cwd = "/a";
    std::vector<SocketInode> sockets = {};
    const char* commandLine = "codex";
    pid_t session = 0; // 0: its own
};

// A /proc tree of the few entries the search reads: stat, cmdline, cwd and fd links.
class FakeProc {
public:
    std::string root() const { return dir_.path().toStdString(); }

    void add(const FakeProcess& p) {
        namespace fs = std::filesystem;
        const fs::path entry = fs::path(root()) / std::to_string(p.pid);
        fs::create_directories(entry / "fd");
        std::ofstream(entry / "stat") << p.pid << " (" << p.comm << ") S 1 " << p.pid << ' '
                                      << (p.session != 0 ? p.session : p.pid) << ' ' << p.tty << " -1 0\n";
        std::string commandLine = p.commandLine;
        std::replace(commandLine.begin(), commandLine.end(), ' ', '\0');
        std::ofstream(entry / "cmdline") << commandLine << '\0';
        fs::create_symlink(p.cwd, entry / "cwd");
        for (size_t i = 0; i < p.sockets.size(); ++i) {
            fs::create_symlink("socket:[" + std::to_string(p.sockets[i]) + "]",
                               entry / "fd" / std::to_string(i + 3));
        }
    }

private:
    QTemporaryDir dir_;
};

bridge::Process processAt(const FakeProc& proc, pid_t pid) {
    bridge::Process p;
    EXPECT_TRUE(bridge::readProcess(proc.root(), pid, p));
    return p;
}

} // namespace

TEST(CodexServer, IsTheAppServerThatLeftItsTerminal) {
    const struct {
        FakeProcess process;
        bool server;
    } cases[] = {
        {{.pid = 10, .tty = 0, .commandLine = "codex app-server --listen unix:// --managed-daemon"}, true},
        // An editor's own server over its standard streams stays in the editor's session.
        {{.pid = 11, .tty = 0, .commandLine = "codex app-server", .session = 5}, false},
        {{.pid = 12, .commandLine = "codex"}, false},
        {{.pid = 13, .comm = "node", .tty = 0, .commandLine = "node app-server"}, false},
    };
    FakeProc proc;
    for (const auto& c : cases) {
        proc.add(c.process);
        EXPECT_EQ(bridge::isCodexBackgroundServer(proc.root(), processAt(proc, c.process.pid)), c.server)
            << c.process.commandLine;
    }
}

TEST(CodexServer, FindsTheTerminalUIOfTheSession) {
    constexpr pid_t server = 100;
    const struct {
        const char* what;
        std::vector<FakeProcess> uis;
        std::optional<std::vector<SocketInode>> clientEnds; // the far ends of the server's sockets
        pid_t expected;
    } cases[] = {
        {"the one UI on the server, whatever its folder",
         {{.pid = 200, .cwd = "/b", .sockets = {600}}},
         {{600}},
         200},
        {"UIs on the server told apart by folder",
         {{.pid = 200, .sockets = {7, 600}}, {.pid = 201, .cwd = "/b", .sockets = {601}}},
         {{600, 601}},
         200},
        {"two UIs on the server in the session's folder are not guessed",
         {{.pid = 200, .sockets = {600}}, {.pid = 201, .sockets = {601}}},
         {{600, 601}},
         0},
        {"a UI of another server is never taken",
         {{.pid = 200, .cwd = "/b", .sockets = {600}}, {.pid = 300, .sockets = {700}}},
         {{600}},
         200},
        {"no UI on the server", {{.pid = 300, .sockets = {700}}}, {{600}}, 0},
        {"without socket diagnostics the folder decides",
         {{.pid = 200}, {.pid = 201, .cwd = "/b"}},
         std::nullopt,
         200},
        {"without socket diagnostics a UI elsewhere is not taken",
         {{.pid = 201, .cwd = "/b"}},
         std::nullopt,
         0},
        {"only codex processes on a terminal count",
         {{.pid = 200, .comm = "node", .sockets = {600}}, {.pid = 201, .tty = 0, .sockets = {600}}},
         {{600}},
         0},
    };
    for (const auto& c : cases) {
        FakeProc proc;
        proc.add({.pid = server, .tty = 0, .commandLine = "codex app-server", .session = server});
        for (const auto& ui : c.uis) {
            proc.add(ui);
        }
        EXPECT_EQ(bridge::codexTerminalUI(proc.root(), server, "/a", c.clientEnds), c.expected) << c.what;
    }
}

TEST(CodexServer, PairsConnectedSocketsThroughTheKernel) {
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    const auto inodeOf = [](int fd) {
        struct stat st {};
        fstat(fd, &st);
        return static_cast<SocketInode>(st.st_ino);
    };
    const auto mine = bridge::socketsOf("/proc", getpid());
    EXPECT_TRUE(std::binary_search(mine.begin(), mine.end(), inodeOf(pair[0])));
    const auto peers = bridge::socketPeers({inodeOf(pair[0])});
    ASSERT_TRUE(peers);
    EXPECT_EQ(*peers, std::vector<SocketInode>{inodeOf(pair[1])});
    close(pair[0]);
    close(pair[1]);
}

namespace {

QByteArray readText(const QByteArray& path) {
    return readFile(QString::fromUtf8(path)).trimmed();
}

// Stand-ins named `codex`, so the kernel calls them that. The server leaves its terminal's session,
// waits for its UIs on the listening socket it inherits, and runs the hook in the session's folder with
// the variables of the terminal that started it. A UI connects and stays until the server is done.
constexpr char kServer[] = R"(import os, socket, subprocess, sys
os.setsid()
w = os.environ["W"]
open(w + "/server", "w").write(str(os.getpid()))
listener = socket.socket(fileno=int(sys.argv[2]))
clients = [listener.accept()[0] for _ in range(int(sys.argv[3]))]
subprocess.run(["/bin/sh", "-c", 'exec "$T" --agent codex < event'], cwd=w + "/proj")
)";
constexpr char kUI[] = R"(import os, socket
w = os.environ["W"]
s = socket.socket(socket.AF_UNIX)
s.connect(w + "/server.sock")
open(w + "/ui", "w").write(str(os.getpid()))
open(w + "/tty", "w").write(os.ttyname(0))
s.recv(1)
)";

} // namespace

TEST(CodexServer, ReportsTheTerminalUIInsteadOfTheServer) {
    for (const bool withUI : {true, false}) {
        ToolSandbox box;
        FakeApp app(box.socketPath());
        const QByteArray w = box.path();
        const auto at = [&w](const char* name) { return QString::fromUtf8(w + name); };
        ASSERT_TRUE(QFile::link(u"/usr/bin/python3"_s, at("/codex")));
        writeFile(at("/server.py"), kServer);
        writeFile(at("/ui.py"), kUI);
        writeFile(at("/proj/event"),
                  R"({"hook_event_name":"Stop","session_id":"s1","cwd":")" + w + R"(/proj"})");

        const int listener = socket(AF_UNIX, SOCK_STREAM, 0); // inherited by the server
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const QByteArray path = w + "/server.sock";
        ASSERT_LT(static_cast<size_t>(path.size()), sizeof address.sun_path);
        std::memcpy(address.sun_path, path.constData(), static_cast<size_t>(path.size()));
        ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        ASSERT_EQ(listen(listener, 4), 0);

        Environment env = box.env;
        env["W"] = w;
        env["T"] = toolPath();
        env["TMUX"] = "/tmp/tmux-1/default,1,0";
        env["TMUX_PANE"] = "%0";
        std::unique_ptr<Child> ui;
        if (withUI) {
            Environment uiEnv = env;
            uiEnv["TMUX_PANE"] = "%9";
            uiEnv["TERM_PROGRAM"] = "ui-term";
            ui = std::make_unique<Child>(QList<QByteArray>{"/usr/bin/script", "-qec",
                                                           R"(cd "$W/proj" && exec "$W/codex" "$W/ui.py")",
                                                           "/dev/null"},
                                         uiEnv, QByteArray());
        }
        Child server(
            {w + "/codex", w + "/server.py", "app-server", QByteArray::number(listener), withUI ? "1" : "0"},
            env, QByteArray());
        close(listener);
        auto request = app.next();
        ASSERT_TRUE(request);
        EXPECT_TRUE(server.finish().finished);
        const QJsonObject context = request->context();
        if (withUI) {
            EXPECT_TRUE(ui->finish().finished);
            EXPECT_EQ(context.value(u"agentPID").toInt(), readText(w + "/ui").toInt());
            EXPECT_EQ(context.value(u"tty").toString().toUtf8(), readText(w + "/tty"));
            EXPECT_EQ(context.value(u"tmuxPane").toString(), u"%9"_s);
            EXPECT_EQ(context.value(u"termProgram").toString(), u"ui-term"_s);
        } else {
            // The server's terminal is some other UI's: none is better than a wrong one.
            EXPECT_EQ(context.value(u"agentPID").toInt(), readText(w + "/server").toInt());
            EXPECT_EQ(context.keys(), QStringList{u"agentPID"_s});
        }
    }
}
