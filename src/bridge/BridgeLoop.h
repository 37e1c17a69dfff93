#pragma once

#include "bridge/BridgeConnection.h"

#include <QByteArray>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <unordered_map>

namespace mirrowisp {

// The bridge thread's event loop: epoll over the listening socket, a wake-up descriptor, and one
// peer watch per client that waits for an answer. Requests are read one at a time, blocking, with
// a receive timeout; nothing here touches the app's state.
class BridgeLoop final : public PeerWatchOwner, public std::enable_shared_from_this<BridgeLoop> {
public:
    using Deliver = std::function<void(std::shared_ptr<BridgeConnection>)>;

    BridgeLoop(int listenFD, Deliver deliver);
    ~BridgeLoop() override;
    BridgeLoop(const BridgeLoop&) = delete;
    BridgeLoop& operator=(const BridgeLoop&) = delete;

    bool isValid() const { return epollFD_ >= 0 && wakeFD_ >= 0; }
    void run();
    // Any thread: close the listening socket (the loop keeps watching waiting clients).
    void stopListening();
    // Any thread: end run().
    void requestExit();
    bool isListening() const { return listening_.load(); }

    void watch(int fd, const std::shared_ptr<BridgeConnection>& connection) override;
    void cancelAndClose(int fd) override;

    // Reads one request line from a blocking socket with a receive timeout; nothing when the line
    // never completes, is too long, or the peer fails or goes away first.
    static std::optional<QByteArray> readLine(int fd, QByteArray& chunk);

private:
    struct Watch {
        int fd;
        std::weak_ptr<BridgeConnection> connection;
    };
    void wake();
    void acceptClient();
    void readClient(int fd);
    void onPeerEvent(quint64 tag);
    void closeListener();

    int listenFD_;
    int epollFD_ = -1;
    int wakeFD_ = -1;
    Deliver deliver_;
    std::atomic<bool> stopListening_{false};
    std::atomic<bool> listening_{true};
    std::atomic<bool> exit_{false};
    QByteArray chunk_;

    // A watch is looked up, read and closed under this lock, so a descriptor is never closed
    // between the lookup and the read of the one-byte peer check (its number could be reused).
    std::mutex watchLock_;
    quint64 nextTag_ = 2;
    std::unordered_map<quint64, Watch> watched_;
    std::unordered_map<int, quint64> tagOfFD_;
};

} // namespace mirrowisp
