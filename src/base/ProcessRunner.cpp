#include "base/ProcessRunner.h"

#include <QFile>
#include <QProcessEnvironment>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <string>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace mirrowisp::ProcessRunner {

namespace {

using SteadyClock = std::chrono::steady_clock;

// After the child has ended, whatever it left running gets this long to finish writing and close
// the pipe; a background job that keeps it open past that would otherwise hold us until the end.
constexpr auto lingerAfterExit = std::chrono::milliseconds(250);

// Without a pidfd the only way to notice the child's end while reading is to look now and then.
constexpr int exitCheckMs = 10;

std::vector<std::string> childEnvironment() {
    std::vector<std::string> entries;
    const QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const QString& name : environment.keys()) {
        if (name.startsWith(QLatin1String("CLAUDE_CODE_")) || name == QLatin1String("CLAUDECODE") ||
            name == QLatin1String("NO_COLOR")) {
            continue;
        }
        entries.push_back((name + QLatin1Char('=') + environment.value(name)).toStdString());
    }
    entries.emplace_back("NO_COLOR=1");
    return entries;
}

std::vector<char*> pointers(std::vector<std::string>& strings) {
    std::vector<char*> result;
    result.reserve(strings.size() + 1);
    for (std::string& s : strings) {
        result.push_back(s.data());
    }
    result.push_back(nullptr);
    return result;
}

// The session id of a process, from field 6 of /proc/PID/stat (after the command's closing paren,
// which may itself contain blanks and parens).
std::optional<pid_t> sessionOf(const char* pidText) {
    const std::string path = std::string("/proc/") + pidText + "/stat";
    QFile file(QString::fromLocal8Bit(path.c_str()));
    if (!file.open(QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    const QByteArray stat = file.read(4096);
    const qsizetype close = stat.lastIndexOf(')');
    if (close < 0) {
        return std::nullopt;
    }
    const QList<QByteArray> fields = stat.mid(close + 1).simplified().split(' ');
    if (fields.size() < 4) { // state ppid pgrp session
        return std::nullopt;
    }
    bool ok = false;
    const int session = fields[3].toInt(&ok);
    return ok ? std::optional<pid_t>(session) : std::nullopt;
}

// Kills the child and everything it started. The child leads its own session; its process group
// goes with one signal, and members that moved to other groups (an interactive shell's jobs) are
// found by their session id. A few rounds catch processes forked while the first round ran.
void killSession(pid_t leader) {
    for (int round = 0; round < 3; ++round) {
        bool found = ::kill(-leader, SIGKILL) == 0;
        if (DIR* proc = ::opendir("/proc")) {
            while (const dirent* entry = ::readdir(proc)) {
                if (entry->d_name[0] < '1' || entry->d_name[0] > '9') {
                    continue;
                }
                if (sessionOf(entry->d_name) == leader) {
                    const pid_t pid = static_cast<pid_t>(std::strtol(entry->d_name, nullptr, 10));
                    found = ::kill(pid, SIGKILL) == 0 || found;
                }
            }
            ::closedir(proc);
        }
        if (!found) {
            return;
        }
    }
}

// Reads what the pipe holds now. Returns false at the end of the stream.
bool drain(int fd, QByteArray& buffer, bool& truncated) {
    char chunk[65536];
    while (true) {
        const ssize_t n = ::read(fd, chunk, sizeof chunk);
        if (n > 0) {
            buffer.append(chunk, n);
            // Trim in large steps so a flood costs linear time, and keep the newest bytes.
            if (buffer.size() > 2 * outputLimitBytes) {
                buffer.remove(0, buffer.size() - outputLimitBytes);
                truncated = true;
            }
            continue;
        }
        if (n == 0) {
            return false;
        }
        if (errno == EINTR) {
            continue;
        }
        return errno == EAGAIN || errno == EWOULDBLOCK;
    }
}

int millisecondsUntil(SteadyClock::time_point end) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - SteadyClock::now()).count();
    return static_cast<int>(std::clamp<long long>(left + 1, 0, 60'000));
}

struct Spawned {
    pid_t pid = -1;
    int output = -1;
};

std::optional<Spawned> spawn(const QString& executable, const QStringList& arguments,
                             const std::optional<QString>& directory) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        return std::nullopt;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDERR_FILENO);
    const QByteArray workingDirectory = directory ? QFile::encodeName(*directory) : QByteArray();
    if (directory) {
        posix_spawn_file_actions_addchdir_np(&actions, workingDirectory.constData());
    }

    // A fresh session makes the child the leader of everything it starts, so a time-out can find
    // and kill all of it. Signal dispositions and the mask are reset: the app's threads may block
    // or ignore signals (SIGPIPE) that the tools expect to behave normally.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t defaults;
    sigemptyset(&defaults);
    for (int signal = 1; signal < SIGRTMIN; ++signal) {
        if (signal != SIGKILL && signal != SIGSTOP) {
            sigaddset(&defaults, signal);
        }
    }
    sigset_t mask;
    sigemptyset(&mask);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setsigmask(&attributes, &mask);
    posix_spawnattr_setflags(&attributes,
                             POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);

    std::vector<std::string> argumentStrings{QFile::encodeName(executable).toStdString()};
    for (const QString& argument : arguments) {
        argumentStrings.push_back(argument.toStdString());
    }
    std::vector<std::string> environmentStrings = childEnvironment();
    std::vector<char*> argv = pointers(argumentStrings);
    std::vector<char*> envp = pointers(environmentStrings);

    pid_t pid = -1;
    const int error = ::posix_spawnp(&pid, argv[0], &actions, &attributes, argv.data(), envp.data());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    ::close(fds[1]);
    if (error != 0) {
        ::close(fds[0]);
        return std::nullopt;
    }
    ::fcntl(fds[0], F_SETFL, ::fcntl(fds[0], F_GETFL) | O_NONBLOCK);
    return Spawned{pid, fds[0]};
}

} // namespace

