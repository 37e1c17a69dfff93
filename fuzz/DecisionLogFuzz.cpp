// libFuzzer target: a decision-log line of any bytes, read as `ctl log` reads it.
#include "agents/DecisionRecord.h"

#include <QByteArrayView>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArrayView line(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    if (const auto record = mirrowisp::DecisionRecord::fromJsonLine(line)) {
        // Whatever reads must write a line that reads again, to the same agent, outcome and route.
        QByteArray written = record->toJsonLine();
        written.chop(1);
        const auto again = mirrowisp::DecisionRecord::fromJsonLine(written);
        if (!again || again->agent != record->agent || again->outcome != record->outcome ||
            again->route != record->route || again->sessionID != record->sessionID) {
            std::abort();
        }
    }
    return 0;
}
