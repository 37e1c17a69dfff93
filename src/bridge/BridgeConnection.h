#pragma once

#include "bridge/BridgeProtocol.h"

#include <functional>
#include <memory>
#include <mutex>
#include <optional>

namespace mirrowisp {

// The owner of the peer watches: whoever finishes a connection asks it to stop watching the
// descriptor and close it, under the same lock that guards the watch's one-byte read, so a
// descriptor number is never reused while a watch on it could still read.
class PeerWatchOwner {
public:
    virtual ~PeerWatchOwner() = default;
    virtual void watch(int fd, const std::shared_ptr<class BridgeConnection>& connection) = 0;
    virtual void cancelAndClose(int fd) = 0;
    // Takes `fd` over with the part of a reply the socket did not take at once: writes it as the
    // peer reads, then closes; a peer that has not taken it all by the reply deadline is dropped.
    virtual void finishReply(int fd, QByteArray rest) = 0;
};

// One accepted client whose request has been read. For a request that expects a reply the socket
// stays open until `reply` or until the tool goes away, whichever comes first; exactly one of the two
// closes it. A request that expects no reply is born finished: its socket is already closed.
class BridgeConnection : public std::enable_shared_from_this<BridgeConnection> {
public:
    // Takes ownership of `fd`. `watcher` watches for the peer's going away; without one nobody
    // does, and the connection closes its descriptor itself when it finishes.
    static std::shared_ptr<BridgeConnection> make(BridgeRequest request, int fd,
                                                  std::weak_ptr<PeerWatchOwner> watcher = {});
    ~BridgeConnection();
    BridgeConnection(const BridgeConnection&) = delete;
    BridgeConnection& operator=(const BridgeConnection&) = delete;

    const BridgeRequest& request() const { return request_; }

    // Sends the answer and closes. Without text this is the empty reply. Safe from any thread and
    // any number of times: only the first call (or the peer's going away) counts. Never blocks:
    // what the socket does not take at once is written by the watch owner's thread.
    void reply(const std::optional<QString>& stdoutText = std::nullopt);

    // Called on the main thread when the tool goes away before it got its answer. Set it on the main
    // thread, after the connection reached the request handler.
    void setOnDisconnect(std::function<void()> handler) { onDisconnect_ = std::move(handler); }

    bool isFinished() const;

    // The watch saw end of file or an error before the reply (bridge thread).
    void peerClosed();

private:
    BridgeConnection(BridgeRequest request, int fd, std::weak_ptr<PeerWatchOwner> watcher);
    // Whoever flips `finished_` first owns closing; returns whether the caller won.
    bool claim();
    void closeDescriptor();

    BridgeRequest request_;
    int fd_;
    std::weak_ptr<PeerWatchOwner> watcher_;
    bool watched_ = false;
    mutable std::mutex lock_; // guards only the test and set of finished_
    bool finished_ = false;
    std::function<void()> onDisconnect_;
};

} // namespace mirrowisp
