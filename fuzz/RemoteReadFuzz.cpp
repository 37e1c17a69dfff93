// libFuzzer target: what a remote host sends back for a read of the agents' files, any bytes.
#include "remote/RemoteFiles.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray output(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const auto reading = mirrowisp::RemoteFiles::parseRead(output, 3, 2);
    // Every file asked for has an answer, and no file holds more than was sent.
    if (reading.files.size() != 3 || reading.folders.size() != 2) {
        std::abort();
    }
    for (const auto& file : reading.files) {
        if (file.bytes.size() > output.size()) {
            std::abort();
        }
    }
    return 0;
}
