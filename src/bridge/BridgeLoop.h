#pragma once

#include "bridge/BridgeConnection.h"

#include <QByteArray>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <unordered_map>
#include <unordered_set>

namespace mirrowisp {

// The bridge thread's event loop: epoll over the listening socket, a wake-up descriptor, the clients
// whose request line is still arriving, the ones that wait for an answer and the ones still taking
// a long answer. Every socket is non-blocking and every client has its own deadlines, so no client
// holds up another; nothing here touches the app's state.
class BridgeLoop final : public PeerWatchOwner, public std::enable_shared_from_this<BridgeLoop> {
public:
    using Deliver = std::function<void(std::shared_ptr<BridgeConnection>)>;

    // `host` is stamped on every request read here (see BridgeRequest::host).
    BridgeLoop(int listenFD, Deliver deliver, BridgeTimeouts timeouts = {}, QString host = {});
    ~BridgeLoop() override;
    BridgeLoop(const BridgeLoop&) = delete;
    BridgeLoop& operator=(const BridgeLoop&) = delete;

    bool isValid() const { return epollFD_ >= 0 && wakeFD_ >= 0; }
    void run();
    // Any thread: close the listening socket (the loop keeps serving connected clients).
    void stopListening();
    // Any thread: end run().
    void requestExit();
    bool isListening() const { return listening_.load(); }

    void watch(int fd, const std::shared_ptr<BridgeConnection>& connection) override;
    void cancelAndClose(int fd) override;
    void finishReply(int fd, QByteArray rest) override;

private:
    using SteadyClock = std::chrono::steady_clock;

    // A client whose request line is still arriving (bridge thread only).
    struct Reader {
        int fd;
        QByteArray line;
        SteadyClock::time_point deadline; // moves on with every chunk, up to `lastChance`
        SteadyClock::time_point lastChance;
    };
    // A client that waits for its answer, or, with `rest`, one still taking it.
    struct Watch {
        int fd;
        std::weak_ptr<BridgeConnection> connection;
        QByteArray rest;
        qsizetype sent = 0;
        SteadyClock::time_point deadline{};
    };
    enum class ReadOutcome { pending, done, dropped };

    void wake();
    void acceptClients();
    void setAccepting(bool on);
    void readClient(quint64 tag);
    ReadOutcome readSome(Reader& reader);
    void dropReader(quint64 tag);
    void onPeerEvent(quint64 tag);
    bool writeRest(Watch& watch);
    void expireDeadlines();
    int millisecondsToNextDeadline();
    void closeListener();
    quint64 newTag();

    int listenFD_;
    int epollFD_ = -1;
    int wakeFD_ = -1;
    Deliver deliver_;
    BridgeTimeouts timeouts_;
    QString host_;
    std::atomic<bool> stopListening_{false};
    std::atomic<bool> listening_{true};
    std::atomic<bool> exit_{false};
    bool accepting_ = true;
    QByteArray chunk_;

    std::unordered_map<quint64, Reader> readers_;
    qsizetype readerBytes_ = 0;

    // A watch is looked up, read and closed under this lock, so a descriptor is never closed
    // between the lookup and the read of the one-byte peer check (its number could be reused).
    std::mutex watchLock_;
    quint64 nextTag_ = 2;
    std::unordered_map<quint64, Watch> watched_;
    std::unordered_map<int, quint64> tagOfFD_;
    std::unordered_set<quint64> writers_; // the watches with a reply still going out
};

} // namespace mirrowisp
