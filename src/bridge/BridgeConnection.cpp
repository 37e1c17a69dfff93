#include "bridge/BridgeConnection.h"

#include "base/MainQueue.h"

#include <cerrno>
#include <sys/socket.h>
#include <unistd.h>

namespace mirrowisp {

std::shared_ptr<BridgeConnection> BridgeConnection::make(BridgeRequest request, int fd,
                                                         std::weak_ptr<PeerWatchOwner> watcher) {
    std::shared_ptr<BridgeConnection> connection(
        new BridgeConnection(std::move(request), fd, std::move(watcher)));
    if (!connection->request_.expectsReply) {
        // Nobody waits for an answer: close before the event is even handled.
        connection->finished_ = true;
        ::close(connection->fd_);
        connection->fd_ = -1;
    } else if (auto owner = connection->watcher_.lock()) {
        connection->watched_ = true;
        owner->watch(connection->fd_, connection);
    }
    return connection;
}

BridgeConnection::BridgeConnection(BridgeRequest request, int fd, std::weak_ptr<PeerWatchOwner> watcher)
    : request_(std::move(request)), fd_(fd), watcher_(std::move(watcher)) {}

BridgeConnection::~BridgeConnection() {
    // Dropped without an answer: the tool sees end of file, which means "no decision".
    if (claim()) {
        closeDescriptor();
    }
}

bool BridgeConnection::claim() {
    std::lock_guard guard(lock_);
    if (finished_) {
        return false;
    }
    finished_ = true;
    return true;
}

bool BridgeConnection::isFinished() const {
    std::lock_guard guard(lock_);
    return finished_;
}

void BridgeConnection::closeDescriptor() {
    if (fd_ < 0) {
        return;
    }
    const int fd = fd_;
    fd_ = -1;
    auto owner = watched_ ? watcher_.lock() : nullptr;
    if (owner) {
        owner->cancelAndClose(fd);
    } else {
        ::close(fd);
    }
}

void BridgeConnection::reply(const std::optional<QString>& stdoutText) {
    if (!claim()) {
        return;
    }
    auto json = BridgeProtocol::encodeResponse({request_.id, stdoutText});
    if (!json || fd_ < 0) {
        closeDescriptor();
        return;
    }
    json->append('\n');
    // MSG_NOSIGNAL keeps SIGPIPE away from a dead peer; MSG_DONTWAIT keeps the caller (the main
    // thread) from waiting on a peer that does not read.
    const ssize_t written =
        ::send(fd_, json->constData(), static_cast<size_t>(json->size()), MSG_NOSIGNAL | MSG_DONTWAIT);
    const bool full = written < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
    if ((full || (written >= 0 && written < json->size()))) {
        if (auto owner = watcher_.lock()) {
            const int fd = fd_;
            fd_ = -1;
            owner->finishReply(fd, json->mid(written > 0 ? written : 0));
            return;
        }
    }
    closeDescriptor();
}

void BridgeConnection::peerClosed() {
    if (!claim()) {
        return;
    }
    closeDescriptor();
    postToMain([self = shared_from_this()] {
        if (self->onDisconnect_) {
            self->onDisconnect_();
        }
    });
}

} // namespace mirrowisp
