#include "CodexServer.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <linux/unix_diag.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace bridge {

namespace {

// The search runs only under the server, but still for every tool call: everything it reads is bounded.
constexpr size_t kMaxCommandLine = 4096;
constexpr int kMaxDescriptors = 4096;
constexpr int kMaxProcesses = 65536;
constexpr int kMaxDiagnosticReads = 4096;

bool hasArgument(const std::string& commandLine, std::string_view wanted) {
    for (size_t start = 0; start < commandLine.size();) {
        const size_t end = std::min(commandLine.find('\0', start), commandLine.size());
        if (std::string_view(commandLine).substr(start, end - start) == wanted) {
            return true;
        }
        start = end + 1;
    }
    return false;
}

// The numeric name of a directory entry, or 0.
long numericName(const char* name) {
    char* end = nullptr;
    errno = 0;
    const long value = std::strtol(name, &end, 10);
    return errno == 0 && end != name && *end == '\0' && value > 0 ? value : 0;
}

bool contains(const std::vector<SocketInode>& sorted, SocketInode inode) {
    return std::binary_search(sorted.begin(), sorted.end(), inode);
}

struct Candidate {
    pid_t pid = 0;
    bool connected = false;
    bool inSessionFolder = false;
};

pid_t single(const std::vector<Candidate>& candidates, bool Candidate::*property) {
    pid_t found = 0;
    for (const auto& c : candidates) {
        if (c.*property) {
            if (found != 0) {
                return 0;
            }
            found = c.pid;
        }
    }
    return found;
}

} // namespace

bool isCodexBackgroundServer(const std::string& procRoot, const Process& process) {
    return std::strcmp(process.comm, "codex") == 0 && process.ttyNr == 0 && process.pid == process.session &&
           hasArgument(readEntry(procRoot, process.pid, "cmdline", kMaxCommandLine), "app-server");
}

std::vector<SocketInode> socketsOf(const std::string& procRoot, pid_t pid) {
    std::vector<SocketInode> sockets;
    const std::string folder = procRoot + '/' + std::to_string(pid) + "/fd";
    DIR* dir = opendir(folder.c_str());
    if (dir == nullptr) {
        return sockets;
    }
    constexpr std::string_view prefix = "socket:[";
    int seen = 0;
    while (const dirent* entry = readdir(dir)) {
        if (++seen > kMaxDescriptors) {
            break;
        }
        if (entry->d_name[0] == '.') {
            continue;
        }
        const std::string target = readLink(procRoot, pid, ("fd/" + std::string(entry->d_name)).c_str());
        if (target.starts_with(prefix) && target.ends_with(']')) {
            const std::string digits = target.substr(prefix.size(), target.size() - prefix.size() - 1);
            char* end = nullptr;
            const unsigned long inode = std::strtoul(digits.c_str(), &end, 10);
            if (!digits.empty() && *end == '\0' && inode != 0) {
                sockets.push_back(inode);
            }
        }
    }
    closedir(dir);
    std::sort(sockets.begin(), sockets.end());
    return sockets;
}

