#pragma once

#include <string>
#include <string_view>

namespace bridge {

// Appends the JSON object the app keeps as the session's process context: the agent's terminal and
// process found through /proc, and the variables of its environment that a jump back to it needs.
// Members that can't be learned are left out. `event` is the agent's hook event, read only when its
// folder is needed to tell apart the terminals of a shared Codex server.
void appendProcessContext(std::string& out, const char* const* environment, std::string_view event);

} // namespace bridge
