#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace bridge {

// "bridge.sock" in the support directory: MIRROWISP_SUPPORT_DIR when set and not empty, else
// ".mirrowisp" in the home directory. Nothing when no home is known or the path doesn't fit a
// Unix socket address: a cut path could reach some other socket.
std::optional<std::string> socketPath();

// A connected socket, or -1 when the app isn't listening (no socket file, or a stale one).
int connectTo(const std::string& path);

bool sendAll(int fd, std::string_view bytes);

// Everything up to the first newline, or up to end of file when none comes. Blocks for as long as the
// app takes to decide: the agent's own hook timeout is the only bound that fits a human's answer.
std::string readLine(int fd);

bool writeAll(int fd, std::string_view bytes);

} // namespace bridge
