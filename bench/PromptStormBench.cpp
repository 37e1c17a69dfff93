// A prompt storm against the real app: 20,000 prompts in a row from one session, as fast as the app
// answers them, while a second client makes a normal hook round trip every 5 ms. Prints the probe's
// round trips during the storm beside the same round trip on a quiet app; the longest one is the
// longest time the app's main thread kept every hook waiting.
#include "BenchSocket.h"
#include "bridge/BridgeProtocol.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>
#include <vector>

using namespace mirrowisp;
using mirrowisp::bench::roundTrip;
using SteadyClock = std::chrono::steady_clock;

namespace {

constexpr int prompts = 20000;

QByteArray eventLine(const QJsonObject& event) {
    BridgeRequest request;
    request.id = QStringLiteral("storm");
    request.agent = AgentKind::claude;
    request.payload = QJsonDocument(event).toJson(QJsonDocument::Compact);
    request.expectsReply = true;
    return BridgeProtocol::encodeRequest(request) + '\n';
}

QByteArray promptLine(int n) {
    return eventLine(
        {{QStringLiteral("hook_event_name"), QStringLiteral("UserPromptSubmit")},
         {QStringLiteral("session_id"), QStringLiteral("storm")},
         {QStringLiteral("cwd"), QStringLiteral("/home/dev/shop")},
         {QStringLiteral("prompt"), QStringLiteral("Prompt number %1: tidy the parser").arg(n)}});
}

QByteArray probeLine() {
    return eventLine(
        {{QStringLiteral("hook_event_name"), QStringLiteral("PreToolUse")},
         {QStringLiteral("session_id"), QStringLiteral("probe")},
         {QStringLiteral("cwd"), QStringLiteral("/home/dev/shop")},
         {QStringLiteral("tool_name"), QStringLiteral("Read")},
         {QStringLiteral("tool_input"), QJsonObject{{QStringLiteral("file_path"), QStringLiteral("/x")}}}});
}

double ms(SteadyClock::duration d) {
    return std::chrono::duration<double, std::milli>(d).count();
}

struct Figures {
    double median = 0, p99 = 0, longest = 0;
    int failed = 0;
    size_t count = 0;
};

Figures figures(std::vector<double> times, int failed) {
    Figures f;
    f.failed = failed;
    f.count = times.size();
    if (times.empty()) {
        return f;
    }
    std::sort(times.begin(), times.end());
    f.median = times[times.size() / 2];
    f.p99 = times[std::min(times.size() - 1, times.size() * 99 / 100)];
    f.longest = times.back();
    return f;
}

// Probe round trips every 5 ms until `stop`.
Figures probe(const QByteArray& socket, const std::atomic<bool>& stop) {
    const QByteArray line = probeLine();
    std::vector<double> times;
    int failed = 0;
    while (!stop) {
        const auto start = SteadyClock::now();
        if (roundTrip(socket, line)) {
            times.push_back(ms(SteadyClock::now() - start));
        } else {
            ++failed;
        }
        std::this_thread::sleep_until(start + std::chrono::milliseconds(5));
    }
    return figures(std::move(times), failed);
}

void print(const char* what, const Figures& f) {
    std::printf("  %-34s median %7.2f ms  p99 %7.2f ms  longest %7.2f ms  (%zu round trips, %d failed)\n",
                what, f.median, f.p99, f.longest, f.count, f.failed);
}

} // namespace

int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0); // our lines in order with the app's
    QCoreApplication qt(argc, argv);
    QTemporaryDir home;
    QDir(home.path()).mkpath(QStringLiteral("support"));
    QProcess app;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("HOME"), home.path());
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), home.path() + QStringLiteral("/config"));
    env.insert(QStringLiteral("MIRROWISP_SUPPORT_DIR"), home.path() + QStringLiteral("/support"));
    env.remove(QStringLiteral("DISPLAY"));
    env.remove(QStringLiteral("WAYLAND_DISPLAY"));
    env.remove(QStringLiteral("DBUS_SESSION_BUS_ADDRESS")); // never meet a copy the user runs
    app.setProcessEnvironment(env);
    app.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    app.start(QStringLiteral(MIRROWISP_APP_PATH), {});
    const QByteArray socket = QFile::encodeName(home.path() + QStringLiteral("/support/bridge.sock"));
    QDeadlineTimer ready(10000);
    while (!roundTrip(socket, probeLine()) && !ready.hasExpired()) {
        QThread::msleep(10);
    }

    std::printf("Hook round trips during %d prompts in a row (real app, no display)\n", prompts);
    std::atomic<bool> stop = false;
    Figures quiet;
    std::thread quietProbe([&] { quiet = probe(socket, stop); });
    QThread::msleep(2000);
    stop = true;
    quietProbe.join();
    print("quiet app", quiet);

    stop = false;
    Figures storm;
    std::thread stormProbe([&] { storm = probe(socket, stop); });
    int unanswered = 0;
    const auto start = SteadyClock::now();
    for (int i = 0; i < prompts; ++i) {
        unanswered += roundTrip(socket, promptLine(i)) ? 0 : 1;
    }
    const double seconds = ms(SteadyClock::now() - start) / 1000.0;
    stop = true;
    stormProbe.join();
    print("during the storm", storm);
    std::printf("  %d prompts in %.1f s (%.0f a second), %d unanswered\n", prompts, seconds,
                prompts / seconds, unanswered);
    std::printf("  target: every probe answered, none waiting over 50 ms\n");
    app.terminate();
    app.waitForFinished(5000);
    return 0;
}
