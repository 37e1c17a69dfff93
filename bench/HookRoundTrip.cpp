// HookRoundTrip: what an agent pays per hook. Starts the app in a temporary support directory (or, with
// --standalone, a stand-in listener of its own that answers every request with the empty reply), then
// times, interleaved, the hook command line as installed for the bridge tool and a minimal C client
// doing the same round trip, both started through /bin/sh. Prints the medians and their ratio.
//
//   HookRoundTrip [--app PATH | --standalone] [--runs N] [--tool PATH] [--client PATH]

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <poll.h>
#include <spawn.h>
#include <string>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr double kTarget = 1.3;

struct Options {
    std::string app = HOOK_APP_PATH;
    std::string tool = HOOK_TOOL_PATH;
    std::string client = HOOK_CLIENT_PATH;
    bool standalone = false;
    int runs = 40;
};

std::vector<std::string> environmentFor(const std::string& support, const std::string& home) {
    const char* path = std::getenv("PATH");
    // No DISPLAY or WAYLAND_DISPLAY: the app then runs its bridge only. HOME is a scratch folder so the
    // app's hook installer never touches the user's agent settings.
    return {"PATH=" + std::string(path != nullptr ? path : "/usr/bin:/bin"), "HOME=" + home,
            "XDG_CONFIG_HOME=" + home + "/.config", "MIRROWISP_SUPPORT_DIR=" + support};
}

pid_t spawn(const std::vector<std::string>& argv, const std::vector<std::string>& env, int in, int out,
            int err = -1) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (const auto& [from, to] : {std::pair{in, 0}, std::pair{out, 1}, std::pair{err, 2}}) {
        if (from >= 0) {
            posix_spawn_file_actions_adddup2(&actions, from, to);
        }
    }
    std::vector<char*> args;
    std::vector<char*> vars;
    for (const auto& a : argv) {
        args.push_back(const_cast<char*>(a.c_str()));
    }
    for (const auto& v : env) {
        vars.push_back(const_cast<char*>(v.c_str()));
    }
    args.push_back(nullptr);
    vars.push_back(nullptr);
    pid_t pid = -1;
    if (posix_spawn(&pid, args[0], &actions, nullptr, args.data(), vars.data()) != 0) {
        pid = -1;
    }
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

