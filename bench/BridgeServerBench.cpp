// Bridge server figures: round trips per second against the real app beside a minimal epoll server
// doing the same work, the app's peak memory while it takes a request near the 32 MiB line limit,
// and a hook's round trip while other clients dawdle, beside the same round trip alone.
#include "BenchSocket.h"
#include "BenchSupport.h"
#include "bridge/BridgeProtocol.h"
#include "bridge/BridgeServer.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>
#include <QTemporaryDir>
#include <QThread>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace mirrowisp;
using namespace mirrowisp::bench;
using Clock = std::chrono::steady_clock;

namespace {

double roundTripsPerSecond(const QByteArray& path, const QByteArray& line, int clients, double seconds) {
    std::atomic<long> done = 0;
    std::atomic<bool> stop = false;
    std::vector<std::thread> threads;
    const auto start = Clock::now();
    for (int i = 0; i < clients; ++i) {
        threads.emplace_back([&] {
            while (!stop) {
                if (roundTrip(path, line)) {
                    ++done;
                }
            }
        });
    }
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    stop = true;
    for (auto& thread : threads) {
        thread.join();
    }
    const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    return static_cast<double>(done.load()) / elapsed;
}

// The reference: the least a server can do for the same exchange, on one epoll thread.
class MinimalServer {
public:
    explicit MinimalServer(const QByteArray& path) : path_(path) {
        ::unlink(path.constData());
        listenFD_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, path.constData(), static_cast<size_t>(path.size()));
        ::bind(listenFD_, reinterpret_cast<const sockaddr*>(&address), sizeof address);
        ::listen(listenFD_, 64);
        thread_ = std::thread([this] { run(); });
    }
    ~MinimalServer() {
        stop_ = true;
        ::shutdown(listenFD_, SHUT_RDWR);
        thread_.join();
        ::close(listenFD_);
        ::unlink(path_.constData());
    }

private:
    void run() {
        std::vector<char> buffer(65536);
        while (!stop_) {
            const int fd = ::accept4(listenFD_, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd < 0) {
                continue;
            }
            QByteArray line;
            ssize_t n = 0;
            while ((n = ::recv(fd, buffer.data(), buffer.size(), 0)) > 0) {
                const char* newline =
                    static_cast<const char*>(std::memchr(buffer.data(), '\n', static_cast<size_t>(n)));
                line.append(buffer.data(), newline ? newline - buffer.data() : n);
                if (newline) {
                    break;
                }
            }
            const char reply[] = "{\"id\":\"x\"}\n";
            ::send(fd, reply, sizeof reply - 1, MSG_NOSIGNAL);
            ::close(fd);
        }
    }

    QByteArray path_;
    int listenFD_ = -1;
    std::atomic<bool> stop_ = false;
    std::thread thread_;
};

struct RunningApp {
    QTemporaryDir dir;
    QProcess process;
    QByteArray socket;

    bool start(const QString& app) {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("MIRROWISP_SUPPORT_DIR"), dir.path());
        env.remove(QStringLiteral("DISPLAY"));
        env.remove(QStringLiteral("WAYLAND_DISPLAY"));
        env.remove(QStringLiteral("DBUS_SESSION_BUS_ADDRESS")); // never meet a copy the user runs
        process.setProcessEnvironment(env);
        process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process.start(app, {});
        socket = QFile::encodeName(dir.path() + QStringLiteral("/bridge.sock"));
        QDeadlineTimer deadline(10000);
        while (!deadline.hasExpired()) {
            const int fd = connectTo(socket);
            if (fd >= 0) {
                ::close(fd);
                return true;
            }
            QThread::msleep(10);
        }
        return false;
    }
    long peakKiB() const {
        QFile status(QStringLiteral("/proc/%1/status").arg(process.processId()));
        status.open(QIODevice::ReadOnly);
        for (const QByteArray& row : status.readAll().split('\n')) {
            if (row.startsWith("VmHWM:")) {
                return row.mid(6).trimmed().split(' ').first().toLong();
            }
        }
        return 0;
    }
    ~RunningApp() {
        process.terminate();
        process.waitForFinished(5000);
    }
};

QByteArray requestLine(qsizetype payloadBytes) {
    BridgeRequest request;
    request.id = QStringLiteral("bench");
    request.agent = AgentKind::claude;
    request.payload = QByteArray(payloadBytes, 'x');
    request.expectsReply = true;
    return BridgeProtocol::encodeRequest(request) + '\n';
}

void memoryFigure(const QString& app, qsizetype payloadBytes) {
    RunningApp running;
    if (!running.start(app)) {
        std::printf("  could not start %s\n", qPrintable(app));
        return;
    }
    const long before = running.peakKiB();
    const QByteArray line = requestLine(payloadBytes);
    const bool answered = roundTrip(running.socket, line);
    const long after = running.peakKiB();
    const double payloadMiB = static_cast<double>(payloadBytes) / (1 << 20);
    std::printf("  payload %5.1f MiB, line %5.1f MiB: %-9s peak %6.1f MiB (%.1f MiB at rest), growth %.2fx "
                "the payload\n",
                payloadMiB, static_cast<double>(line.size()) / (1 << 20), answered ? "answered" : "dropped",
                static_cast<double>(after) / 1024, static_cast<double>(before) / 1024,
                static_cast<double>(after - before) / 1024 / payloadMiB);
}

