// What an idle island costs: the app under a private X server (window manager and compositor
// running), one island shown and nothing happening. CPU seconds over the window and wake-ups per
// second (context switches of all its threads), beside the window manager idling on the same
// server and the targets. Usage: bench_island_idle [--seconds N] (default 60).
#include "BenchApp.h"
#include "support/XvfbServer.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>
#include <cstdio>
#include <unistd.h>

namespace {

struct Sample {
    double cpuSeconds = 0;
    long long switches = 0;
};

// utime + stime of the process, and the context switches of every thread: each is a wake-up.
Sample sample(qint64 pid) {
    Sample s;
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (stat.open(QIODevice::ReadOnly)) {
        const QByteArray text = stat.readAll();
        const QList<QByteArray> fields = text.mid(text.lastIndexOf(')') + 2).split(' ');
        const double ticks = static_cast<double>(sysconf(_SC_CLK_TCK));
        if (fields.size() > 12) {
            s.cpuSeconds = (fields[11].toDouble() + fields[12].toDouble()) / ticks;
        }
    }
    const QDir tasks(QStringLiteral("/proc/%1/task").arg(pid));
    for (const QString& task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile status(tasks.filePath(task) + QStringLiteral("/status"));
        if (!status.open(QIODevice::ReadOnly)) {
            continue;
        }
        for (const QByteArray& line : status.readAll().split('\n')) {
            if (line.startsWith("voluntary_ctxt_switches:") ||
                line.startsWith("nonvoluntary_ctxt_switches:")) {
                s.switches += line.mid(line.indexOf(':') + 1).trimmed().toLongLong();
            }
        }
    }
    return s;
}

qint64 pidOf(const QString& name) {
    const QDir proc(QStringLiteral("/proc"));
    qint64 newest = 0;
    for (const QString& entry : proc.entryList(QDir::Dirs)) {
        bool number = false;
        const qint64 pid = entry.toLongLong(&number);
        QFile comm(QStringLiteral("/proc/%1/comm").arg(entry));
        if (number && comm.open(QIODevice::ReadOnly) && comm.readAll().trimmed() == name.toUtf8()) {
            newest = std::max(newest, pid);
        }
    }
    return newest;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const int seconds = mirrowisp::bench::secondsOption(60, 5);
    mirrowisp::test::XvfbServer server;
    if (!server.start(true, true)) {
        std::fprintf(stderr, "bench_island_idle: %s\n", qPrintable(server.error()));
        return 1;
    }
    QTemporaryDir home;
    QProcessEnvironment env = server.environment();
    env.insert(QStringLiteral("HOME"), home.path());
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), home.path() + QStringLiteral("/.config"));
    env.insert(QStringLiteral("MIRROWISP_SUPPORT_DIR"), home.path() + QStringLiteral("/support"));
    env.remove(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"));
    env.remove(QStringLiteral("WAYLAND_DISPLAY"));
    QProcess mirrowisp;
    if (!mirrowisp::bench::startApp(mirrowisp, env, "bench_island_idle")) {
        return 1;
    }
    // Let start-up settle: hook setup, the first usage reads and the island's first frames.
    QThread::sleep(5);
    const qint64 appPID = mirrowisp.processId();
    const qint64 wmPID = pidOf(QStringLiteral("openbox"));
    const Sample appBefore = sample(appPID), wmBefore = sample(wmPID);
    QThread::sleep(static_cast<unsigned long>(seconds));
    const Sample appAfter = sample(appPID), wmAfter = sample(wmPID);
    mirrowisp.terminate();
    mirrowisp.waitForFinished(5000);

    auto print = [seconds](const char* name, const Sample& before, const Sample& after) {
        const double cpu = after.cpuSeconds - before.cpuSeconds;
        std::printf("%-28s %10.3f %12.3f %14.2f\n", name, cpu, 100.0 * cpu / seconds,
                    static_cast<double>(after.switches - before.switches) / seconds);
    };
    std::printf("idle over %d s under Xvfb + openbox + xcompmgr\n", seconds);
    std::printf("%-28s %10s %12s %14s\n", "", "CPU s", "% of a core", "wake-ups/s");
    print("mirrowisp, one island", appBefore, appAfter);
    print("openbox (reference)", wmBefore, wmAfter);
    std::printf("%-28s %10s %12.3f %14.2f\n", "target", "", 0.5, 2.0);
    return 0;
}
