#include "bridge/BridgeLoop.h"

#include "bridge/BridgeProtocol.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace mirrowisp {

namespace {
constexpr quint64 listenTag = 0;
constexpr quint64 wakeTag = 1;
} // namespace

BridgeLoop::BridgeLoop(int listenFD, Deliver deliver)
    : listenFD_(listenFD), epollFD_(::epoll_create1(EPOLL_CLOEXEC)),
      wakeFD_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), deliver_(std::move(deliver)),
      chunk_(BridgeProtocol::chunkBytes, '\0') {
    if (!isValid()) {
        return;
    }
    ::fcntl(listenFD_, F_SETFL, ::fcntl(listenFD_, F_GETFL) | O_NONBLOCK);
    epoll_event listenEvent{};
    listenEvent.events = EPOLLIN;
    listenEvent.data.u64 = listenTag;
    ::epoll_ctl(epollFD_, EPOLL_CTL_ADD, listenFD_, &listenEvent);
    epoll_event wakeEvent{};
    wakeEvent.events = EPOLLIN;
    wakeEvent.data.u64 = wakeTag;
    ::epoll_ctl(epollFD_, EPOLL_CTL_ADD, wakeFD_, &wakeEvent);
}

BridgeLoop::~BridgeLoop() {
    closeListener();
    // Waiting clients keep their descriptors: their connections close them when answered or dropped.
    if (epollFD_ >= 0) {
        ::close(epollFD_);
    }
    if (wakeFD_ >= 0) {
        ::close(wakeFD_);
    }
}

void BridgeLoop::closeListener() {
    if (listenFD_ >= 0) {
        ::close(listenFD_);
        listenFD_ = -1;
    }
    listening_ = false;
}

void BridgeLoop::wake() {
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t n = ::write(wakeFD_, &one, sizeof one);
}

void BridgeLoop::stopListening() {
    stopListening_ = true;
    listening_ = false;
    wake();
}

void BridgeLoop::requestExit() {
    exit_ = true;
    wake();
}

void BridgeLoop::run() {
    std::array<epoll_event, 32> events{};
    while (!exit_) {
        const int count = ::epoll_wait(epollFD_, events.data(), static_cast<int>(events.size()), -1);
        if (count < 0) {
            if (errno == EINTR) {
                continue;
            }
            return;
        }
        for (int i = 0; i < count && !exit_; ++i) {
            const quint64 tag = events[static_cast<std::size_t>(i)].data.u64;
            if (tag == wakeTag) {
                uint64_t drained = 0;
                [[maybe_unused]] const ssize_t n = ::read(wakeFD_, &drained, sizeof drained);
                if (stopListening_ && listenFD_ >= 0) {
                    ::epoll_ctl(epollFD_, EPOLL_CTL_DEL, listenFD_, nullptr);
                    closeListener();
                }
            } else if (tag == listenTag) {
                if (!stopListening_ && listenFD_ >= 0) {
                    acceptClient();
                }
            } else {
                onPeerEvent(tag);
            }
        }
    }
}

void BridgeLoop::acceptClient() {
    // Drain the backlog before going back to epoll: under load that saves a wake-up per client.
    // The listening socket is non-blocking; accepted sockets are not, so their reads can time out.
    for (int i = 0; i < 64 && !exit_ && !stopListening_; ++i) {
        const int fd = ::accept4(listenFD_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) {
            return; // nothing waiting, or a failed accept: the next readiness tries again
        }
        readClient(fd);
    }
}

std::optional<QByteArray> BridgeLoop::readLine(int fd, QByteArray& chunk) {
    timeval timeout{};
    timeout.tv_sec = BridgeProtocol::readTimeoutSeconds;
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);

    QByteArray line;
    for (;;) {
        const ssize_t n = ::recv(fd, chunk.data(), static_cast<size_t>(chunk.size()), 0);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return std::nullopt; // timeout, error, or end of file before the newline
        }
        const auto* newline =
            static_cast<const char*>(std::memchr(chunk.constData(), '\n', static_cast<size_t>(n)));
        if (newline != nullptr) {
            // Whatever follows the first newline in this chunk is ignored.
            line.append(chunk.constData(), newline - chunk.constData());
            return line;
        }
        line.append(chunk.constData(), n);
        if (line.size() > BridgeProtocol::maxLineBytes) {
            return std::nullopt;
        }
    }
}

void BridgeLoop::readClient(int fd) {
    std::optional<BridgeRequest> request;
    if (auto line = readLine(fd, chunk_)) {
        request = BridgeProtocol::decodeRequest(*line);
    }
    if (!request) {
        ::close(fd);
        return;
    }
    deliver_(BridgeConnection::make(std::move(*request), fd, weak_from_this()));
}

void BridgeLoop::watch(int fd, const std::shared_ptr<BridgeConnection>& connection) {
    std::lock_guard guard(watchLock_);
    const quint64 tag = nextTag_++;
    epoll_event event{};
    event.events = EPOLLIN | EPOLLRDHUP;
    event.data.u64 = tag;
    if (::epoll_ctl(epollFD_, EPOLL_CTL_ADD, fd, &event) != 0) {
        return; // unwatched: the answer still arrives, only a vanished tool goes unnoticed
    }
    watched_.emplace(tag, Watch{fd, connection});
    tagOfFD_.emplace(fd, tag);
}

void BridgeLoop::cancelAndClose(int fd) {
    std::lock_guard guard(watchLock_);
    if (auto it = tagOfFD_.find(fd); it != tagOfFD_.end()) {
        ::epoll_ctl(epollFD_, EPOLL_CTL_DEL, fd, nullptr);
        watched_.erase(it->second);
        tagOfFD_.erase(it);
    }
    ::close(fd);
}

void BridgeLoop::onPeerEvent(quint64 tag) {
    std::shared_ptr<BridgeConnection> gone;
    {
        std::lock_guard guard(watchLock_);
        const auto it = watched_.find(tag);
        if (it == watched_.end()) {
            return; // answered meanwhile
        }
        // One byte at a time: the point is to see end of file, not to receive anything.
        char byte = 0;
        const ssize_t n = ::recv(it->second.fd, &byte, 1, MSG_DONTWAIT);
        const bool closed = n == 0 || (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR);
        if (!closed) {
            return;
        }
        gone = it->second.connection.lock();
        if (!gone) {
            return; // being destroyed; its destructor closes the descriptor
        }
    }
    gone->peerClosed();
}

} // namespace mirrowisp
