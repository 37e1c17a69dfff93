#pragma once

#include "bridge/BridgeConnection.h"

#include <QString>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

namespace mirrowisp {

class BridgeLoop;

// Why the socket could not be opened: the POSIX error code and a sentence for the settings window.
struct BridgeError {
    int code = 0;
    QString description;
};

// Where a server listens. Without a path it is the app's own "bridge.sock"; a remote host's server
// listens on a socket of its own, and every request accepted there carries the host.
struct BridgeEndpoint {
    QString socketPath;
    QString host;
};

// Owns the listening socket "bridge.sock" in the support directory. One dedicated thread
// ("mirrowisp.bridge") accepts clients, reads their request lines side by side, watches the clients
// that wait for an answer and writes out answers too long for one write; decoded requests are
// handed to `onRequest` on the main thread, which never waits on a client.
class BridgeServer {
public:
    using RequestHandler = std::function<void(const std::shared_ptr<BridgeConnection>&)>;

    explicit BridgeServer(RequestHandler onRequest, BridgeTimeouts timeouts = {},
                          BridgeEndpoint endpoint = {});
    ~BridgeServer();
    BridgeServer(const BridgeServer&) = delete;
    BridgeServer& operator=(const BridgeServer&) = delete;

    // Creates the support directory, replaces any socket file left at the path, binds, listens.
    // Main thread. Returns the error when the socket cannot be opened.
    std::optional<BridgeError> start();
    // Stops accepting and removes the socket file, unless another copy of the app has taken the
    // path over since. Waiting clients stay watched until their answer or the server's end.
    void stop();

    bool isListening() const;
    // True when a socket other than ours now sits at the path: another copy took it over.
    bool socketTakenOver() const;
    QString socketPath() const { return socketPath_; }

private:
    struct Inbox;

    std::shared_ptr<RequestHandler> onRequest_;
    BridgeTimeouts timeouts_;
    BridgeEndpoint endpoint_;
    std::shared_ptr<Inbox> inbox_;
    std::shared_ptr<BridgeLoop> loop_;
    std::thread thread_;
    QString socketPath_;
    std::optional<std::pair<quint64, quint64>> socketIdentity_; // device and inode of our socket file
};

} // namespace mirrowisp
