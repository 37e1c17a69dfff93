#pragma once

#include "agents/CodexHookStatus.h"
#include "base/AgentKind.h"

#include <QString>
#include <functional>
#include <memory>
#include <optional>

namespace mirrowisp {

class SerialQueue;
class UserDefaults;

// The hook connection pass, run once a minute: it reads, plans and writes the agents' files on a
// thread of its own, so that a large or slow settings file never stalls hooks, and publishes what
// it did on the main thread. The user's connect and disconnect take turns with it per file, and an
// agent the user disconnects while a pass is under way is left alone by that pass.
class ConnectionPass {
public:
    using Presence = std::function<bool(AgentKind)>; // called on the pass's thread

    ConnectionPass(UserDefaults& defaults, Presence isInstalled);
    // Waits for a pass under way; its results are then dropped.
    ~ConnectionPass();
    ConnectionPass(const ConnectionPass&) = delete;
    ConnectionPass& operator=(const ConnectionPass&) = delete;

    // Installs the hooks of every agent on this machine that the user has not disconnected. `done`
    // runs on the main thread once the results are published. A pass asked for while one runs runs
    // once after it.
    void run(std::function<void()> done = {});
    bool isRunning() const;

    // Connects or disconnects one agent by its raw name, here and now; answers the error text.
    std::optional<QString> setConnected(const QString& agent, bool connect);
    // The same with the files read and written on the pass's thread, for windows that must not
    // stall; `done` gets the error text (or nothing) on the main thread.
    void setConnectedInBackground(const QString& agent, bool connect,
                                  std::function<void(std::optional<QString>)> done);

    // Codex's hook status from its files as last read on the pass's thread (ready before the first
    // reading). Asking starts a new reading; `changed` runs on the main thread when one differs.
    CodexHookStatus codexHookStatus();
    void setCodexReadingChanged(std::function<void()> changed);

private:
    struct State;
    std::shared_ptr<State> state_;
    std::unique_ptr<SerialQueue> queue_;
};

} // namespace mirrowisp
