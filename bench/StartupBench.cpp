// Time from starting the app without a display to its bridge accepting connections, beside the time
// the same executable takes to load and print its version (process start and linking, no work).
#include <QByteArray>
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace {

bool canConnect(const QByteArray& path) {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.constData(), static_cast<size_t>(path.size()));
    const bool ok = ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    ::close(fd);
    return ok;
}

QProcessEnvironment headless(const QString& home) {
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove(QStringLiteral("DISPLAY"));
    env.remove(QStringLiteral("WAYLAND_DISPLAY"));
    env.remove(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"));
    env.insert(QStringLiteral("HOME"), home);
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), home + QStringLiteral("/.config"));
    env.insert(QStringLiteral("MIRROWISP_SUPPORT_DIR"), home + QStringLiteral("/support"));
    return env;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QString binary = QStringLiteral(MIRROWISP_APP_PATH);
    constexpr int runs = 15;
    std::vector<double> startup, version;
    for (int i = 0; i < runs; ++i) {
        QTemporaryDir home;
        const QByteArray socket = QFile::encodeName(home.path() + QStringLiteral("/support/bridge.sock"));
        QProcess process;
        process.setProcessEnvironment(headless(home.path()));
        process.setProcessChannelMode(QProcess::MergedChannels);
        QElapsedTimer timer;
        timer.start();
        process.start(binary, {});
        QDeadlineTimer deadline(10000);
        while (!canConnect(socket) && !deadline.hasExpired()) {
            QThread::usleep(200);
        }
        startup.push_back(static_cast<double>(timer.nsecsElapsed()) / 1e6);
        process.terminate();
        process.waitForFinished(5000);

        QProcess versionOnly;
        versionOnly.setProcessEnvironment(headless(home.path()));
        timer.restart();
        versionOnly.start(binary, {QStringLiteral("--version")});
        versionOnly.waitForFinished(10000);
        version.push_back(static_cast<double>(timer.nsecsElapsed()) / 1e6);
    }
    std::printf("App start-up without a display, median of %d runs\n", runs);
    std::printf("  %-44s %8.1f ms\n", "start to bridge accepting connections", median(startup));
    std::printf("  %-44s %8.1f ms\n", "same executable, --version (load only, ref)", median(version));
    std::printf("  target: under 300 ms\n");
    return 0;
}
