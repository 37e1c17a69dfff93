// What the decision log costs: the main thread's part of one decision (the request handled, then
// allowed) with the log on beside off, and `mirrowisp ctl log` over 100,000 records beside reading the
// same file with cat.
#include "BenchSupport.h"
#include "agents/AgentStore.h"
#include "agents/DecisionLog.h"
#include "base/UserDefaults.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <cstdio>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace mirrowisp;

namespace {

class FixedClock final : public Clock {
public:
    Timestamp now() const override { return 1.8e9; }
};

QByteArray request(int n) {
    return QJsonDocument(
               QJsonObject{
                   {QStringLiteral("hook_event_name"), QStringLiteral("PermissionRequest")},
                   {QStringLiteral("session_id"), QStringLiteral("bench")},
                   {QStringLiteral("cwd"), QStringLiteral("/home/dev/project")},
                   {QStringLiteral("tool_name"), QStringLiteral("Bash")},
                   {QStringLiteral("tool_input"),
                    QJsonObject{
                        {QStringLiteral("command"),
                         QStringLiteral("API_KEY=abc make deploy --token t-%1 && ").arg(n).repeated(40)}}}})
        .toJson(QJsonDocument::Compact);
}

// Handles a permission request and allows it: what the main thread does for one decision.
double decisionMs(AgentStore& store, int runs) {
    int n = 0;
    return bench::medianMs(runs, [&] {
        int fds[2];
        ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds);
        ::close(fds[1]);
        const QString id = QStringLiteral("d%1").arg(++n);
        store.handle(BridgeConnection::make({id, AgentKind::claude, request(n), true, {}}, fds[0]));
        auto [decision, session] = store.findDecision(id);
        store.allow(*decision, *session, false);
    });
}

double commandMs(const QString& program, const QStringList& arguments, const QString& support) {
    return bench::medianMs(5, [&] {
        QProcess process;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("MIRROWISP_SUPPORT_DIR"), support);
        process.setProcessEnvironment(env);
        process.setStandardOutputFile(QProcess::nullDevice());
        process.start(program, arguments);
        process.waitForFinished(60000);
    });
}

// The largest resident size of any command run so far, in KiB.
long childPeakKiB() {
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    return usage.ru_maxrss;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QTemporaryDir dir;
    UserDefaults defaults(dir.path() + QStringLiteral("/defaults.json"));
    FixedClock clock;

    std::printf("One decision on the main thread (handle + allow), median of 400\n");
    double off = 0;
    double on = 0;
    {
        AgentStore store(defaults, clock);
        off = decisionMs(store, 400);
    }
    {
        DecisionLog log(dir.path() + QStringLiteral("/on"));
        AgentStore store(defaults, clock);
        store.setDecisionLog(&log);
        on = decisionMs(store, 400);
    }
    std::printf("  log off %8.4f ms   log on %8.4f ms   added %+8.4f ms   (target: under 0.1 ms added)\n",
                off, on, on - off);

    const QString support = dir.path() + QStringLiteral("/many");
    {
        DecisionLog log(support, {1LL << 40, 5});
        for (int i = 0; i < 100'000; ++i) {
            DecisionRecord record;
            record.askedAt = 1.8e9 + i;
            record.endedAt = record.askedAt + 3;
            record.sessionID = QStringLiteral("session-%1").arg(i % 50);
            record.cwd = QStringLiteral("/home/dev/project-%1").arg(i % 7);
            record.kind = QStringLiteral("permission");
            record.tool = QStringLiteral("Bash");
            record.summary = QStringLiteral("npm run test -- --filter case-%1").arg(i);
            record.toolInput = {{QStringLiteral("command"), record.summary}};
            log.append(record);
        }
    }
    const qint64 bytes = QFile(DecisionLog::path(support)).size();
    std::printf("\nmirrowisp ctl log over 100,000 records (%.1f MB), median of 5\n", bytes / 1e6);
    const QString mirrowisp = QStringLiteral(MIRROWISP_APP_PATH);
    std::printf("  table %8.1f ms   --json %8.1f ms   --agent codex %8.1f ms   cat (ref) %6.1f ms   (target: "
                "under 500 ms)\n",
                commandMs(mirrowisp, {QStringLiteral("ctl"), QStringLiteral("log")}, support),
                commandMs(mirrowisp, {QStringLiteral("ctl"), QStringLiteral("log"), QStringLiteral("--json")},
                          support),
                commandMs(mirrowisp,
                          {QStringLiteral("ctl"), QStringLiteral("log"), QStringLiteral("--agent"),
                           QStringLiteral("codex")},
                          support),
                commandMs(QStringLiteral("/bin/cat"), {DecisionLog::path(support)}, support));

    // A 1 GB log (sparse: one endless line of zero bytes, then a record) must be walked, not loaded.
    const QString huge = dir.path() + QStringLiteral("/huge");
    QDir().mkpath(huge);
    QFile file(DecisionLog::path(huge));
    file.open(QIODevice::WriteOnly);
    file.resize(qint64(1) << 30);
    file.seek(file.size());
    DecisionRecord last;
    last.askedAt = 1.8e9;
    file.write("\n" + last.toJsonLine());
    file.close();
    const long before = childPeakKiB();
    const double hugeMs = commandMs(mirrowisp, {QStringLiteral("ctl"), QStringLiteral("log")}, huge);
    std::printf("\nmirrowisp ctl log over a 1 GiB log: %.0f ms, peak memory of the command %.1f MiB "
                "(the 100,000-record runs above: %.1f MiB)\n",
                hugeMs, childPeakKiB() / 1024.0, before / 1024.0);
    return 0;
}