// One hook call: start the command, hand it the event, read its output to the end, reap it.
double timeHook(const std::vector<std::string>& argv, const std::vector<std::string>& env,
                const std::string& event) {
    int in[2];
    int out[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) {
        return -1;
    }
    const auto start = Clock::now();
    const pid_t pid = spawn(argv, env, in[0], out[1]);
    close(in[0]);
    close(out[1]);
    // The event is smaller than a pipe's buffer: one write, then end of file.
    const bool written = write(in[1], event.data(), event.size()) == static_cast<ssize_t>(event.size());
    close(in[1]);
    char buf[4096];
    while (read(out[0], buf, sizeof buf) > 0) {
    }
    close(out[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    const auto elapsed = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    return pid > 0 && written && WIFEXITED(status) && WEXITSTATUS(status) == 0 ? elapsed : -1;
}

// Waits for the listener to come up: an inotify watch on the directory, then a connect to prove it.
bool waitForSocket(const std::string& dir, const std::string& path, int timeoutMs) {
    const int watch = inotify_init1(IN_CLOEXEC);
    inotify_add_watch(watch, dir.c_str(), IN_CREATE | IN_MOVED_TO | IN_ATTRIB);
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    bool up = false;
    while (!up && Clock::now() < deadline) {
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::snprintf(address.sun_path, sizeof address.sun_path, "%s", path.c_str());
        up = connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
        close(fd);
        if (!up) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
            pollfd p{watch, POLLIN, 0};
            if (poll(&p, 1, static_cast<int>(std::max<long>(0, std::min<long>(left.count(), 100)))) > 0) {
                char events[4096];
                [[maybe_unused]] const auto drained = read(watch, events, sizeof events);
            }
        }
    }
    close(watch);
    return up;
}

// The stand-in app: reads requests one at a time, as the app does, and answers each with the empty reply.
class StandIn {
public:
    explicit StandIn(const std::string& path) {
        listen_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::snprintf(address.sun_path, sizeof address.sun_path, "%s", path.c_str());
        if (bind(listen_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
            listen(listen_, 64) == 0) {
            thread_ = std::thread([this] { serve(); });
        }
    }
    ~StandIn() {
        stop_ = true;
        shutdown(listen_, SHUT_RDWR);
        if (thread_.joinable()) {
            thread_.join();
        }
        close(listen_);
    }

private:
    void serve() {
        while (!stop_) {
            const int fd = accept4(listen_, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd < 0) {
                continue;
            }
            std::string line;
            char buf[65536];
            ssize_t n = 0;
            while (line.find('\n') == std::string::npos && (n = read(fd, buf, sizeof buf)) > 0) {
                line.append(buf, static_cast<size_t>(n));
            }
            const size_t at = line.find("\"id\":\"");
            const size_t end = at == std::string::npos ? at : line.find('"', at + 6);
            if (end != std::string::npos) {
                const std::string reply = "{\"id\":\"" + line.substr(at + 6, end - at - 6) + "\"}\n";
                send(fd, reply.data(), reply.size(), MSG_NOSIGNAL);
            }
            close(fd);
        }
    }

    int listen_ = -1;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

// SIGTERM, and SIGKILL if the app hasn't gone within five seconds.
void stopApp(pid_t app) {
    kill(app, SIGTERM);
    const int handle = static_cast<int>(syscall(SYS_pidfd_open, app, 0));
    pollfd p{handle, POLLIN, 0};
    if (handle < 0 || poll(&p, 1, 5000) <= 0) {
        kill(app, SIGKILL);
    }
    waitpid(app, nullptr, 0);
    close(handle);
}

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v.size() % 2 != 0 ? v[v.size() / 2] : (v[v.size() / 2 - 1] + v[v.size() / 2]) / 2;
}

std::string event(const char* name) {
    std::string text = std::string("{\"hook_event_name\":\"") + name +
                       "\",\"session_id\":\"bench\",\"cwd\":\"/tmp\",\"tool_name\":\"Bash\","
                       "\"tool_input\":{\"command\":\"";
    text.append(2048 - text.size() - 4, 'x');
    return text + "\"}}\n";
}

bool parse(int argc, char** argv, Options& o) {
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        const bool hasValue = i + 1 < argc;
        if (a == "--standalone") {
            o.standalone = true;
        } else if (a == "--app" && hasValue) {
            o.app = argv[++i];
        } else if (a == "--tool" && hasValue) {
            o.tool = argv[++i];
        } else if (a == "--client" && hasValue) {
            o.client = argv[++i];
        } else if (a == "--runs" && hasValue) {
            o.runs = std::max(30, std::atoi(argv[++i]));
        } else {
            std::fprintf(
                stderr,
                "usage: %s [--app PATH | --standalone] [--runs N>=30] [--tool PATH] [--client PATH]\n",
                argv[0]);
            return false;
        }
    }
    return true;
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    if (!parse(argc, argv, options)) {
        return 2;
    }
    std::signal(SIGPIPE, SIG_IGN);
    char scratch[] = "/tmp/hook-roundtrip-XXXXXX";
    if (mkdtemp(scratch) == nullptr) {
        std::perror("mkdtemp");
        return 1;
    }
    const std::string support = std::string(scratch) + "/support";
    const std::string home = std::string(scratch) + "/home";
    const std::string socketPath = support + "/bridge.sock";
    mkdir(support.c_str(), 0700);
    mkdir(home.c_str(), 0700);
    const auto env = environmentFor(support, home);

    pid_t app = -1;
    std::unique_ptr<StandIn> standIn;
    if (options.standalone) {
        standIn = std::make_unique<StandIn>(socketPath);
    } else {
        const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
        app = spawn({options.app}, env, null, null, null); // its diagnostics would garble the table
        close(null);
        if (app < 0) {
            std::fprintf(stderr, "HookRoundTrip: cannot start %s (build it, or use --standalone)\n",
                         options.app.c_str());
            return 1;
        }
    }
    int status = 0;
    if (!waitForSocket(support, socketPath, 15000)) {
        std::fprintf(stderr, "HookRoundTrip: no listener at %s (app: %s)\n", socketPath.c_str(),
                     options.standalone ? "stand-in" : options.app.c_str());
        status = 1;
    } else {
        const std::string hook =
            "[ ! -x \"" + options.tool + "\" ] || exec \"" + options.tool + "\" --agent claude";
        const std::vector<std::string> toolCommand = {"/bin/sh", "-c", hook};
        const std::vector<std::string> clientCommand = {"/bin/sh", "-c", "exec \"" + options.client + "\""};
        const std::string preToolUse = event("PreToolUse");
        const std::string permission = event("PermissionRequest");

        std::vector<double> tool;
        std::vector<double> client;
        std::vector<double> toolWaiting;
        for (int i = -5; i < options.runs; ++i) { // five rounds to warm caches, not counted
            // Alternate who goes first, so neither always meets a cache the other just warmed.
            double a = 0;
            double b = 0;
            if (i % 2 == 0) {
                a = timeHook(toolCommand, env, preToolUse);
                b = timeHook(clientCommand, env, preToolUse);
            } else {
                b = timeHook(clientCommand, env, preToolUse);
                a = timeHook(toolCommand, env, preToolUse);
            }
            // Only the stand-in answers a permission request at once; the app would show a card.
            const double c = standIn ? timeHook(toolCommand, env, permission) : 0;
            if (a < 0 || b < 0 || c < 0) {
                std::fprintf(stderr, "HookRoundTrip: a hook command failed\n");
                status = 1;
                break;
            }
            if (i >= 0) {
                tool.push_back(a);
                client.push_back(b);
                toolWaiting.push_back(c);
            }
        }
        if (status == 0) {
            const double ratio = median(tool) / median(client);
            std::printf("HookRoundTrip: %d interleaved runs each, 2048-byte event, against %s\n",
                        options.runs, options.standalone ? "the stand-in listener" : options.app.c_str());
            std::printf("  %-58s median %7.3f ms\n", "hook command, mirrowisp-bridge, PreToolUse",
                        median(tool));
            std::printf("  %-58s median %7.3f ms\n",
                        "minimal C client via /bin/sh, same event, waits for reply", median(client));
            if (standIn) {
                std::printf("  %-58s median %7.3f ms\n",
                            "hook command, mirrowisp-bridge, PermissionRequest (waits)", median(toolWaiting));
            }
            std::printf("  ratio %.2fx, target: within %.1fx: %s\n", ratio, kTarget,
                        ratio <= kTarget ? "met" : "MISSED");
        }
    }
    if (app > 0) {
        stopApp(app);
    }
    standIn.reset();
    std::error_code ignored;
    std::filesystem::remove_all(scratch, ignored);
    return status;
}
