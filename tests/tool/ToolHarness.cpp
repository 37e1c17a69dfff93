#include "ToolHarness.h"

#include <QDir>
#include <QJsonDocument>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace mirrowisp::test {

namespace {

// Waits for `events` on `fd` until `timeoutMs` after the timer's start; false when the deadline came first.
bool waitFor(int fd, short events, const QElapsedTimer& timer, int timeoutMs) {
    pollfd p{fd, events, 0};
    int n = 0;
    do {
        n = poll(&p, 1, std::max(0, timeoutMs - static_cast<int>(timer.elapsed())));
    } while (n < 0 && errno == EINTR);
    return n > 0;
}

QElapsedTimer started() {
    QElapsedTimer timer;
    timer.start();
    return timer;
}

} // namespace

QByteArray toolPath() {
    return MIRROWISP_BRIDGE_TOOL_PATH;
}

void expectClean(const Outcome& run, const QByteArray& out) {
    EXPECT_TRUE(run.finished);
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, out);
}

Child::Child(const QList<QByteArray>& argv, const Environment& env, const QByteArray& input) {
    std::signal(SIGPIPE, SIG_IGN); // a child that exits without reading its input must not kill the test
    int in[2];
    int out[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) {
        return;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_adddup2(&actions, out[1], 2);
    // Our SIGPIPE is ignored and exec would pass that on: the child starts with the default, as a hook does.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);

    std::vector<QByteArray> storage(argv.begin(), argv.end());
    const size_t argc = storage.size();
    for (const auto& [name, value] : env) {
        if (!value.isNull()) {
            storage.push_back(name + '=' + value);
        }
    }
    std::vector<char*> args;
    std::vector<char*> vars;
    for (size_t i = 0; i < storage.size(); ++i) {
        (i < argc ? args : vars).push_back(storage[i].data());
    }
    args.push_back(nullptr);
    vars.push_back(nullptr);
    timer_.start();
    if (posix_spawnp(&pid_, args[0], &actions, &attributes, args.data(), vars.data()) != 0) {
        pid_ = -1;
    }
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    close(in[0]);
    close(out[1]);
    out_ = out[0];
    for (qsizetype done = 0; pid_ > 0 && done < input.size();) {
        const ssize_t n = write(in[1], input.constData() + done, static_cast<size_t>(input.size() - done));
        if (n <= 0 && errno != EINTR) {
            break;
        }
        done += std::max<ssize_t>(n, 0);
    }
    close(in[1]);
}

Child::~Child() {
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    if (out_ >= 0) {
        close(out_);
    }
}

Outcome Child::finish(int timeoutMs) {
    Outcome outcome;
    char buf[65536];
    ssize_t n = 1;
    while (n > 0 && waitFor(out_, POLLIN, timer_, timeoutMs)) {
        n = read(out_, buf, sizeof buf);
        outcome.out.append(buf, std::max<ssize_t>(n, 0));
    }
    if (pid_ > 0) {
        outcome.finished = n == 0;
        if (!outcome.finished) {
            kill(pid_, SIGKILL);
        }
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        outcome.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    outcome.elapsedMs = timer_.elapsed();
    return outcome;
}

QJsonObject Request::event() const {
    return QJsonDocument::fromJson(payload).object();
}

FakeApp::FakeApp(const QByteArray& socketPath) {
    fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, socketPath.constData(), sizeof address.sun_path - 1);
    unlink(address.sun_path);
    if (bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 || listen(fd_, 64) != 0) {
        close(fd_);
        fd_ = -1;
    }
}

FakeApp::~FakeApp() {
    if (fd_ >= 0) {
        close(fd_);
    }
}

bool FakeApp::hasPending() {
    pollfd p{fd_, POLLIN, 0};
    return poll(&p, 1, 0) > 0;
}

std::unique_ptr<Request> FakeApp::refuseNext(int timeoutMs) {
    if (fd_ < 0 || !waitFor(fd_, POLLIN, started(), timeoutMs)) {
        return nullptr;
    }
    auto request = std::make_unique<Request>(accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC));
    shutdown(request->socket_.fd(), SHUT_RD);
    return request;
}

std::unique_ptr<Request> FakeApp::next(int timeoutMs) {
    const QElapsedTimer timer = started();
    if (fd_ < 0 || !waitFor(fd_, POLLIN, timer, timeoutMs)) {
        return nullptr;
    }
    auto request = std::make_unique<Request>(accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC));
    QByteArray data;
    char buf[65536];
    for (ssize_t n = 1;
         n > 0 && !data.contains('\n') && waitFor(request->socket_.fd(), POLLIN, timer, timeoutMs);) {
        n = read(request->socket_.fd(), buf, sizeof buf);
        data.append(buf, std::max<ssize_t>(n, 0));
    }
    const auto newline = data.indexOf('\n');
    if (newline < 0) {
        return nullptr;
    }
    request->line = data.left(newline);
    request->behind = data.mid(newline + 1);
    request->json = QJsonDocument::fromJson(request->line).object();
    request->payload = QByteArray::fromBase64(request->json.value(u"payload").toString().toLatin1());
    return request;
}

ToolSandbox::ToolSandbox() {
    QDir(dir_.path()).mkpath(QStringLiteral("support"));
    QDir(dir_.path()).mkpath(QStringLiteral("home"));
    env = {{"PATH", "/usr/bin:/bin"}, {"HOME", path() + "/home"}, {"MIRROWISP_SUPPORT_DIR", supportDir()}};
}

std::unique_ptr<Child> ToolSandbox::start(const QList<QByteArray>& args, const QByteArray& input,
                                          const Environment& extra) const {
    Environment all = env;
    for (const auto& [name, value] : extra) {
        all[name] = value;
    }
    return std::make_unique<Child>(QList<QByteArray>{toolPath()} + args, all, input);
}

Outcome ToolSandbox::run(const QList<QByteArray>& args, const QByteArray& input,
                         const Environment& extra) const {
    return start(args, input, extra)->finish();
}

} // namespace mirrowisp::test