// The kernel's netlink macros cast in C's way.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wold-style-cast"
#pragma GCC diagnostic ignored "-Wcast-align"
std::optional<std::vector<SocketInode>> socketPeers(const std::vector<SocketInode>& sockets) {
    const int fd = socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_SOCK_DIAG);
    if (fd < 0) {
        return std::nullopt;
    }
    // The kernel answers at once; the limit only keeps a wedged one from holding up the agent.
    const timeval limit{1, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);

    struct {
        nlmsghdr header;
        unix_diag_req request;
    } query{};
    query.header.nlmsg_len = sizeof query;
    query.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
    query.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    query.request.sdiag_family = AF_UNIX;
    query.request.udiag_states = ~0u;
    query.request.udiag_show = UDIAG_SHOW_PEER;
    if (send(fd, &query, sizeof query, 0) != static_cast<ssize_t>(sizeof query)) {
        close(fd);
        return std::nullopt;
    }

    std::vector<SocketInode> peers;
    alignas(nlmsghdr) char buffer[32768];
    bool done = false;
    bool failed = false;
    for (int reads = 0; !done && reads < kMaxDiagnosticReads; ++reads) {
        const ssize_t n = recv(fd, buffer, sizeof buffer, 0);
        if (n <= 0) {
            break;
        }
        auto length = static_cast<unsigned>(n);
        for (auto* h = reinterpret_cast<nlmsghdr*>(buffer); NLMSG_OK(h, length); h = NLMSG_NEXT(h, length)) {
            if (h->nlmsg_type == NLMSG_DONE || h->nlmsg_type == NLMSG_ERROR) {
                done = true;
                failed = h->nlmsg_type == NLMSG_ERROR; // a kernel without Unix socket diagnostics
                break;
            }
            if (h->nlmsg_len < NLMSG_LENGTH(sizeof(unix_diag_msg))) {
                continue;
            }
            const auto* message = static_cast<const unix_diag_msg*>(NLMSG_DATA(h));
            if (!contains(sockets, message->udiag_ino)) {
                continue;
            }
            auto attributesLength = static_cast<unsigned>(h->nlmsg_len - NLMSG_LENGTH(sizeof *message));
            for (auto* a = reinterpret_cast<rtattr*>(const_cast<unix_diag_msg*>(message) + 1);
                 RTA_OK(a, attributesLength); a = RTA_NEXT(a, attributesLength)) {
                if (a->rta_type == UNIX_DIAG_PEER && RTA_PAYLOAD(a) >= sizeof(uint32_t)) {
                    uint32_t peer = 0;
                    std::memcpy(&peer, RTA_DATA(a), sizeof peer);
                    peers.push_back(peer);
                }
            }
        }
    }
    close(fd);
    if (!done || failed) {
        return std::nullopt;
    }
    std::sort(peers.begin(), peers.end());
    return peers;
}
#pragma GCC diagnostic pop

pid_t codexTerminalUI(const std::string& procRoot, pid_t server, std::string_view sessionCwd,
                      const std::optional<std::vector<SocketInode>>& clientEnds) {
    DIR* dir = opendir(procRoot.c_str());
    if (dir == nullptr) {
        return 0;
    }
    // /proc shows a UI's folder resolved; the event may name it through a link.
    char resolved[PATH_MAX];
    const std::string sessionPath(sessionCwd);
    const std::string resolvedCwd =
        !sessionPath.empty() && realpath(sessionPath.c_str(), resolved) != nullptr ? resolved : sessionPath;
    std::vector<Candidate> candidates;
    int seen = 0;
    while (const dirent* entry = readdir(dir)) {
        if (++seen > kMaxProcesses) {
            break;
        }
        const auto pid = static_cast<pid_t>(numericName(entry->d_name));
        Process p;
        if (pid == 0 || pid == server || !readProcess(procRoot, pid, p) || p.ttyNr == 0 ||
            std::strcmp(p.comm, "codex") != 0) {
            continue;
        }
        const std::string cwd = readLink(procRoot, pid, "cwd");
        Candidate c{pid, false, !sessionPath.empty() && (cwd == sessionPath || cwd == resolvedCwd)};
        if (clientEnds) {
            const auto held = socketsOf(procRoot, pid);
            c.connected = std::any_of(held.begin(), held.end(),
                                      [&](SocketInode inode) { return contains(*clientEnds, inode); });
            if (!c.connected) {
                continue; // a UI of another server
            }
        }
        candidates.push_back(c);
    }
    closedir(dir);
    if (clientEnds) {
        if (const pid_t only = single(candidates, &Candidate::connected)) {
            return only; // the one UI on this server, whatever folder its session works in
        }
    }
    return single(candidates, &Candidate::inSessionFolder);
}

} // namespace bridge
