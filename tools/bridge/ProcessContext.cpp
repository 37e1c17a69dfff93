#include "ProcessContext.h"

#include "CodexServer.h"
#include "Json.h"
#include "ProcFs.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace bridge {

namespace {

// Every step costs three system calls and the tool runs for every tool call of every agent: the walk up
// the process tree stays short, and the variables we pass on stay few and small.
constexpr int kMaxAncestors = 64;
constexpr int kMaxShellHops = 8;
constexpr int kMaxVariables = 64;
constexpr size_t kMaxValue = 1024;
constexpr size_t kMaxEnvironment = 256 * 1024;

// Variables a jump back to the agent's terminal, multiplexer or editor may need.
// clang-format off
constexpr std::string_view kJumpVariables[] = {
    "TMUX", "TMUX_PANE", "TERM_PROGRAM", "TERM_PROGRAM_VERSION", "KITTY_WINDOW_ID", "KITTY_LISTEN_ON",
    "KITTY_PID", "WEZTERM_PANE", "WEZTERM_UNIX_SOCKET", "KONSOLE_DBUS_SERVICE", "KONSOLE_DBUS_SESSION",
    "KONSOLE_DBUS_WINDOW", "GNOME_TERMINAL_SCREEN", "GNOME_TERMINAL_SERVICE", "VTE_VERSION", "TILIX_ID",
    "TERMINATOR_UUID", "ALACRITTY_WINDOW_ID", "ALACRITTY_SOCKET", "WINDOWID", "ITERM_SESSION_ID",
    "TERM_SESSION_ID", "WT_SESSION", "GHOSTTY_RESOURCES_DIR", "ZELLIJ", "ZELLIJ_SESSION_NAME",
    "ZELLIJ_PANE_ID", "STY", "CURSOR_TRACE_ID", "DISPLAY", "WAYLAND_DISPLAY", "XDG_SESSION_TYPE",
    "XDG_CURRENT_DESKTOP", "DESKTOP_STARTUP_ID", "XDG_ACTIVATION_TOKEN", "GIO_LAUNCHED_DESKTOP_FILE",
    "GIO_LAUNCHED_DESKTOP_FILE_PID"};
constexpr std::string_view kJumpPrefixes[] = {"HERDR_", "HERDER_", "CMUX_", "VSCODE_"};

// `hostSessionID` names the terminal session or editor window that hosts the agent, apart from panes and
// multiplexers (those have fields and variables of their own): the first of these that is set.
constexpr std::string_view kHostSessionVariables[] = {
    "ITERM_SESSION_ID", "TERM_SESSION_ID", "WT_SESSION", "KONSOLE_DBUS_SESSION", "GNOME_TERMINAL_SCREEN",
    "TERMINATOR_UUID", "TILIX_ID", "CURSOR_TRACE_ID", "VSCODE_IPC_HOOK_CLI"};

// Hook commands run through a shell; the agent is the shell's parent.
constexpr std::string_view kShells[] = {
    "sh", "bash", "dash", "zsh", "fish", "ksh", "mksh", "tcsh", "csh", "ash", "yash", "posh"};
// clang-format on

// Our ancestors, read from /proc only as far as someone asks.
class Lineage {
public:
    Lineage(const std::string& root, pid_t start) : root_(root), next_(start) {}

    // The ancestor `i` steps up from the start: 0 is the start itself. Null past the top or where /proc
    // can't be read.
    const Process* at(int i) {
        const auto wanted = static_cast<size_t>(i);
        while (count_ <= wanted) {
            if (count_ == chain_.size() || next_ <= 0 || !readProcess(root_, next_, chain_[count_])) {
                return nullptr;
            }
            next_ = chain_[count_++].ppid;
        }
        return &chain_[wanted];
    }

