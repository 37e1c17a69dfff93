// The island's volume display under a private X server: from a volume key (xdotool) and from a
// `pactl` change to the display's first drawn pixels, beside the time xdotool and pactl take alone;
// then the app's idle cost with the sound server and a backlight present, and how often the backlight
// is read. Target: under 50 ms; idle under 0.5 % of a core and at most one backlight read a second.
// Usage: bench_hud [--rounds N] (default 10).
#include "BenchApp.h"
#include "support/XvfbServer.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>
#include <vector>
#include <xcb/xcb.h>

namespace {

// The top of the screen, where the island sits, as the server holds it.
QByteArray topOfScreen(xcb_connection_t* connection, xcb_window_t root) {
    xcb_get_image_reply_t* image = xcb_get_image_reply(
        connection, xcb_get_image(connection, XCB_IMAGE_FORMAT_Z_PIXMAP, root, 0, 0, 1920, 120, ~0U),
        nullptr);
    if (image == nullptr) {
        return {};
    }
    QByteArray pixels(reinterpret_cast<const char*>(xcb_get_image_data(image)),
                      xcb_get_image_data_length(image));
    free(image);
    return pixels;
}

// Wake-ups of the app's backlight reading thread: one per reading.
long long backlightWakeUps(qint64 pid) {
    const QDir tasks(QStringLiteral("/proc/%1/task").arg(pid));
    for (const QString& task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile comm(tasks.filePath(task) + QStringLiteral("/comm"));
        QFile status(tasks.filePath(task) + QStringLiteral("/status"));
        if (!comm.open(QIODevice::ReadOnly) || !comm.readAll().startsWith("mirrowisp.backl") ||
            !status.open(QIODevice::ReadOnly)) {
            continue;
        }
        for (const QByteArray& line : status.readAll().split('\n')) {
            if (line.startsWith("voluntary_ctxt_switches:")) {
                return line.mid(line.indexOf(':') + 1).trimmed().toLongLong();
            }
        }
    }
    return -1;
}

double cpuSeconds(qint64 pid) {
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly)) {
        return 0;
    }
    const QByteArray text = stat.readAll();
    const QList<QByteArray> fields = text.mid(text.lastIndexOf(')') + 2).split(' ');
    return fields.size() > 12
               ? (fields[11].toDouble() + fields[12].toDouble()) / static_cast<double>(sysconf(_SC_CLK_TCK))
               : 0;
}

struct Figures {
    std::vector<double> shown;
    std::vector<double> toolAlone;
};

