// libFuzzer target: the bytes a hook tool could send, framed and decoded as the bridge does.
#include "bridge/BridgeProtocol.h"

#include <QByteArrayView>
#include <cstdint>
#include <cstdlib>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const char* bytes = reinterpret_cast<const char*>(data);
    const void* newline = std::memchr(bytes, '\n', size);
    if (newline == nullptr) {
        return 0; // a line without its newline is never decoded
    }
    const QByteArrayView line(bytes, static_cast<const char*>(newline) - bytes);
    const auto request = mirrowisp::BridgeProtocol::decodeRequest(line);
    if (request) {
        // Whatever decodes must survive our own encoding unchanged.
        const auto again =
            mirrowisp::BridgeProtocol::decodeRequest(mirrowisp::BridgeProtocol::encodeRequest(*request));
        if (!again || !(*again == *request)) {
            std::abort();
        }
    }
    return 0;
}
