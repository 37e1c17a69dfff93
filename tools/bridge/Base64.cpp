#include "Base64.h"

namespace bridge {

void appendBase64(std::string& out, std::string_view bytes) {
    static constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const auto byte = [&](size_t i) { return static_cast<unsigned>(static_cast<unsigned char>(bytes[i])); };

    // Payloads reach megabytes: size the buffer once and fill it in place.
    size_t at = out.size();
    out.resize(at + (bytes.size() + 2) / 3 * 4);
    size_t i = 0;
    for (; i + 3 <= bytes.size(); i += 3) {
        const unsigned v = byte(i) << 16 | byte(i + 1) << 8 | byte(i + 2);
        out[at++] = kAlphabet[v >> 18];
        out[at++] = kAlphabet[(v >> 12) & 63];
        out[at++] = kAlphabet[(v >> 6) & 63];
        out[at++] = kAlphabet[v & 63];
    }
    if (const size_t rest = bytes.size() - i; rest > 0) {
        const unsigned v = byte(i) << 16 | (rest == 2 ? byte(i + 1) << 8 : 0);
        out[at++] = kAlphabet[v >> 18];
        out[at++] = kAlphabet[(v >> 12) & 63];
        out[at++] = rest == 2 ? kAlphabet[(v >> 6) & 63] : '=';
        out[at++] = '=';
    }
}

} // namespace bridge
