#include "Json.h"

#include <cstdint>
#include <cstdlib>

namespace bridge::json {

namespace {

// Agents' payloads are machine-written; this only bounds hostile nesting so the recursion can't overflow.
constexpr int kMaxDepth = 512;

bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}
bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

class Scanner {
public:
    explicit Scanner(std::string_view text) : s_(text) {}

    size_t pos() const { return i_; }
    bool atEnd() {
        skipSpace();
        return i_ == s_.size();
    }
    bool peek(char c) {
        skipSpace();
        return i_ < s_.size() && s_[i_] == c;
    }
    bool take(char c) {
        if (!peek(c)) {
            return false;
        }
        ++i_;
        return true;
    }

    void skipSpace() {
        while (i_ < s_.size() && isSpace(s_[i_])) {
            ++i_;
        }
    }

    // Skips one value; false when it isn't valid JSON.
    bool value(int depth = 0) {
        skipSpace();
        if (i_ >= s_.size() || depth > kMaxDepth) {
            return false;
        }
        switch (s_[i_]) {
        case '{':
            return object(depth);
        case '[':
            return array(depth);
        case '"':
            return string();
        case 't':
            return literal("true");
        case 'f':
            return literal("false");
        case 'n':
            return literal("null");
        default:
            return number();
        }
    }

    bool string() {
        if (i_ >= s_.size() || s_[i_] != '"') {
            return false;
        }
        ++i_;
        while (i_ < s_.size()) {
            const auto c = static_cast<unsigned char>(s_[i_++]);
            if (c == '"') {
                return true;
            }
            if (c < 0x20) {
                return false;
            }
            if (c == '\\') {
                if (i_ >= s_.size()) {
                    return false;
                }
                const char e = s_[i_++];
                if (e == 'u') {
                    for (int k = 0; k < 4; ++k) {
                        if (i_ >= s_.size() || hexValue(s_[i_++]) < 0) {
                            return false;
                        }
                    }
                } else if (std::string_view("\"\\/bfnrt").find(e) == std::string_view::npos) {
                    return false;
                }
            }
        }
        return false;
    }

    // Calls onMember(keyRaw, valueRaw) for each member of the object at the current position.
    template <typename F> bool object(int depth, F&& onMember) {
        if (!take('{')) {
            return false;
        }
        if (take('}')) {
            return true;
        }
        do {
            skipSpace();
            const size_t keyStart = i_;
            if (!string()) {
                return false;
            }
            const auto key = s_.substr(keyStart + 1, i_ - keyStart - 2);
            if (!take(':')) {
                return false;
            }
            skipSpace();
            const size_t valueStart = i_;
            if (!value(depth + 1)) {
                return false;
            }
            onMember(key, s_.substr(valueStart, i_ - valueStart));
        } while (take(','));
        return take('}');
    }

    template <typename F> bool array(int depth, F&& onElement) {
        if (!take('[')) {
            return false;
        }
        if (take(']')) {
            return true;
        }
        do {
            skipSpace();
            const size_t start = i_;
            if (!value(depth + 1)) {
                return false;
            }
            onElement(s_.substr(start, i_ - start));
        } while (take(','));
        return take(']');
    }

private:
    bool object(int depth) {
        return object(depth, [](std::string_view, std::string_view) {});
    }
    bool array(int depth) {
        return array(depth, [](std::string_view) {});
    }

    bool literal(std::string_view word) {
        if (s_.substr(i_, word.size()) != word) {
            return false;
        }
        i_ += word.size();
        return true;
    }

    bool digits() {
        const size_t start = i_;
        while (i_ < s_.size() && isDigit(s_[i_])) {
            ++i_;
        }
        return i_ > start;
    }

    bool number() {
        if (i_ < s_.size() && s_[i_] == '-') {
            ++i_;
        }
        if (i_ < s_.size() && s_[i_] == '0') {
            ++i_;
        } else if (!digits()) {
            return false;
        }
        if (i_ < s_.size() && s_[i_] == '.') {
            ++i_;
            if (!digits()) {
                return false;
            }
        }
        if (i_ < s_.size() && (s_[i_] == 'e' || s_[i_] == 'E')) {
            ++i_;
            if (i_ < s_.size() && (s_[i_] == '+' || s_[i_] == '-')) {
                ++i_;
            }
            if (!digits()) {
                return false;
            }
        }
        return true;
    }

    std::string_view s_;
    size_t i_ = 0;
};

void appendUtf8(std::string& out, uint32_t cp) {
    if (cp < 0x80) {
        out += static_cast<char>(cp);
    } else if (cp < 0x800) {
        out += static_cast<char>(0xC0 | (cp >> 6));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        out += static_cast<char>(0xE0 | (cp >> 12));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (cp >> 18));
        out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    }
}

constexpr uint32_t kReplacement = 0xFFFD;

uint32_t hex4(std::string_view s, size_t at) {
    uint32_t v = 0;
    for (size_t k = 0; k < 4; ++k) {
        v = v * 16 + static_cast<uint32_t>(hexValue(s[at + k]));
    }
    return v;
}