    const std::string& root() const { return root_; }

private:
    std::string root_;
    std::array<Process, kMaxAncestors> chain_{};
    size_t count_ = 0;
    pid_t next_;
};

bool isShell(const Process& p) {
    for (const auto shell : kShells) {
        if (shell == p.comm) {
            return true;
        }
    }
    return false;
}

// A shell that leads its terminal's session is the user's own prompt, not a hook's shell.
bool leadsTerminalSession(const Process& p) {
    return p.pid == p.session && p.ttyNr != 0;
}

// The agent: our parent, or, when that is the shell of the hook command, the nearest non-shell above
// it. A hook command that `exec`s leaves no shell behind, so the parent itself may be the agent.
const Process* findAgent(Lineage& lineage) {
    const Process* p = lineage.at(0);
    for (int i = 0; p != nullptr && i < kMaxShellHops && isShell(*p) && !leadsTerminalSession(*p); ++i) {
        const Process* up = lineage.at(i + 1);
        if (up == nullptr || up->pid == 1) {
            break; // orphaned: the agent is gone, and init is nobody's agent
        }
        p = up;
    }
    return p;
}

bool isTerminalPath(std::string_view path) {
    if (path.substr(0, 9) == "/dev/pts/") {
        return path.size() > 9;
    }
    return path.substr(0, 8) == "/dev/tty" && path.size() > 8; // "/dev/tty" alone is only an alias
}

// The device name of a `tty_nr`, for when no ancestor keeps its terminal open on 0, 1 or 2.
std::string deviceName(int ttyNr) {
    const auto nr = static_cast<unsigned>(ttyNr);
    const unsigned major = (nr >> 8) & 0xFFF;
    const unsigned minor = (nr & 0xFF) | ((nr >> 12) & 0xFFF00);
    if (major >= 136 && major <= 143) {
        return "/dev/pts/" + std::to_string((major - 136) * 256 + minor);
    }
    if (major == 4) {
        return minor < 64 ? "/dev/tty" + std::to_string(minor) : "/dev/ttyS" + std::to_string(minor - 64);
    }
    return {};
}

// The hook's own standard streams are pipes, so the terminal is found on an ancestor that has one.
std::string findTty(Lineage& lineage) {
    int terminal = 0;
    for (int i = 0; const Process* p = lineage.at(i); ++i) {
        if (p->ttyNr == 0) {
            continue;
        }
        if (terminal == 0) {
            terminal = p->ttyNr;
        }
        if (p->ttyNr == terminal) {
            for (const char* fd : {"fd/0", "fd/1", "fd/2"}) {
                if (std::string target = readLink(lineage.root(), p->pid, fd); isTerminalPath(target)) {
                    return target;
                }
            }
        }
        if (p->pid == p->session) {
            break; // above the session's leader nothing runs on this terminal any more
        }
    }
    return terminal != 0 ? deviceName(terminal) : std::string();
}

std::string_view variable(const char* const* environment, std::string_view name) {
    for (auto e = environment; e != nullptr && *e != nullptr; ++e) {
        const std::string_view entry(*e);
        if (entry.size() > name.size() && entry[name.size()] == '=' && entry.substr(0, name.size()) == name) {
            return entry.substr(name.size() + 1);
        }
    }
    return {};
}

// Cut to the limit, on a character boundary.
std::string_view clip(std::string_view value) {
    if (value.size() <= kMaxValue) {
        return value;
    }
    size_t n = kMaxValue;
    while (n > 0 && (static_cast<unsigned char>(value[n]) & 0xC0) == 0x80) {
        --n;
    }
    return value.substr(0, n);
}

bool isJumpVariable(std::string_view name) {
    for (const auto known : kJumpVariables) {
        if (name == known) {
            return true;
        }
    }
    for (const auto prefix : kJumpPrefixes) {
        if (name.substr(0, prefix.size()) == prefix) {
            return true;
        }
    }
    return false;
}

// The tmux that serves this pane: the server's own executable from TMUX ("socket,pid,session"), which is
// sure to speak its protocol, else the first tmux on PATH.
std::string tmuxBinary(std::string_view tmux, std::string_view path) {
    const size_t comma = tmux.find(',');
    if (comma != std::string_view::npos) {
        const auto pid = tmux.substr(comma + 1, tmux.find(',', comma + 1) - comma - 1);
        if (!pid.empty() && pid.size() < 12 &&
            pid.find_first_not_of("0123456789") == std::string_view::npos) {
            const std::string link = "/proc/" + std::string(pid) + "/exe";
            char target[4096];
            const ssize_t n = readlink(link.c_str(), target, sizeof target);
            if (n > 0 && static_cast<size_t>(n) < sizeof target && target[0] == '/') {
                std::string exe(target, static_cast<size_t>(n));
                constexpr std::string_view deleted = " (deleted)";
                if (!exe.ends_with(deleted)) {
                    return exe;
                }
            }
        }
    }
    while (!path.empty()) {
        const size_t colon = path.find(':');
        const auto dir = path.substr(0, colon);
        path = colon == std::string_view::npos ? std::string_view() : path.substr(colon + 1);
        if (!dir.empty() && dir.front() == '/') {
            const std::string candidate = std::string(dir) + "/tmux";
            if (access(candidate.c_str(), X_OK) == 0) {
                return candidate;
            }
        }
    }
    return {};
}

void appendMember(std::string& out, std::string_view key, std::string_view value) {
    if (value.empty()) {
        return;
    }
    if (out.back() != '{') {
        out += ',';
    }
    json::appendString(out, key);
    out += ':';
    json::appendString(out, clip(value));
}

// The context of the agent found at `lineage`'s start or above it, with the variables of `environment`.
void appendContext(std::string& out, Lineage& lineage, const char* const* environment) {
    const auto get = [&](std::string_view name) { return variable(environment, name); };
    out += '{';
    appendMember(out, "tty", findTty(lineage));
    if (const Process* agent = findAgent(lineage)) {
        out += out.back() == '{' ? "" : ",";
        out += "\"agentPID\":" + std::to_string(agent->pid);
    }
    appendMember(out, "termProgram", get("TERM_PROGRAM"));
    appendMember(out, "tmuxPane", get("TMUX_PANE"));
    appendMember(out, "ghosttyResourcesDir", get("GHOSTTY_RESOURCES_DIR"));
    for (const auto name : kHostSessionVariables) {
        if (const auto value = get(name); !value.empty()) {
            appendMember(out, "hostSessionID", value);
            break;
        }
    }
    appendMember(out, "entrypoint", get("CLAUDE_CODE_ENTRYPOINT"));

    std::string variables = "{";
    int count = 0;
    for (auto e = environment; e != nullptr && *e != nullptr && count < kMaxVariables; ++e) {
        const std::string_view entry(*e);
        const size_t eq = entry.find('=');
        if (eq != std::string_view::npos && eq > 0 && eq + 1 < entry.size() &&
            isJumpVariable(entry.substr(0, eq))) {
            appendMember(variables, entry.substr(0, eq), entry.substr(eq + 1));
            ++count;
        }
    }
    if (variables.size() > 1) {
        out += out.back() == '{' ? "\"environment\":" : ",\"environment\":";
        out += variables;
        out += '}';
    }
    if (const auto tmux = get("TMUX"); !tmux.empty()) {
        appendMember(out, "tmuxBinary", tmuxBinary(tmux, get("PATH")));
    }
    out += '}';
}

// The session's folder: the event's `cwd`, else ours, since Codex starts its hooks there.
std::string sessionFolder(std::string_view event) {
    if (const auto members = json::members(event)) {
        if (const auto value = json::find(*members, "cwd")) {
            if (auto cwd = json::string(*value)) {
                return std::move(*cwd);
            }
        }
    }
    char here[4096];
    return getcwd(here, sizeof here) != nullptr ? std::string(here) : std::string();
}

// Under Codex's background server, the UI that runs the session stands for the agent: its process,
// terminal and variables. The server's own belong to whichever terminal started it, so when the UI
// can't be told they are left out rather than pointing at the wrong terminal.
void appendCodexContext(std::string& out, const std::string& root, pid_t server, std::string_view event) {
    const pid_t ui =
        codexTerminalUI(root, server, sessionFolder(event), socketPeers(socketsOf(root, server)));
    if (ui == 0) {
        out += "{\"agentPID\":" + std::to_string(server) + '}';
        return;
    }
    std::string variables = readEntry(root, ui, "environ", kMaxEnvironment);
    variables += '\0'; // a list cut at the limit still ends its last entry
    std::vector<const char*> environment;
    for (size_t start = 0, end = 0; (end = variables.find('\0', start)) != std::string::npos;
         start = end + 1) {
        environment.push_back(variables.data() + start);
    }
    environment.push_back(nullptr);
    Lineage lineage(root, ui);
    appendContext(out, lineage, environment.data());
}

} // namespace

void appendProcessContext(std::string& out, const char* const* environment, std::string_view event) {
    const std::string root = "/proc";
    Lineage lineage(root, getppid());
    if (const Process* agent = findAgent(lineage);
        agent != nullptr && isCodexBackgroundServer(root, *agent)) {
        appendCodexContext(out, root, agent->pid, event);
        return;
    }
    appendContext(out, lineage, environment);
}

} // namespace bridge
