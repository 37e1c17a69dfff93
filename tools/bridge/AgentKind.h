#pragma once

#include <array>
#include <optional>
#include <string_view>

namespace bridge {

// The agents the app knows, by the word that goes on the wire as `agent`.
enum class AgentKind { claude, codex, cursor, opencode, amp, devin, gemini, copilot };

inline constexpr std::array<std::string_view, 8> kAgentWords = {"claude", "codex", "cursor", "opencode",
                                                                "amp",    "devin", "gemini", "copilot"};

inline std::string_view word(AgentKind kind) {
    return kAgentWords[static_cast<size_t>(kind)];
}

inline std::optional<AgentKind> agentKind(std::string_view text) {
    for (size_t i = 0; i < kAgentWords.size(); ++i) {
        if (kAgentWords[i] == text) {
            return static_cast<AgentKind>(i);
        }
    }
    return std::nullopt;
}

} // namespace bridge