// Length of the valid UTF-8 sequence at `at`, or 0 when the bytes there aren't one.
size_t utf8Length(std::string_view s, size_t at) {
    const auto b0 = static_cast<unsigned char>(s[at]);
    size_t len = 0;
    uint32_t cp = 0;
    if (b0 < 0x80) {
        return 1;
    } else if (b0 >= 0xC2 && b0 <= 0xDF) {
        len = 2;
        cp = b0 & 0x1F;
    } else if (b0 >= 0xE0 && b0 <= 0xEF) {
        len = 3;
        cp = b0 & 0x0F;
    } else if (b0 >= 0xF0 && b0 <= 0xF4) {
        len = 4;
        cp = b0 & 0x07;
    } else {
        return 0;
    }
    if (at + len > s.size()) {
        return 0;
    }
    for (size_t k = 1; k < len; ++k) {
        const auto b = static_cast<unsigned char>(s[at + k]);
        if ((b & 0xC0) != 0x80) {
            return 0;
        }
        cp = (cp << 6) | (b & 0x3F);
    }
    const bool overlong = (len == 3 && cp < 0x800) || (len == 4 && cp < 0x10000);
    const bool surrogate = cp >= 0xD800 && cp <= 0xDFFF;
    if (overlong || surrogate || cp > 0x10FFFF) {
        return 0;
    }
    return len;
}

} // namespace

std::optional<std::vector<Member>> members(std::string_view text) {
    Scanner scan(text);
    std::vector<Member> out;
    const bool ok = scan.object(0, [&](std::string_view k, std::string_view v) { out.push_back({k, v}); });
    if (!ok || !scan.atEnd()) {
        return std::nullopt;
    }
    return out;
}

std::optional<std::vector<std::string_view>> elements(std::string_view text) {
    Scanner scan(text);
    std::vector<std::string_view> out;
    const bool ok = scan.array(0, [&](std::string_view v) { out.push_back(v); });
    if (!ok || !scan.atEnd()) {
        return std::nullopt;
    }
    return out;
}

std::optional<std::string_view> find(const std::vector<Member>& list, std::string_view name) {
    for (const auto& m : list) {
        if (m.key == name) {
            return m.value;
        }
        // A key spelled with escapes is rare but legal; decode only then.
        if (m.key.find('\\') != std::string_view::npos) {
            const std::string quoted = '"' + std::string(m.key) + '"';
            if (string(quoted) == name) {
                return m.value;
            }
        }
    }
    return std::nullopt;
}

bool isString(std::string_view value) {
    return !value.empty() && value.front() == '"';
}

std::optional<std::string> string(std::string_view value) {
    Scanner scan(value);
    if (!isString(value) || !scan.string() || !scan.atEnd()) {
        return std::nullopt;
    }
    const auto body = value.substr(1, scan.pos() - 2);
    std::string out;
    out.reserve(body.size());
    for (size_t i = 0; i < body.size();) {
        const char c = body[i];
        if (c != '\\') {
            out += c;
            ++i;
            continue;
        }
        const char e = body[i + 1];
        i += 2;
        switch (e) {
        case 'b':
            out += '\b';
            break;
        case 'f':
            out += '\f';
            break;
        case 'n':
            out += '\n';
            break;
        case 'r':
            out += '\r';
            break;
        case 't':
            out += '\t';
            break;
        case 'u': {
            uint32_t cp = hex4(body, i);
            i += 4;
            if (cp >= 0xD800 && cp <= 0xDBFF) {
                // A high surrogate counts only with its low half right behind it.
                if (i + 6 <= body.size() && body[i] == '\\' && body[i + 1] == 'u') {
                    const uint32_t low = hex4(body, i + 2);
                    if (low >= 0xDC00 && low <= 0xDFFF) {
                        cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
                        i += 6;
                    } else {
                        cp = kReplacement;
                    }
                } else {
                    cp = kReplacement;
                }
            } else if (cp >= 0xDC00 && cp <= 0xDFFF) {
                cp = kReplacement;
            }
            appendUtf8(out, cp);
            break;
        }
        default: // '"', '\\', '/'
            out += e;
            break;
        }
    }
    return out;
}

std::optional<double> number(std::string_view value) {
    Scanner scan(value);
    if (value.empty() || isString(value) || !scan.value() || !scan.atEnd()) {
        return std::nullopt;
    }
    const auto c = value.front();
    if (!(c == '-' || isDigit(c))) {
        return std::nullopt;
    }
    const std::string copy(value); // strtod needs a terminator
    return std::strtod(copy.c_str(), nullptr);
}

void appendString(std::string& out, std::string_view text) {
    static constexpr char kHex[] = "0123456789abcdef";
    out += '"';
    for (size_t i = 0; i < text.size();) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
            ++i;
        } else if (c < 0x20) {
            switch (c) {
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                out += "\\u00";
                out += kHex[c >> 4];
                out += kHex[c & 0xF];
            }
            ++i;
        } else if (c < 0x80) {
            out += static_cast<char>(c);
            ++i;
        } else if (const size_t len = utf8Length(text, i); len > 0) {
            out.append(text.substr(i, len));
            i += len;
        } else {
            appendUtf8(out, kReplacement);
            ++i;
        }
    }
    out += '"';
}

} // namespace bridge::json
