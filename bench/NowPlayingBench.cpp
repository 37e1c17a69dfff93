// What following one player costs: the app under a private X server with one island shown and a
// python3-dbusmock MPRIS player on a private session bus, playing (the closed island's meter moves),
// then paused. CPU and wake-ups of the app, and how often it asks the player for its properties,
// beside the island idling with no player and the targets. Usage: bench_now_playing [--seconds N]
// (default 60).
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
        if (fields.size() > 12) {
            s.cpuSeconds = (fields[11].toDouble() + fields[12].toDouble()) / double(sysconf(_SC_CLK_TCK));
        }
    }
    const QDir tasks(QStringLiteral("/proc/%1/task").arg(pid));
    for (const QString& task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile status(tasks.filePath(task) + QStringLiteral("/status"));
        if (status.open(QIODevice::ReadOnly)) {
            for (const QByteArray& line : status.readAll().split('\n')) {
                if (line.contains("ctxt_switches:")) {
                    s.switches += line.mid(line.indexOf(':') + 1).trimmed().toLongLong();
                }
            }
        }
    }
    return s;
}

const char* const configure = R"(
import dbus, sys
bus = dbus.bus.BusConnection(sys.argv[1])
player = bus.get_object('org.mpris.MediaPlayer2.bench', '/org/mpris/MediaPlayer2')
metadata = dbus.Dictionary({'xesam:title': 'Bench', 'xesam:artist': dbus.Array(['Bench'], signature='s'),
                            'mpris:length': dbus.Int64(600000000),
                            'mpris:trackid': dbus.ObjectPath('/track/1')}, signature='sv')
player.AddProperties('org.mpris.MediaPlayer2.Player', {'PlaybackStatus': sys.argv[2], 'Metadata': metadata,
    'Position': dbus.Int64(0), 'Rate': 1.0, 'LoopStatus': 'None'}, dbus_interface='org.freedesktop.DBus.Mock')
)";

int getAllCalls(const QString& log) {
    QFile file(log);
    return file.open(QIODevice::ReadOnly)
               ? int(file.readAll().count("GetAll /org/mpris/MediaPlayer2 org.mpris.MediaPlayer2.Player"))
               : 0;
}

struct Run {
    Sample before, after;
    int polls = 0;
};

// The app for `seconds` under `server`, with a player in `status` ("Playing", "Paused") or none.
Run measure(const mirrowisp::test::XvfbServer& server, const QString& status, int seconds) {
    const bool withPlayer = !status.isEmpty();
    Run run;
    QTemporaryDir home;
    QProcess bus;
    bus.start(QStringLiteral("dbus-daemon"),
              {QStringLiteral("--session"), QStringLiteral("--nofork"), QStringLiteral("--print-address=1")});
    if (!bus.waitForReadyRead(10000)) {
        return run;
    }
    const QString address = QString::fromUtf8(bus.readLine()).trimmed();
    QProcessEnvironment env = server.environment();
    env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), address);
    QProcess player;
    const QString log = home.filePath(QStringLiteral("player.log"));
    if (withPlayer) {
        player.setProcessEnvironment(env);
        player.start(QStringLiteral("/usr/bin/python3"),
                     {QStringLiteral("-m"), QStringLiteral("dbusmock"), QStringLiteral("--session"),
                      QStringLiteral("-l"), log, QStringLiteral("org.mpris.MediaPlayer2.bench"),
                      QStringLiteral("/org/mpris/MediaPlayer2"), QStringLiteral("org.mpris.MediaPlayer2")});
        for (int attempt = 0; attempt < 50; ++attempt) {
            QProcess setup; // fails quietly until the player has its name
            setup.setStandardErrorFile(QProcess::nullDevice());
            setup.start(QStringLiteral("/usr/bin/python3"),
                        {QStringLiteral("-c"), QString::fromUtf8(configure), address, status});
            if (setup.waitForFinished(10000) && setup.exitCode() == 0) {
                break;
            }
            QThread::msleep(200);
        }
    }
    env.insert(QStringLiteral("HOME"), home.path());
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), home.path() + QStringLiteral("/.config"));
    env.insert(QStringLiteral("MIRROWISP_SUPPORT_DIR"), home.path() + QStringLiteral("/support"));
    env.insert(QStringLiteral("MIRROWISP_ARTWORK_CATALOGUE"), QString());
    QProcess app;
    app.setProcessEnvironment(env);
    app.setStandardOutputFile(QProcess::nullDevice());
    app.setStandardErrorFile(QProcess::nullDevice());
    app.start(QStringLiteral(MIRROWISP_APP_PATH), {});
    if (!app.waitForStarted(5000)) {
        return run;
    }
    QThread::sleep(5); // start-up settles
    const int pollsBefore = getAllCalls(log);
    run.before = sample(app.processId());
    QThread::sleep(static_cast<unsigned long>(seconds));
    run.after = sample(app.processId());
    run.polls = getAllCalls(log) - pollsBefore;
    app.terminate();
    app.waitForFinished(5000);
    player.kill();
    player.waitForFinished(5000);
    bus.kill();
    bus.waitForFinished(5000);
    return run;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    const int seconds = mirrowisp::bench::secondsOption(60, 10);
    mirrowisp::test::XvfbServer server;
    if (!server.start(true, true)) {
        std::fprintf(stderr, "bench_now_playing: %s\n", qPrintable(server.error()));
        return 1;
    }
    const Run playing = measure(server, QStringLiteral("Playing"), seconds);
    const Run paused = measure(server, QStringLiteral("Paused"), seconds);
    const Run idle = measure(server, QString(), seconds);
    std::printf("over %d s under Xvfb + openbox + xcompmgr, one island shown\n", seconds);
    std::printf("%-30s %10s %12s %14s %16s\n", "", "CPU s", "% of a core", "wake-ups/s", "s between polls");
    const auto print = [seconds](const char* name, const Run& run) {
        const double cpu = run.after.cpuSeconds - run.before.cpuSeconds;
        std::printf("%-30s %10.3f %12.3f %14.2f %16s\n", name, cpu, 100.0 * cpu / seconds,
                    double(run.after.switches - run.before.switches) / seconds,
                    run.polls > 0 ? qPrintable(QString::number(double(seconds) / run.polls, 'f', 2)) : "-");
    };
    print("mirrowisp, one player playing", playing);
    // Paused, the closed island shows no music: what following the player costs on its own.
    print("mirrowisp, one player paused", paused);
    print("mirrowisp, no player (ref.)", idle);
    std::printf("%-30s %10s %12.3f %14s %16s\n", "target", "", 1.0, "", ">= 4 (5 s, 1 s late ok)");
    return 0;
}
