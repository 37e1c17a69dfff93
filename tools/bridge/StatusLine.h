#pragma once

#include <string>
#include <string_view>

namespace bridge {

// The short line shown under the agent's prompt, such as "Opus 4 · 42% context", from the status-line
// JSON; empty when it holds neither a model nor a context figure.
std::string statusLineText(std::string_view input);

} // namespace bridge
