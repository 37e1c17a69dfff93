#include "bridge/BridgeLoop.h"

#include "bridge/BridgeProtocol.h"

#include <algorithm>
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
// Chunks read from one client per readiness, so a long line does not hold up the others.
constexpr int chunksPerTurn = 16;

bool wouldBlock(int error) {
    return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}
} // namespace

BridgeLoop::BridgeLoop(int listenFD, Deliver deliver, BridgeTimeouts timeouts, QString host)
    : listenFD_(listenFD), epollFD_(::epoll_create1(EPOLL_CLOEXEC)),
      wakeFD_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), deliver_(std::move(deliver)), timeouts_(timeouts),
      host_(std::move(host)), chunk_(BridgeProtocol::chunkBytes, '\0') {
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
    for (const auto& [tag, reader] : readers_) {
        ::close(reader.fd);
    }
    // Replies still going out are the loop's to close; waiting clients keep their descriptors:
    // their connections close them when answered or dropped.
    for (const quint64 tag : writers_) {
        ::close(watched_.at(tag).fd);
    }
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

quint64 BridgeLoop::newTag() {
    std::lock_guard guard(watchLock_);
    return nextTag_++;
}

void BridgeLoop::run() {
    std::array<epoll_event, 32> events{};
    while (!exit_) {
        const int count = ::epoll_wait(epollFD_, events.data(), static_cast<int>(events.size()),
                                       millisecondsToNextDeadline());
        if (count < 0 && errno != EINTR) {
            return;
        }
        for (int i = 0; i < count && !exit_; ++i) {
            const quint64 tag = events[static_cast<std::size_t>(i)].data.u64;
            if (tag == wakeTag) {
                uint64_t drained = 0;
                [[maybe_unused]] const ssize_t n = ::read(wakeFD_, &drained, sizeof drained);
                if (stopListening_ && listenFD_ >= 0) {
                    setAccepting(false);
                    closeListener();
                }
            } else if (tag == listenTag) {
                acceptClients();
            } else if (readers_.contains(tag)) {
                readClient(tag);
            } else {
                onPeerEvent(tag);
            }
        }
        expireDeadlines();
    }
}

void BridgeLoop::setAccepting(bool on) {
    if (on == accepting_ || listenFD_ < 0) {
        return;
    }
    accepting_ = on;
    if (on) {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.u64 = listenTag;
        ::epoll_ctl(epollFD_, EPOLL_CTL_ADD, listenFD_, &event);
    } else {
        ::epoll_ctl(epollFD_, EPOLL_CTL_DEL, listenFD_, nullptr);
    }
}

void BridgeLoop::acceptClients() {
    // Drain the backlog before going back to epoll: under load that saves a wake-up per client.
    for (int i = 0; i < 64 && !exit_ && !stopListening_ && listenFD_ >= 0; ++i) {
        if (readers_.size() >= static_cast<std::size_t>(BridgeProtocol::maxReaders)) {
            setAccepting(false); // back on when a reader finishes
            return;
        }
        const int fd = ::accept4(listenFD_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (fd < 0) {
            return; // nothing waiting, or a failed accept: the next readiness tries again
        }
        const quint64 tag = newTag();
        epoll_event event{};
        event.events = EPOLLIN | EPOLLRDHUP;
        event.data.u64 = tag;
        if (::epoll_ctl(epollFD_, EPOLL_CTL_ADD, fd, &event) != 0) {
            ::close(fd);
            continue;
        }
        const auto now = SteadyClock::now();
        readers_.emplace(
            tag,
            Reader{fd, {}, now + std::min(timeouts_.read, timeouts_.wholeLine), now + timeouts_.wholeLine});
    }
}

BridgeLoop::ReadOutcome BridgeLoop::readSome(Reader& reader) {
    for (int turn = 0; turn < chunksPerTurn; ++turn) {
        const ssize_t n = ::recv(reader.fd, chunk_.data(), static_cast<size_t>(chunk_.size()), 0);
        if (n < 0 && wouldBlock(errno)) {
            return ReadOutcome::pending;
        }
        if (n <= 0) {
            return ReadOutcome::dropped; // an error, or end of file before the newline
        }
        const auto* newline =
            static_cast<const char*>(std::memchr(chunk_.constData(), '\n', static_cast<size_t>(n)));
        // Whatever follows the first newline in this chunk is ignored.
        const qsizetype taken = newline != nullptr ? newline - chunk_.constData() : n;
        if (reader.line.size() + taken > BridgeProtocol::maxLineBytes ||
            readerBytes_ + taken > BridgeProtocol::maxPendingBytes) {
            return ReadOutcome::dropped;
        }
        reader.line.append(chunk_.constData(), taken);
        readerBytes_ += taken;
        reader.deadline = std::min(SteadyClock::now() + timeouts_.read, reader.lastChance);
        if (newline != nullptr) {
            return ReadOutcome::done;
        }
    }
    return ReadOutcome::pending; // level-triggered: the rest comes at the next turn
}

void BridgeLoop::readClient(quint64 tag) {
    Reader& reader = readers_.at(tag);
    const ReadOutcome outcome = readSome(reader);
    if (outcome == ReadOutcome::pending) {
        return;
    }
    std::optional<BridgeRequest> request;
    if (outcome == ReadOutcome::done) {
        request = BridgeProtocol::decodeRequest(reader.line);
    }
    if (!request) {
        dropReader(tag);
        return;
    }
    request->host = host_;
    const int fd = reader.fd;
    ::epoll_ctl(epollFD_, EPOLL_CTL_DEL, fd, nullptr);
    readerBytes_ -= reader.line.size();
    readers_.erase(tag);
    setAccepting(!stopListening_);
    deliver_(BridgeConnection::make(std::move(*request), fd, weak_from_this()));
}

void BridgeLoop::dropReader(quint64 tag) {
    const auto it = readers_.find(tag);
    ::epoll_ctl(epollFD_, EPOLL_CTL_DEL, it->second.fd, nullptr);
    ::close(it->second.fd);
    readerBytes_ -= it->second.line.size();
    readers_.erase(it);
    setAccepting(!stopListening_);
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
    watched_.emplace(tag, Watch{fd, connection, {}, 0, {}});
    tagOfFD_.emplace(fd, tag);
}

void BridgeLoop::cancelAndClose(int fd) {
    std::lock_guard guard(watchLock_);
    if (auto it = tagOfFD_.find(fd); it != tagOfFD_.end()) {
        ::epoll_ctl(epollFD_, EPOLL_CTL_DEL, fd, nullptr);
        watched_.erase(it->second);
        writers_.erase(it->second);
        tagOfFD_.erase(it);
    }
    ::close(fd);
}

void BridgeLoop::finishReply(int fd, QByteArray rest) {
    {
        std::lock_guard guard(watchLock_);
        epoll_event event{};
        event.events = EPOLLOUT;
        quint64 tag = 0;
        bool registered = false;
        if (auto it = tagOfFD_.find(fd); it != tagOfFD_.end()) {
            tag = it->second;
            event.data.u64 = tag;
            registered = ::epoll_ctl(epollFD_, EPOLL_CTL_MOD, fd, &event) == 0;
        } else {
            tag = nextTag_++;
            event.data.u64 = tag;
            registered = ::epoll_ctl(epollFD_, EPOLL_CTL_ADD, fd, &event) == 0;
        }
        if (!registered) {
            ::epoll_ctl(epollFD_, EPOLL_CTL_DEL, fd, nullptr);
            watched_.erase(tag);
            tagOfFD_.erase(fd);
            ::close(fd);
            return;
        }
        watched_[tag] = Watch{fd, {}, std::move(rest), 0, SteadyClock::now() + timeouts_.reply};
        tagOfFD_[fd] = tag;
        writers_.insert(tag);
    }
    wake(); // the loop's next deadline may now be this one
}

bool BridgeLoop::writeRest(Watch& watch) {
    while (watch.sent < watch.rest.size()) {
        const ssize_t n =
            ::send(watch.fd, watch.rest.constData() + watch.sent,
                   static_cast<size_t>(watch.rest.size() - watch.sent), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n < 0 && wouldBlock(errno)) {
            return false;
        }
        if (n <= 0) {
            return true; // the peer is gone: nothing more to write
        }
        watch.sent += n;
    }
    return true;
}

void BridgeLoop::onPeerEvent(quint64 tag) {
    std::shared_ptr<BridgeConnection> gone;
    {
        std::lock_guard guard(watchLock_);
        const auto it = watched_.find(tag);
        if (it == watched_.end()) {
            return; // answered meanwhile
        }
        if (writers_.contains(tag)) {
            if (writeRest(it->second)) {
                const int fd = it->second.fd;
                ::epoll_ctl(epollFD_, EPOLL_CTL_DEL, fd, nullptr);
                ::close(fd);
                tagOfFD_.erase(fd);
                writers_.erase(tag);
                watched_.erase(it);
            }
            return;
        }
        // One byte at a time: the point is to see end of file, not to receive anything.
        char byte = 0;
        const ssize_t n = ::recv(it->second.fd, &byte, 1, MSG_DONTWAIT);
        if (n > 0 || (n < 0 && wouldBlock(errno))) {
            return;
        }
        gone = it->second.connection.lock();
        if (!gone) {
            return; // being destroyed; its destructor closes the descriptor
        }
    }
    gone->peerClosed();
}

void BridgeLoop::expireDeadlines() {
    const auto now = SteadyClock::now();
    std::vector<quint64> late;
    for (const auto& [tag, reader] : readers_) {
        if (reader.deadline <= now) {
            late.push_back(tag);
        }
    }
    for (const quint64 tag : late) {
        dropReader(tag);
    }
    std::lock_guard guard(watchLock_);
    for (auto it = writers_.begin(); it != writers_.end();) {
        const Watch& watch = watched_.at(*it);
        if (watch.deadline > now) {
            ++it;
            continue;
        }
        // The client has not taken its answer in time: drop it rather than hold its bytes.
        ::epoll_ctl(epollFD_, EPOLL_CTL_DEL, watch.fd, nullptr);
        ::close(watch.fd);
        tagOfFD_.erase(watch.fd);
        watched_.erase(*it);
        it = writers_.erase(it);
    }
}

int BridgeLoop::millisecondsToNextDeadline() {
    std::optional<SteadyClock::time_point> next;
    auto consider = [&next](SteadyClock::time_point deadline) {
        next = next ? std::min(*next, deadline) : deadline;
    };
    for (const auto& [tag, reader] : readers_) {
        consider(reader.deadline);
    }
    {
        std::lock_guard guard(watchLock_);
        for (const quint64 tag : writers_) {
            consider(watched_.at(tag).deadline);
        }
    }
    if (!next) {
        return -1;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*next - SteadyClock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, 60'000));
}

} // namespace mirrowisp
