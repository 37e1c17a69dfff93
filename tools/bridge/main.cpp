// mirrowisp-bridge: started by an agent's hook for each event. Forwards the event on standard input to
// the running app as one request line on its Unix socket and, for a request the agent waits on, prints
// the app's answer. Whatever goes wrong, it exits 0 and prints nothing: a hook must never stand in the
// agent's way, and the agent's own prompt is the fallback.

#include "AgentKind.h"
#include "Base64.h"
#include "BridgeClient.h"
#include "HookEvent.h"
#include "Json.h"
#include "ProcessContext.h"
#include "StatusLine.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <sys/random.h>
#include <unistd.h>

extern char** environ;

namespace {

using namespace bridge;

// The app drops request lines over 32 MiB. Base64 grows the event by a third, and the rest of the line
// (mostly the context) needs room too.
constexpr size_t kMaxEvent = 23u << 20;

struct Options {
    std::optional<AgentKind> agent;
    bool statusLine = false;
    bool version = false;
};

Options parse(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string_view arg(argv[i]);
        if (arg == "--version") {
            options.version = true;
        } else if (arg == "--statusline") {
            options.statusLine = true;
        } else if (arg == "--agent" && i + 1 < argc) {
            options.agent = agentKind(argv[++i]);
        } else if (arg.starts_with("--agent=")) {
            options.agent = agentKind(arg.substr(8));
        }
    }
    return options;
}

// Reads standard input whole; false when it holds more than the app would take.
bool readInput(std::string& out) {
    out.resize(64 * 1024);
    size_t used = 0;
    for (;;) {
        if (used == out.size()) {
            if (out.size() > kMaxEvent) {
                return false;
            }
            out.resize(out.size() * 2);
        }
        const ssize_t n = read(STDIN_FILENO, out.data() + used, out.size() - used);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            break;
        }
        used += static_cast<size_t>(n);
    }
    out.resize(used);
    return used <= kMaxEvent;
}

// Unique among our open requests, which may run side by side: the process id tells concurrent ones
// apart, the clock and a random number the ones that reuse a process id.
std::string requestId() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    unsigned long long nonce = 0;
    if (getrandom(&nonce, sizeof nonce, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof nonce)) {
        nonce =
            static_cast<unsigned long long>(now.tv_nsec) ^ (static_cast<unsigned long long>(getpid()) << 32);
    }
    char id[80];
    std::snprintf(id, sizeof id, "%d-%llx-%lx-%016llx", getpid(), static_cast<unsigned long long>(now.tv_sec),
                  static_cast<unsigned long>(now.tv_nsec), nonce);
    return id;
}

std::string requestLine(AgentKind agent, std::string_view event, bool expectsReply, const timespec& started) {
    std::string line;
    line.reserve(event.size() / 3 * 4 + 2048);
    line += "{\"id\":";
    json::appendString(line, requestId());
    line += ",\"agent\":";
    json::appendString(line, word(agent));
    line += ",\"payload\":\"";
    appendBase64(line, event);
    line += expectsReply ? "\",\"expectsReply\":true,\"context\":" : "\",\"expectsReply\":false,\"context\":";
    appendProcessContext(line, environ, event);
    // Our start, so the app can tell how long agents wait on this hook.
    char startedAt[48];
    std::snprintf(startedAt, sizeof startedAt, ",\"startedAt\":%lld.%06ld",
                  static_cast<long long>(started.tv_sec), started.tv_nsec / 1000);
    line += startedAt;
    line += "}\n";
    return line;
}

// Prints the `stdout` of the reply exactly; a reply without it means the app has no decision.
void printReply(std::string_view reply) {
    const auto members = json::members(reply);
    if (!members) {
        return;
    }
    if (const auto value = json::find(*members, "stdout")) {
        if (const auto text = json::string(*value)) {
            writeAll(STDOUT_FILENO, *text);
        }
    }
}

} // namespace

int main(int argc, char** argv) {
    // Our own standard output may be a pipe the agent has already given up on.
    std::signal(SIGPIPE, SIG_IGN);
    timespec started{};
    clock_gettime(CLOCK_REALTIME, &started);

    const Options options = parse(argc, argv);
    if (options.version) {
        writeAll(STDOUT_FILENO, std::string("mirrowisp-bridge ") + MIRROWISP_VERSION + "\n");
        return 0;
    }
    if (!options.agent) {
        return 0;
    }
    std::string input;
    const bool whole = readInput(input);

    if (options.statusLine) {
        // The user's status line shows whether or not the app runs, so it goes out first.
        if (const std::string text = statusLineText(input); !text.empty()) {
            writeAll(STDOUT_FILENO, text + "\n");
        }
    }
    if (!whole) {
        return 0;
    }
    const auto path = socketPath();
    if (!path) {
        return 0;
    }
    // Connect before anything costly: without the app there is nothing more to do.
    const int fd = connectTo(*path);
    if (fd < 0) {
        return 0;
    }
    const PreparedEvent event = prepareEvent(*options.agent, input, options.statusLine);
    const std::string_view bytes =
        event.rewritten ? std::string_view(*event.rewritten) : std::string_view(input);
    if (!sendAll(fd, requestLine(*options.agent, bytes, event.expectsReply, started))) {
        return 0;
    }
    // Without a reply to wait for we are done: the line is in the socket and the app closes its end once
    // it has read it. Waiting, we never shut down our write side, since the app takes that for our death.
    if (event.expectsReply) {
        printReply(readLine(fd));
    }
    return 0;
}
