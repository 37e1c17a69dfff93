#include "bridge/BridgeServer.h"

#include "base/MainQueue.h"
#include "base/RegularFile.h"
#include "bridge/BridgeLoop.h"

#include <QFile>
#include <QFileInfo>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace mirrowisp {

namespace {

constexpr int listenBacklog = 64;

BridgeError posixError(int code) {
    if (code == 0) {
        code = EIO;
    }
    return {code, QString::fromLocal8Bit(std::strerror(code))};
}

std::optional<std::pair<quint64, quint64>> identityOf(const QByteArray& path) {
    struct stat info {};
    if (::lstat(path.constData(), &info) != 0 || !S_ISSOCK(info.st_mode)) {
        return std::nullopt;
    }
    return std::pair<quint64, quint64>{info.st_dev, info.st_ino};
}

} // namespace

// Requests waiting for the main thread. Under load one wake-up of the main thread takes all of them,
// in arrival order, instead of one posted event per request.
struct BridgeServer::Inbox {
    std::mutex lock;
    std::deque<std::shared_ptr<BridgeConnection>> requests;
    bool drainScheduled = false;

    void deliver(std::shared_ptr<BridgeConnection> connection, const std::weak_ptr<RequestHandler>& handler,
                 const std::shared_ptr<Inbox>& self) {
        {
            std::lock_guard guard(lock);
            requests.push_back(std::move(connection));
            if (drainScheduled) {
                return;
            }
            drainScheduled = true;
        }
        postToMain([self, handler] { self->drain(handler); });
    }

    void drain(const std::weak_ptr<RequestHandler>& handler) {
        std::deque<std::shared_ptr<BridgeConnection>> batch;
        {
            std::lock_guard guard(lock);
            batch.swap(requests);
            drainScheduled = false;
        }
        for (const auto& connection : batch) {
            if (auto onRequest = handler.lock()) {
                (*onRequest)(connection);
            } // else the connection is dropped, which closes it: the tool hears "no decision"
        }
    }
};

BridgeServer::BridgeServer(RequestHandler onRequest, BridgeTimeouts timeouts, BridgeEndpoint endpoint)
    : onRequest_(std::make_shared<RequestHandler>(std::move(onRequest))), timeouts_(timeouts),
      endpoint_(std::move(endpoint)), inbox_(std::make_shared<Inbox>()) {}

BridgeServer::~BridgeServer() {
    onRequest_.reset(); // requests still queued for the main thread are dropped, closing their sockets
    if (loop_) {
        loop_->requestExit();
        thread_.join();
    }
}

std::optional<BridgeError> BridgeServer::start() {
    socketPath_ = endpoint_.socketPath.isEmpty() ? BridgeProtocol::socketPath() : endpoint_.socketPath;
    const QString directory =
        endpoint_.socketPath.isEmpty() ? BridgeProtocol::supportDirectory() : QFileInfo(socketPath_).path();
    const QByteArray path = QFile::encodeName(socketPath_);

    sockaddr_un address{};
    if (static_cast<std::size_t>(path.size()) >= sizeof address.sun_path) {
        return BridgeError{ENAMETOOLONG, QStringLiteral("the socket path is %1 bytes long, and a Unix socket "
                                                        "path holds at most %2: %3")
                                             .arg(path.size())
                                             .arg(sizeof address.sun_path - 1)
                                             .arg(socketPath_)};
    }

    // The support folder holds the socket and backups of agents' settings: the user's alone.
    if (!makePrivateDirectory(directory)) {
        return posixError(errno != 0 ? errno : EACCES);
    }

    // A socket file left by a crash, or by another running copy: this copy takes the path over.
    ::unlink(path.constData());

    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return posixError(errno);
    }
    // On Linux the file bind creates takes the socket's mode, so it is never readable by others,
    // not even for the moment before the chmod below.
    ::fchmod(fd, S_IRUSR | S_IWUSR);

    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.constData(), static_cast<std::size_t>(path.size()));
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size() + 1);
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&address), length) != 0 ||
        ::listen(fd, listenBacklog) != 0) {
        const int code = errno;
        ::close(fd);
        return posixError(code);
    }
    ::chmod(path.constData(), S_IRUSR | S_IWUSR);
    socketIdentity_ = identityOf(path);

    std::weak_ptr<RequestHandler> handler = onRequest_;
    loop_ = std::make_shared<BridgeLoop>(
        fd,
        [handler, inbox = inbox_](std::shared_ptr<BridgeConnection> connection) {
            inbox->deliver(std::move(connection), handler, inbox);
        },
        timeouts_, endpoint_.host);
    if (!loop_->isValid()) {
        const int code = errno;
        loop_.reset(); // closes the listening socket
        ::unlink(path.constData());
        return posixError(code);
    }
    thread_ = std::thread([loop = loop_] {
        // Signals belong to the main thread, which turns them into an orderly quit.
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, nullptr);
        loop->run();
    });
    // Named from here so the name is there before start() returns (ps, top and gdb show 15 bytes).
    pthread_setname_np(thread_.native_handle(), "mirrowisp.bridg");
    return std::nullopt;
}

void BridgeServer::stop() {
    if (loop_) {
        loop_->stopListening();
    }
    if (socketPath_.isEmpty()) {
        return;
    }
    const QByteArray path = QFile::encodeName(socketPath_);
    // A second copy of the app may have taken the path over; its socket is not ours to remove.
    if (socketIdentity_ && identityOf(path) == socketIdentity_) {
        ::unlink(path.constData());
    }
}

bool BridgeServer::isListening() const {
    return loop_ && loop_->isListening();
}

bool BridgeServer::socketTakenOver() const {
    if (!socketIdentity_) {
        return false;
    }
    const auto current = identityOf(QFile::encodeName(socketPath_));
    return current && current != socketIdentity_;
}

} // namespace mirrowisp
