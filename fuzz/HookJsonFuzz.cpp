// libFuzzer target: the hook tool's own JSON reader, which parses every agent's event before anything
// else looks at it.
#include "Json.h"

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

void walk(std::string_view value, int depth) {
    if (depth > 64) {
        return;
    }
    if (const auto decoded = bridge::json::string(value)) {
        // Once written by us, a text reads back the same, and writing it again changes nothing.
        std::string once;
        bridge::json::appendString(once, *decoded);
        const auto read = bridge::json::string(once);
        if (!read) {
            std::abort();
        }
        std::string twice;
        bridge::json::appendString(twice, *read);
        if (twice != once) {
            std::abort();
        }
    }
    bridge::json::number(value);
    if (const auto members = bridge::json::members(value)) {
        for (const auto& member : *members) {
            if (!bridge::json::find(*members, member.key)) {
                std::abort();
            }
            walk(member.value, depth + 1);
        }
    }
    if (const auto elements = bridge::json::elements(value)) {
        for (std::string_view element : *elements) {
            walk(element, depth + 1);
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    walk(std::string_view(reinterpret_cast<const char*>(data), size), 0);
    return 0;
}
