#pragma once

// Codex runs its hooks from a background server that outlives the terminal UI and serves every UI of
// the same CODEX_HOME. A hook's ancestry and inherited environment then belong to whichever terminal
// first started the server. These find the terminal UI that runs the session instead, so that the
// context names its process (the session ends when it exits) and its terminal (the jump lands there).
// See docs/codex-background-server.md.

#include "ProcFs.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace bridge {

using SocketInode = unsigned long;

// Whether `process` is Codex's background server: a `codex app-server` that left its terminal's session.
// A server an editor runs for itself over its standard streams stays in the editor's session.
bool isCodexBackgroundServer(const std::string& procRoot, const Process& process);

// The Unix sockets a process holds open, by inode.
std::vector<SocketInode> socketsOf(const std::string& procRoot, pid_t pid);

// The other ends of the connected ones among `sockets`, as the kernel pairs them; nothing when the
// kernel won't tell (no socket diagnostics).
std::optional<std::vector<SocketInode>> socketPeers(const std::vector<SocketInode>& sockets);

// The terminal UI that runs the session a server's hook belongs to: a `codex` process on a terminal
// holding one of `clientEnds` (the far ends of the server's sockets). Several such UIs are told apart by
// their working folder, which is the session's; without `clientEnds` that folder alone decides. 0 when
// no single UI qualifies: a wrong terminal is worse than none.
pid_t codexTerminalUI(const std::string& procRoot, pid_t server, std::string_view sessionCwd,
                      const std::optional<std::vector<SocketInode>>& clientEnds);

} // namespace bridge