void print(const char* what, Figures figures) {
    auto median = [](std::vector<double>& values) {
        std::sort(values.begin(), values.end());
        return values.empty() ? -1.0 : values[values.size() / 2];
    };
    const double worst =
        figures.shown.empty() ? -1 : *std::max_element(figures.shown.begin(), figures.shown.end());
    std::printf(
        "%-28s display drawn after %6.1f ms median, %6.1f ms worst (%zu rounds); the tool alone %6.1f ms\n",
        what, median(figures.shown), worst, figures.shown.size(), median(figures.toolAlone));
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    int rounds = 10;
    for (int i = 1; i + 1 < argc; ++i) {
        if (QByteArray(argv[i]) == "--rounds") {
            rounds = std::max(1, std::atoi(argv[i + 1]));
        }
    }
    mirrowisp::test::XvfbServer server;
    if (!server.start(true, true)) {
        std::fprintf(stderr, "bench_hud: %s\n", qPrintable(server.error()));
        return 1;
    }
    QTemporaryDir home;
    const QString socket = home.path() + QStringLiteral("/pulse-native");
    QProcessEnvironment env = server.environment();
    env.insert(QStringLiteral("HOME"), home.path());
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), home.path() + QStringLiteral("/.config"));
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), home.path());
    env.insert(QStringLiteral("PULSE_RUNTIME_PATH"), home.path());
    env.insert(QStringLiteral("MIRROWISP_SUPPORT_DIR"), home.path() + QStringLiteral("/support"));
    env.insert(QStringLiteral("PULSE_SERVER"), QStringLiteral("unix:") + socket);
    env.insert(QStringLiteral("MIRROWISP_BACKLIGHT_ROOT"), home.path() + QStringLiteral("/backlight"));
    env.remove(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"));
    for (const auto& [file, text] :
         {std::pair{"type", "firmware"}, std::pair{"max_brightness", "100"}, std::pair{"brightness", "40"}}) {
        QDir().mkpath(home.path() + QStringLiteral("/backlight/panel"));
        QFile attribute(home.path() + QStringLiteral("/backlight/panel/") + QLatin1String(file));
        if (attribute.open(QIODevice::WriteOnly)) {
            attribute.write(text);
        }
    }
    env.remove(QStringLiteral("WAYLAND_DISPLAY"));

    QProcess pulse;
    pulse.setProcessEnvironment(env);
    pulse.setStandardErrorFile(home.path() + QStringLiteral("/pulse.log"));
    pulse.start(QStringLiteral("pulseaudio"),
                {QStringLiteral("-n"), QStringLiteral("--daemonize=no"),
                 QStringLiteral("--exit-idle-time=-1"), QStringLiteral("-L"),
                 QStringLiteral("module-native-protocol-unix auth-anonymous=1 socket=") + socket,
                 QStringLiteral("-L"), QStringLiteral("module-null-sink sink_name=wired norewinds=1")});
    auto run = [&env](const QString& program, const QStringList& args) {
        QProcess process;
        process.setProcessEnvironment(env);
        process.start(program, args);
        return process.waitForFinished(5000) && process.exitCode() == 0;
    };
    for (int tries = 0; !run(QStringLiteral("pactl"), {QStringLiteral("info")}); ++tries) {
        if (tries > 50) {
            std::fprintf(stderr, "bench_hud: pulseaudio did not start\n");
            return 1;
        }
        QThread::msleep(100);
    }
    run(QStringLiteral("pactl"),
        {QStringLiteral("set-sink-volume"), QStringLiteral("wired"), QStringLiteral("50%")});

    QProcess mirrowisp;
    if (!mirrowisp::bench::startApp(mirrowisp, env, "bench_hud")) {
        return 1;
    }
    QThread::sleep(4); // start-up settles: the island's first frames, the first readings

    xcb_connection_t* connection = xcb_connect(qPrintable(server.display()), nullptr);
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;

    // One round: the screen at rest, then the trigger, then the first changed frame.
    auto measure = [&](const QString& program, const QStringList& args, Figures& figures) {
        QThread::msleep(2500); // the last display has gone
        const QByteArray rest = topOfScreen(connection, root);
        QElapsedTimer clock;
        QProcess tool;
        tool.setProcessEnvironment(env);
        clock.start();
        tool.start(program, args);
        double shown = -1;
        double alone = -1;
        while (clock.elapsed() < 2000) {
            if (alone < 0 && tool.state() == QProcess::NotRunning) {
                alone = static_cast<double>(clock.nsecsElapsed()) / 1e6;
            }
            if (topOfScreen(connection, root) != rest) {
                shown = static_cast<double>(clock.nsecsElapsed()) / 1e6;
                break;
            }
            tool.waitForFinished(0);
        }
        tool.waitForFinished(5000);
        if (alone < 0) {
            alone = static_cast<double>(clock.nsecsElapsed()) / 1e6;
        }
        if (shown >= 0) {
            figures.shown.push_back(shown);
            figures.toolAlone.push_back(alone);
        }
    };

    Figures keys;
    Figures pactl;
    for (int round = 0; round < rounds; ++round) {
        measure(QStringLiteral("xdotool"),
                {QStringLiteral("key"), round % 2 == 0 ? QStringLiteral("XF86AudioRaiseVolume")
                                                       : QStringLiteral("XF86AudioLowerVolume")},
                keys);
        measure(QStringLiteral("pactl"),
                {QStringLiteral("set-sink-volume"), QStringLiteral("wired"),
                 round % 2 == 0 ? QStringLiteral("30%") : QStringLiteral("60%")},
                pactl);
    }
    print("volume key", keys);
    print("pactl set-sink-volume", pactl);

    QThread::msleep(2500);
    const double before = cpuSeconds(mirrowisp.processId());
    const long long readsBefore = backlightWakeUps(mirrowisp.processId());
    QThread::sleep(10);
    const double after = cpuSeconds(mirrowisp.processId());
    const long long readsAfter = backlightWakeUps(mirrowisp.processId());
    std::printf(
        "idle, island shown, sound server and backlight present: %.2f %% of a core over 10 s (target under "
        "0.5 %%); %.1f backlight reads a second (target at most 1)\n",
        (after - before) / 10 * 100, static_cast<double>(readsAfter - readsBefore) / 10);

    xcb_disconnect(connection);
    mirrowisp.terminate();
    mirrowisp.waitForFinished(5000);
    pulse.terminate();
    pulse.waitForFinished(5000);
    return keys.shown.empty() || pactl.shown.empty() ? 1 : 0;
}