// Keeps `count` clients connected that never send a byte: one the server drops is replaced at once.
class IdleClients {
public:
    IdleClients(const QByteArray& path, int count) : path_(path), fds_(static_cast<std::size_t>(count), -1) {
        for (int& fd : fds_) {
            fd = connectTo(path_);
        }
        thread_ = std::thread([this] {
            while (!stop_) {
                std::vector<pollfd> polls;
                for (const int fd : fds_) {
                    polls.push_back({fd, POLLRDHUP, 0});
                }
                ::poll(polls.data(), polls.size(), 20);
                for (std::size_t i = 0; i < polls.size(); ++i) {
                    if ((polls[i].revents & (POLLRDHUP | POLLHUP | POLLERR | POLLNVAL)) != 0) {
                        ::close(fds_[i]);
                        fds_[i] = connectTo(path_);
                        ++replaced_;
                    }
                }
            }
        });
    }
    ~IdleClients() {
        stop_ = true;
        thread_.join();
        for (const int fd : fds_) {
            ::close(fd);
        }
    }
    int replaced() const { return replaced_; }

private:
    QByteArray path_;
    std::vector<int> fds_;
    std::atomic<bool> stop_ = false;
    std::atomic<int> replaced_ = 0;
    std::thread thread_;
};

// A bridge server in this process, answering on the main thread as the app does: a 4 MiB answer to
// the request called "long", the empty answer to every other.
void dawdlerFigures() {
    QTemporaryDir dir;
    qputenv("MIRROWISP_SUPPORT_DIR", QFile::encodeName(dir.path()));
    const QString longAnswer(4 << 20, QLatin1Char('x'));
    BridgeServer server([&](const std::shared_ptr<BridgeConnection>& connection) {
        connection->reply(connection->request().id == QLatin1StringView("long") ? std::optional(longAnswer)
                                                                                : std::nullopt);
    });
    if (server.start()) {
        std::printf("  could not open the bridge socket\n");
        return;
    }
    const QByteArray path = QFile::encodeName(server.socketPath());
    const QByteArray line = requestLine(2048);
    QByteArray longLine = line;
    longLine.replace("\"bench\"", "\"long\"");

    std::thread measuring([&] {
        constexpr int runs = 300;
        int failures = 0;
        const auto hook = [&] { failures += roundTrip(path, line) ? 0 : 1; };
        const double quiet = bench::medianMs(runs, hook);
        std::printf("  %-46s %8.3f ms\n", "alone", quiet);
        {
            IdleClients idle(path, 5);
            const double withIdle = bench::medianMs(runs, hook);
            std::printf("  %-46s %8.3f ms  (%d idle ones dropped and replaced)\n",
                        "5 idle clients connected, sending nothing", withIdle, idle.replaced());
        }
        const int stuck = connectTo(path);
        sendAll(stuck, longLine); // and never reads the answer
        const double withStuck = bench::medianMs(runs, hook);
        ::close(stuck);
        std::printf("  %-46s %8.3f ms\n", "1 client not reading its 4 MiB answer", withStuck);
        std::printf("  failed round trips: %d; target: each median within 10 ms, near the one alone\n",
                    failures);
        QMetaObject::invokeMethod(QCoreApplication::instance(), &QCoreApplication::quit,
                                  Qt::QueuedConnection);
    });
    QCoreApplication::exec();
    measuring.join();
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication qapp(argc, argv);
    const QStringList args = QCoreApplication::arguments();
    const qsizetype appIndex = args.indexOf(QStringLiteral("--app"));
    const QString app =
        appIndex > 0 && appIndex + 1 < args.size() ? args[appIndex + 1] : QStringLiteral(MIRROWISP_APP_PATH);
    const double seconds = 2.0;

    RunningApp running;
    if (!running.start(app)) {
        std::fprintf(stderr, "could not start %s\n", qPrintable(app));
        return 1;
    }
    QTemporaryDir referenceDir;
    const QByteArray referenceSocket = QFile::encodeName(referenceDir.path() + QStringLiteral("/ref.sock"));
    MinimalServer reference(referenceSocket);
    const QByteArray line = requestLine(2048);

    std::printf("Bridge round trips per second (%.0f s each, 2 KiB payload)\n", seconds);
    std::printf("  %-8s %12s %20s %8s\n", "clients", "mirrowisp", "minimal epoll server", "ratio");
    for (const int clients : {1, 8}) {
        const double ours = roundTripsPerSecond(running.socket, line, clients, seconds);
        const double theirs = roundTripsPerSecond(referenceSocket, line, clients, seconds);
        std::printf("  %-8d %12.0f %20.0f %7.2fx\n", clients, ours, theirs, theirs / ours);
    }
    std::printf("  target: at least 20000 per second with 8 clients\n\n");

    std::printf("Peak memory of the app (VmHWM) for one large request\n");
    // The largest payload whose Base64 line stays under the 32 MiB limit, and a 30 MiB one that is over it.
    memoryFigure(app, (BridgeProtocol::maxLineBytes - 4096) / 4 * 3);
    memoryFigure(app, 30 << 20);
    std::printf("  target: peak growth under 4x the payload\n\n");

    std::printf("Median hook round trip while other clients dawdle (in-process server, 2 KiB payload)\n");
    dawdlerFigures();
    return 0;
}
