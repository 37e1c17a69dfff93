// Reading Codex limits over five 20 MB session logs, the worst case: only the oldest has limits in
// its tail, so every tail is read and parsed. Beside it, the floor: reading the same tails raw.
#include "BenchSupport.h"
#include "usage/UsageTracker.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <vector>

using namespace mirrowisp;

namespace {

constexpr qint64 logBytes = 20 * 1024 * 1024;
constexpr qint64 tailBytes = 524288;
constexpr double targetMs = 50;

using bench::medianMs;

QByteArray filler() {
    QByteArray text;
    for (int i = 0; text.size() < logBytes; ++i) {
        text += QByteArrayLiteral(
                    "{\"timestamp\":\"2027-01-15T08:00:00.000Z\",\"type\":\"response_item\",\"payload\":"
                    "{\"type\":\"message\",\"role\":\"assistant\",\"content\":[{\"type\":\"output_text\","
                    "\"text\":\"line ") +
                QByteArray::number(i) + QByteArrayLiteral(" of a long answer\"}]}}\n");
    }
    return text;
}

const QByteArray limits = QByteArrayLiteral(
    "{\"timestamp\":\"2027-01-15T08:00:00.250Z\",\"type\":\"event_msg\",\"payload\":{\"type\":\"token_"
    "count\","
    "\"rate_limits\":{\"primary\":{\"used_percent\":12.0,\"window_minutes\":300,\"resets_in_seconds\":600},"
    "\"secondary\":{\"used_percent\":34.0,\"window_minutes\":10080,\"resets_at\":1900000000}}}}\n");

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QTemporaryDir dir;
    const QString sessions = dir.filePath(QStringLiteral("codex/sessions/2027/01/15"));
    QDir().mkpath(sessions);
    const QByteArray body = filler();
    QStringList paths;
    for (int i = 0; i < 5; ++i) {
        const QString path = sessions + QStringLiteral("/rollout-%1.jsonl").arg(i);
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly)) {
            std::fprintf(stderr, "cannot write %s\n", qPrintable(path));
            return 1;
        }
        // The four newest carry their limits at the head, out of the tail's reach.
        file.write(i == 0 ? body + limits : limits + body);
        file.setFileTime(QDateTime::fromSecsSinceEpoch(1'800'000'000 + i), QFileDevice::FileModificationTime);
        paths.append(path);
    }

    std::size_t found = 0;
    const double limitsMs = medianMs(21, [&] {
        found += static_cast<std::size_t>(
            UsageTracker::readCodexLimits(dir.filePath(QStringLiteral("codex"))).size());
    });
    qint64 bytes = 0;
    const double rawMs = medianMs(21, [&] {
        for (const QString& path : paths) {
            QFile file(path);
            if (file.open(QIODevice::ReadOnly) && file.seek(file.size() - tailBytes)) {
                bytes += file.read(tailBytes).size();
            }
        }
    });
    if (found != 21 * 2) {
        std::fprintf(stderr, "readCodexLimits found %zu meters over 21 runs, expected 42\n", found);
        return 1;
    }
    std::printf("readCodexLimits, five 20 MB logs: median %.2f ms (target < %.0f ms)\n", limitsMs, targetMs);
    std::printf("raw read of the same five 512 KiB tails: median %.2f ms (%lld bytes read)\n", rawMs,
                static_cast<long long>(bytes));
    return limitsMs < targetMs ? 0 : 2;
}
