#include "bridge/BridgeConnection.h"

#include "base/MainQueue.h"

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
    if (auto json = BridgeProtocol::encodeResponse({request_.id, stdoutText})) {
        json->append('\n');
        // One write, no retry: replies are small against the socket buffer, and a dead peer is
        // simply gone (MSG_NOSIGNAL keeps SIGPIPE away).
        [[maybe_unused]] const ssize_t written =
            ::send(fd_, json->constData(), static_cast<size_t>(json->size()), MSG_NOSIGNAL);
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
