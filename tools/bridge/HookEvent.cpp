#include "HookEvent.h"

#include "Json.h"

#include <algorithm>
#include <iterator>
#include <vector>

namespace bridge {

namespace {

struct Rename {
    std::string_view from, to;
};

// Only the names that don't follow from capitalising the first letter.
constexpr Rename kCursorNames[] = {
    {"beforeSubmitPrompt", "UserPromptSubmit"},
    {"afterAgentResponse", "AgentResponse"},
};
constexpr Rename kCopilotNames[] = {
    {"userPromptSubmitted", "UserPromptSubmit"},
    {"agentStop", "Stop"},
};
constexpr Rename kGeminiNames[] = {
    {"BeforeAgent", "UserPromptSubmit"}, {"AfterAgent", "Stop"},        {"BeforeTool", "PreToolUse"},
    {"AfterTool", "PostToolUse"},        {"PreCompress", "PreCompact"},
};

// Where an event carries its name under another key.
constexpr std::string_view kNameKeys[] = {"hookEventName", "hook_event"};

// A key the app reads, copied from the key an agent uses for it when the payload lacks it.
struct Alias {
    std::optional<AgentKind> agent; // any agent when absent
    std::string_view event;         // any event when empty
    std::string_view key, from;
};
constexpr Alias kAliases[] = {
    {std::nullopt, {}, "session_id", "conversation_id"},                      // Cursor
    {std::nullopt, {}, "session_id", "sessionId"},                            // Copilot's camelCase events
    {AgentKind::cursor, "AgentResponse", "message", "text"},                  // afterAgentResponse
    {AgentKind::gemini, "Stop", "last_assistant_message", "prompt_response"}, // AfterAgent
};

template <size_t N> std::optional<std::string_view> lookup(const Rename (&table)[N], std::string_view name) {
    for (const auto& row : table) {
        if (row.from == name) {
            return row.to;
        }
    }
    return std::nullopt;
}

std::string upperFirst(std::string_view name) {
    std::string out(name);
    if (!out.empty() && out[0] >= 'a' && out[0] <= 'z') {
        out[0] = static_cast<char>(out[0] - 'a' + 'A');
    }
    return out;
}

bool stringEquals(const std::vector<json::Member>& members, std::string_view key, std::string_view expected) {
    const auto value = json::find(members, key);
    return value && json::string(*value) == expected;
}

std::string canonicalName(AgentKind agent, std::string_view name, const std::vector<json::Member>& members) {
    switch (agent) {
    case AgentKind::cursor: {
        const auto known = lookup(kCursorNames, name);
        return known ? std::string(*known) : upperFirst(name);
    }
    case AgentKind::gemini:
        return std::string(lookup(kGeminiNames, name).value_or(name));
    case AgentKind::copilot: {
        const auto known = lookup(kCopilotNames, name);
        std::string out = known ? std::string(*known) : upperFirst(name);
        // Copilot announces its permission prompt only as a notification; the app needs it as a request.
        if (out == "Notification" && (stringEquals(members, "notification_type", "permission_prompt") ||
                                      stringEquals(members, "notificationType", "permission_prompt"))) {
            out = "PermissionRequest";
        }
        return out;
    }
    default:
        return std::string(name);
    }
}

} // namespace

PreparedEvent prepareEvent(AgentKind agent, std::string_view input, bool statusLine) {
    PreparedEvent out;
    const auto members = json::members(input);
    if (!members) {
        return out; // not an object: it goes as it came, and the app answers it empty
    }

    const auto nameValue = json::find(*members, "hook_event_name");
    std::optional<std::string> name = nameValue ? json::string(*nameValue) : std::nullopt;
    for (size_t i = 0; !nameValue && !name && i < std::size(kNameKeys); ++i) {
        if (const auto other = json::find(*members, kNameKeys[i])) {
            name = json::string(*other);
        }
    }
    std::string target;
    if (statusLine) {
        target = "StatusLine";
    } else if (name) {
        target = canonicalName(agent, *name, *members);
    }
    out.expectsReply = target == "PermissionRequest";

    // New members go right behind the opening brace; the name, when it changes, is replaced in place.
    std::string inserts;
    std::vector<std::string_view> added;
    const auto add = [&](std::string_view key, std::string_view rawValue) {
        json::appendString(inserts, key);
        inserts += ':';
        inserts += rawValue;
        inserts += ',';
        added.push_back(key);
    };
    const auto present = [&](std::string_view key) {
        return json::find(*members, key) || std::find(added.begin(), added.end(), key) != added.end();
    };
    std::string quotedTarget;
    json::appendString(quotedTarget, target);
    std::optional<std::string_view> replaced;
    if (!target.empty()) {
        if (!nameValue) {
            add("hook_event_name", quotedTarget);
        } else if (name != target) {
            replaced = *nameValue;
        }
    }
    for (const auto& alias : kAliases) {
        if ((alias.agent && *alias.agent != agent) || (!alias.event.empty() && alias.event != target) ||
            present(alias.key)) {
            continue;
        }
        if (const auto from = json::find(*members, alias.from); from && json::isString(*from)) {
            add(alias.key, *from);
        }
    }
    // Cursor names its folders instead of a working directory; the first one is where the agent works.
    if (!present("cwd")) {
        if (const auto roots = json::find(*members, "workspace_roots")) {
            if (const auto list = json::elements(*roots);
                list && !list->empty() && json::isString(list->front())) {
                add("cwd", list->front());
            }
        }
    }
    if (inserts.empty() && !replaced) {
        return out;
    }
    if (members->empty()) {
        inserts.pop_back(); // no member follows the new ones
    }

    const size_t brace = input.find('{');
    std::string& text = out.rewritten.emplace();
    text.reserve(input.size() + inserts.size() + quotedTarget.size());
    text.append(input.substr(0, brace + 1));
    text += inserts;
    if (replaced) {
        const auto at = static_cast<size_t>(replaced->data() - input.data());
        text.append(input.substr(brace + 1, at - brace - 1));
        text += quotedTarget;
        text.append(input.substr(at + replaced->size()));
    } else {
        text.append(input.substr(brace + 1));
    }
    return out;
}

} // namespace bridge
