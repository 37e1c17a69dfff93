#pragma once

// Just enough JSON for the hook tool: validate an object, list its top-level members as views into the
// original bytes (so an edit can splice without re-serialising), decode a string, read a number, and
// write a string literal. No tree, no allocation per value.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace bridge::json {

struct Member {
    std::string_view key;   // raw text between the quotes, escapes left as they are
    std::string_view value; // raw text of the value
};

// The members of the object that is the whole of `text` (white space around it allowed), in order;
// nothing when `text` is not exactly one valid JSON object.
std::optional<std::vector<Member>> members(std::string_view text);

// The elements of the array that is the whole of `text`; nothing when it is not one.
std::optional<std::vector<std::string_view>> elements(std::string_view text);

// The raw value of the first member called `name`.
std::optional<std::string_view> find(const std::vector<Member>& members, std::string_view name);

// The decoded text of a string value, nothing for any other kind of value.
std::optional<std::string> string(std::string_view value);

std::optional<double> number(std::string_view value);

bool isString(std::string_view value);

// Appends `text` as a JSON string literal. Bytes that aren't UTF-8 become U+FFFD, so the line we send
// always decodes on the other side.
void appendString(std::string& out, std::string_view text);

} // namespace bridge::json