RunResult run(const QString& executable, const QStringList& arguments, double timeoutSeconds,
              const std::optional<QString>& directory) {
    const auto deadline =
        SteadyClock::now() + std::chrono::duration_cast<SteadyClock::duration>(
                                 std::chrono::duration<double>(std::max(timeoutSeconds, 0.0)));
    const std::optional<Spawned> child = spawn(executable, arguments, directory);
    if (!child) {
        return {{}, RunError::couldNotStart, false, std::nullopt};
    }
    // A pidfd turns "the child ended" into one more descriptor for poll; the syscall is used
    // directly because not every libc wraps it. Without one, the loop looks every few milliseconds.
    const int exitFd = static_cast<int>(::syscall(SYS_pidfd_open, child->pid, 0));

    QByteArray buffer;
    bool truncated = false;
    bool open = true;
    bool exited = false;
    int status = 0;
    SteadyClock::time_point lingerEnd;
    while (!(exited && (!open || SteadyClock::now() >= lingerEnd))) {
        if (!exited && SteadyClock::now() >= deadline) {
            killSession(child->pid);
            ::waitpid(child->pid, nullptr, 0);
            ::close(child->output);
            if (exitFd >= 0) {
                ::close(exitFd);
            }
            return {{}, RunError::timedOut, false, std::nullopt};
        }
        pollfd fds[2];
        nfds_t count = 0;
        if (open) {
            fds[count++] = {child->output, POLLIN, 0};
        }
        if (exitFd >= 0 && !exited) {
            fds[count++] = {exitFd, POLLIN, 0};
        }
        int wait = millisecondsUntil(exited ? lingerEnd : deadline);
        if (exitFd < 0 && !exited) {
            wait = std::min(wait, exitCheckMs);
        }
        if (::poll(fds, count, wait) < 0 && errno != EINTR) {
            break;
        }
        if (open) {
            open = drain(child->output, buffer, truncated);
        }
        if (!exited && ::waitpid(child->pid, &status, WNOHANG) == child->pid) {
            exited = true;
            lingerEnd = std::min(deadline, SteadyClock::now() + lingerAfterExit);
        }
    }
    if (open) {
        // The child is gone but something it started still holds the pipe: end it and keep what
        // it wrote so far.
        killSession(child->pid);
        drain(child->output, buffer, truncated);
    }
    if (!exited) {
        killSession(child->pid);
        ::waitpid(child->pid, nullptr, 0);
    }
    ::close(child->output);
    if (exitFd >= 0) {
        ::close(exitFd);
    }
    if (buffer.size() > outputLimitBytes) {
        buffer.remove(0, buffer.size() - outputLimitBytes);
        truncated = true;
    }
    RunResult result{QString::fromUtf8(buffer), std::nullopt, truncated, std::nullopt};
    if (exited && WIFEXITED(status)) {
        result.exitStatus = WEXITSTATUS(status);
    }
    return result;
}

} // namespace mirrowisp::ProcessRunner
