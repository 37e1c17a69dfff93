// Cost of one hook event in the store, on the main thread: median over many runs, beside the cost
// of only parsing the same payload (the floor any handling pays).
#include "BenchSupport.h"
#include "agents/AgentStore.h"
#include "base/UserDefaults.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

using namespace mirrowisp;

namespace {

class FixedClock final : public Clock {
public:
    Timestamp now() const override { return 1.8e9; }
};

using bench::medianMs;

std::shared_ptr<BridgeConnection> connectionFor(const QByteArray& payload) {
    int fds[2];
    ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds);
    ::close(fds[1]); // nobody reads the empty reply here; MSG_NOSIGNAL keeps the write harmless
    return BridgeConnection::make({QStringLiteral("b"), AgentKind::claude, payload, true, {}}, fds[0]);
}

QByteArray event(const QString& tool, const QJsonObject& input) {
    return QJsonDocument(QJsonObject{{QStringLiteral("hook_event_name"), QStringLiteral("PreToolUse")},
                                     {QStringLiteral("session_id"), QStringLiteral("bench")},
                                     {QStringLiteral("cwd"), QStringLiteral("/home/dev/project")},
                                     {QStringLiteral("tool_name"), tool},
                                     {QStringLiteral("tool_input"), input}})
        .toJson(QJsonDocument::Compact);
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QTemporaryDir dir;
    UserDefaults defaults(dir.path() + QStringLiteral("/defaults.json"));
    FixedClock clock;
    AgentStore store(defaults, clock);

    QString command;
    for (int i = 0; command.size() < 64 * 1024; ++i) {
        command += QStringLiteral("echo step-%1 && ").arg(i);
    }
    const QString mebibyte(1 << 20, QLatin1Char('x'));
    struct Case {
        const char* name;
        QByteArray payload;
        double targetMs;
    };
    const Case cases[] = {
        {"PreToolUse, Bash, 64 KiB command",
         event(QStringLiteral("Bash"), {{QStringLiteral("command"), command}}), 1.0},
        {"PreToolUse, Write, 1 MiB content",
         event(QStringLiteral("Write"), {{QStringLiteral("file_path"), QStringLiteral("/p/big.txt")},
                                         {QStringLiteral("content"), mebibyte}}),
         5.0},
        {"PreToolUse, unknown tool, 1 MiB text",
         event(QStringLiteral("mcp__srv__dump"), {{QStringLiteral("blob"), mebibyte}}), 5.0},
    };
    std::printf("Median time of AgentStore::handle per event (main thread), 60 runs each\n");
    std::printf("  %-40s %10s %16s %8s\n", "event", "handle", "parse only (ref)", "target");
    for (const Case& c : cases) {
        const double parse = medianMs(60, [&] { (void)AgentStore::parsePayload(c.payload); });
        const double handle = medianMs(60, [&] { store.handle(connectionFor(c.payload)); });
        std::printf("  %-40s %8.3f ms %13.3f ms %5.1f ms\n", c.name, handle, parse, c.targetMs);
    }
    return 0;
}
