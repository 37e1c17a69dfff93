#pragma once

#include <string>

namespace bridge {

// Appends the JSON object the app keeps as the session's process context: the agent's terminal and
// process found through /proc, and the variables of its environment that a jump back to it needs.
// Members that can't be learned are left out.
void appendProcessContext(std::string& out, const char* const* environment);

} // namespace bridge
