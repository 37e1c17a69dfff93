#include "StatusLine.h"

#include "Json.h"

#include <algorithm>
#include <cmath>
#include <optional>

namespace bridge {

namespace {

using Members = std::vector<json::Member>;

std::optional<Members> object(const Members& parent, std::string_view key) {
    const auto value = json::find(parent, key);
    return value ? json::members(*value) : std::nullopt;
}

std::optional<std::string> text(const Members& parent, std::string_view key) {
    const auto value = json::find(parent, key);
    return value ? json::string(*value) : std::nullopt;
}

std::optional<double> number(const Members& parent, std::string_view key) {
    const auto value = json::find(parent, key);
    return value ? json::number(*value) : std::nullopt;
}

// `model` is an object with a display name and an id in Claude Code's status line, a plain string elsewhere.
std::string modelName(const Members& root) {
    if (const auto model = object(root, "model")) {
        if (auto name = text(*model, "display_name"); name && !name->empty()) {
            return *name;
        }
        return text(*model, "id").value_or("");
    }
    return text(root, "model").value_or("");
}

std::optional<double> contextPercent(const Members& root) {
    const auto window = object(root, "context_window");
    if (!window) {
        return std::nullopt;
    }
    if (const auto used = number(*window, "used_percentage")) {
        return used;
    }
    // Older versions give only the token counts of the last request.
    const auto size = number(*window, "context_window_size");
    const auto usage = object(*window, "current_usage");
    if (!size || *size <= 0 || !usage) {
        return std::nullopt;
    }
    double tokens = 0;
    for (const auto key : {"input_tokens", "cache_creation_input_tokens", "cache_read_input_tokens"}) {
        tokens += number(*usage, key).value_or(0);
    }
    return 100.0 * tokens / *size;
}

// The line must stay one line whatever a model name holds.
std::string oneLine(std::string_view s) {
    std::string out;
    for (const char c : s) {
        out += static_cast<unsigned char>(c) < 0x20 ? ' ' : c;
    }
    return out;
}

} // namespace

std::string statusLineText(std::string_view input) {
    const auto root = json::members(input);
    if (!root) {
        return {};
    }
    std::string line = oneLine(modelName(*root));
    std::string context;
    if (const auto percent = contextPercent(*root); percent && std::isfinite(*percent)) {
        // Rounded by hand: std::lround alone would pull libm into every start of the tool.
        context = std::to_string(static_cast<long long>(std::max(0.0, *percent) + 0.5)) + "% context";
    } else if (const auto over = json::find(*root, "exceeds_200k_tokens"); over && *over == "true") {
        context = "over 200k context";
    }
    if (!context.empty()) {
        line += line.empty() ? context : " · " + context;
    }
    return line;
}

} // namespace bridge
