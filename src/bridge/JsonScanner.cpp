#include "bridge/JsonScanner.h"

#include <array>
#include <charconv>

namespace mirrowisp {

namespace {

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

void appendUtf8(QByteArray& out, char32_t cp) {
    if (cp < 0x80) {
        out.append(static_cast<char>(cp));
    } else if (cp < 0x800) {
        out.append(static_cast<char>(0xC0 | (cp >> 6)));
        out.append(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out.append(static_cast<char>(0xE0 | (cp >> 12)));
        out.append(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.append(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        out.append(static_cast<char>(0xF0 | (cp >> 18)));
        out.append(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out.append(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.append(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

// Length of the valid UTF-8 sequence starting at `p`, or 0 when it is malformed
// (overlong forms, surrogates and values past U+10FFFF included).
qsizetype utf8SequenceLength(const unsigned char* p, qsizetype available) {
    const unsigned char b0 = p[0];
    auto cont = [&](qsizetype i) { return i < available && (p[i] & 0xC0) == 0x80; };
    if (b0 >= 0xC2 && b0 <= 0xDF) {
        return cont(1) ? 2 : 0;
    }
    if (b0 >= 0xE0 && b0 <= 0xEF) {
        if (!cont(1) || !cont(2)) {
            return 0;
        }
        if ((b0 == 0xE0 && p[1] < 0xA0) || (b0 == 0xED && p[1] > 0x9F)) {
            return 0;
        }
        return 3;
    }
    if (b0 >= 0xF0 && b0 <= 0xF4) {
        if (!cont(1) || !cont(2) || !cont(3)) {
            return 0;
        }
        if ((b0 == 0xF0 && p[1] < 0x90) || (b0 == 0xF4 && p[1] > 0x8F)) {
            return 0;
        }
        return 4;
    }
    return 0;
}

// Bytes that need no attention inside a string: printable ASCII but the quote and the backslash.
constexpr auto plainASCII = [] {
    std::array<bool, 256> plain{};
    for (int c = 0x20; c < 0x80; ++c) {
        plain[static_cast<std::size_t>(c)] = c != '"' && c != '\\';
    }
    return plain;
}();

} // namespace

void JsonScanner::skipWhitespace() {
    while (pos_ < text_.size()) {
        const char c = text_[pos_];
        if (c != ' ' && c != '\t' && c != '\n' && c != '\r') {
            return;
        }
        ++pos_;
    }
}

JsonScanner::Type JsonScanner::peek() {
    skipWhitespace();
    if (pos_ >= text_.size()) {
        return Type::invalid;
    }
    switch (text_[pos_]) {
    case '{':
        return Type::object;
    case '[':
        return Type::array;
    case '"':
        return Type::string;
    case 't':
    case 'f':
        return Type::boolean;
    case 'n':
        return Type::null;
    default:
        return (text_[pos_] == '-' || isDigit(text_[pos_])) ? Type::number : Type::invalid;
    }
}

bool JsonScanner::beginObject() {
    if (peek() != Type::object) {
        return false;
    }
    ++pos_;
    return true;
}

JsonScanner::Next JsonScanner::nextKey(QByteArray& key, bool& first) {
    skipWhitespace();
    if (pos_ >= text_.size()) {
        return Next::error;
    }
    if (text_[pos_] == '}') {
        ++pos_;
        return Next::end;
    }
    if (!first) {
        if (text_[pos_] != ',') {
            return Next::error;
        }
        ++pos_;
        skipWhitespace();
    }
    first = false;
    if (peek() != Type::string || !readString(key)) {
        return Next::error;
    }
    skipWhitespace();
    if (pos_ >= text_.size() || text_[pos_] != ':') {
        return Next::error;
    }
    ++pos_;
    return Next::key;
}

bool JsonScanner::readString(QByteArrayView& view, QByteArray& storage) {
    if (peek() != Type::string) {
        return false;
    }
    return scanString(view, storage, true);
}

bool JsonScanner::readString(QByteArray& out) {
    QByteArrayView view;
    QByteArray storage;
    if (!readString(view, storage)) {
        return false;
    }
    out = view.data() == storage.constData() ? std::move(storage) : view.toByteArray();
    return true;
}

bool JsonScanner::scanString(QByteArrayView& view, QByteArray& storage, bool decode) {
    const auto* data = reinterpret_cast<const unsigned char*>(text_.data());
    const qsizetype size = text_.size();
    const qsizetype start = ++pos_; // past the opening quote
    bool escaped = false;
    qsizetype copiedUpTo = start;

    while (pos_ < size) {
        // Most of a request is plain ASCII (the Base64 payload above all): skip it in a tight loop.
        while (pos_ < size && plainASCII[data[pos_]]) {
            ++pos_;
        }
        if (pos_ >= size) {
            break;
        }
        const unsigned char c = data[pos_];
        if (c == '"') {
            if (!decode) {
                // skipping only
            } else if (!escaped) {
                view = text_.sliced(start, pos_ - start);
            } else {
                storage.append(text_.sliced(copiedUpTo, pos_ - copiedUpTo));
                view = QByteArrayView(storage);
            }
            ++pos_;
            return true;
        }
        if (c < 0x20) {
            return false;
        }
        if (c < 0x80 && c != '\\') {
            ++pos_;
            continue;
        }
        if (c >= 0x80) {
            const qsizetype len = utf8SequenceLength(data + pos_, size - pos_);
            if (len == 0) {
                return false;
            }
            pos_ += len;
            continue;
        }
        // A backslash escape.
        if (pos_ + 1 >= size) {
            return false;
        }
        if (decode) {
            if (!escaped) {
                storage.reserve(pos_ - start + 16);
            }
            storage.append(text_.sliced(copiedUpTo, pos_ - copiedUpTo));
        }
        escaped = true;
        const char e = text_[pos_ + 1];
        pos_ += 2;
        char32_t cp = 0;
        switch (e) {
        case '"':
        case '\\':
        case '/':
            cp = static_cast<char32_t>(e);
            break;
        case 'b':
            cp = '\b';
            break;
        case 'f':
            cp = '\f';
            break;
        case 'n':
            cp = '\n';
            break;
        case 'r':
            cp = '\r';
            break;
        case 't':
            cp = '\t';
            break;
        case 'u': {
            auto readHex4 = [&](char32_t& value) {
                if (pos_ + 4 > size) {
                    return false;
                }
                value = 0;
                for (int i = 0; i < 4; ++i) {
                    const int h = hexValue(text_[pos_ + i]);
                    if (h < 0) {
                        return false;
                    }
                    value = value * 16 + static_cast<char32_t>(h);
                }
                pos_ += 4;
                return true;
            };
            if (!readHex4(cp)) {
                return false;
            }
            if (cp >= 0xDC00 && cp <= 0xDFFF) {
                return false; // a low surrogate alone
            }
            if (cp >= 0xD800 && cp <= 0xDBFF) {
                char32_t low = 0;
                if (pos_ + 2 > size || text_[pos_] != '\\' || text_[pos_ + 1] != 'u') {
                    return false;
                }
                pos_ += 2;
                if (!readHex4(low) || low < 0xDC00 || low > 0xDFFF) {
                    return false;
                }
                cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
            }
            break;
        }
        default:
            return false;
        }
        if (decode) {
            appendUtf8(storage, cp);
        }
        copiedUpTo = pos_;
    }
    return false;
}

bool JsonScanner::expectLiteral(QByteArrayView literal) {
    if (text_.size() - pos_ < literal.size() || text_.sliced(pos_, literal.size()) != literal) {
        return false;
    }
    pos_ += literal.size();
    return true;
}

bool JsonScanner::readBool(bool& out) {
    if (peek() != Type::boolean) {
        return false;
    }
    if (expectLiteral("true")) {
        out = true;
        return true;
    }
    if (expectLiteral("false")) {
        out = false;
        return true;
    }
    return false;
}

bool JsonScanner::readNull() {
    return peek() == Type::null && expectLiteral("null");
}

bool JsonScanner::readNumber(double& out) {
    if (peek() != Type::number) {
        return false;
    }
    const qsizetype start = pos_;
    if (!scanNumber()) {
        return false;
    }
    const char* first = text_.data() + start;
    const auto result = std::from_chars(first, text_.data() + pos_, out);
    // Out of range reads as failure: no number the bridge reads is that large.
    return result.ec == std::errc() && result.ptr == text_.data() + pos_;
}

bool JsonScanner::scanNumber() {
    const qsizetype size = text_.size();
    auto digits = [&] {
        const qsizetype from = pos_;
        while (pos_ < size && isDigit(text_[pos_])) {
            ++pos_;
        }
        return pos_ > from;
    };
    if (text_[pos_] == '-') {
        ++pos_;
    }
    if (pos_ < size && text_[pos_] == '0') {
        ++pos_;
    } else if (!digits()) {
        return false;
    }
    if (pos_ < size && text_[pos_] == '.') {
        ++pos_;
        if (!digits()) {
            return false;
        }
    }
    if (pos_ < size && (text_[pos_] == 'e' || text_[pos_] == 'E')) {
        ++pos_;
        if (pos_ < size && (text_[pos_] == '+' || text_[pos_] == '-')) {
            ++pos_;
        }
        if (!digits()) {
            return false;
        }
    }
    return true;
}

bool JsonScanner::skipValue() {
    return skipValue(0);
}

bool JsonScanner::skipValue(int depth) {
    if (depth >= maxDepth) {
        return false;
    }
    switch (peek()) {
    case Type::object: {
        beginObject();
        QByteArray key;
        bool first = true;
        for (;;) {
            const Next next = nextKey(key, first);
            if (next == Next::end) {
                break;
            }
            if (next == Next::error || !skipValue(depth + 1)) {
                return false;
            }
        }
        return true;
    }
    case Type::array: {
        ++pos_;
        skipWhitespace();
        if (pos_ < text_.size() && text_[pos_] == ']') {
            ++pos_;
            return true;
        }
        for (;;) {
            if (!skipValue(depth + 1)) {
                return false;
            }
            skipWhitespace();
            if (pos_ >= text_.size()) {
                return false;
            }
            const char c = text_[pos_++];
            if (c == ']') {
                return true;
            }
            if (c != ',') {
                return false;
            }
        }
    }
    case Type::string: {
        QByteArrayView view;
        QByteArray storage;
        return scanString(view, storage, false);
    }
    case Type::number:
        return scanNumber();
    case Type::boolean: {
        bool ignored = false;
        return readBool(ignored);
    }
    case Type::null:
        return readNull();
    case Type::invalid:
        return false;
    }
    return false;
}

bool JsonScanner::finish() {
    skipWhitespace();
    return pos_ == text_.size();
}

} // namespace mirrowisp
