#include "app/ConnectionPass.h"

#include "base/MainQueue.h"
#include "base/SerialQueue.h"
#include "base/UserDefaults.h"
#include "integration/HookInstaller.h"

#include <QSet>
#include <mutex>
#include <utility>
#include <vector>

namespace mirrowisp {

struct ConnectionPass::State {
    State(UserDefaults& d, Presence p) : defaults(d), isInstalled(std::move(p)) {}

    UserDefaults& defaults;
    const Presence isInstalled;
    // Held for each file change, by the pass and by the user's connect and disconnect.
    std::mutex files;
    QSet<AgentKind> disconnected; // under `files`: the user's marks as the main thread last saw them
    // Main thread only. The owner outlives every result published: it joins the pass's thread first.
    ConnectionPass* owner = nullptr;
    bool running = false;
    std::vector<std::function<void()>> runningDone; // for the pass under way
    std::vector<std::function<void()>> waitingDone; // for the one asked for meanwhile
    bool again = false;
    std::optional<HookInstaller::CodexTrustReading> codex;
    bool readingCodex = false;
    bool readCodexAgain = false; // asked for while a reading ran, which may predate the change
    std::function<void()> codexChanged;
};

ConnectionPass::ConnectionPass(UserDefaults& defaults, Presence isInstalled)
    : state_(std::make_shared<State>(defaults, std::move(isInstalled))),
      queue_(std::make_unique<SerialQueue>("hook installer")) {
    state_->owner = this;
}

ConnectionPass::~ConnectionPass() {
    queue_.reset();
}

bool ConnectionPass::isRunning() const {
    return state_->running;
}

void ConnectionPass::run(std::function<void()> done) {
    State& state = *state_;
    if (state.running) {
        state.again = true;
        if (done) {
            state.waitingDone.push_back(std::move(done));
        }
        return;
    }
    state.running = true;
    if (done) {
        state.runningDone.push_back(std::move(done));
    }
    {
        const std::lock_guard lock(state.files);
        state.disconnected.clear();
        for (const AgentKind kind : AgentKinds::all) {
            if (HookInstaller::isDisconnectedByUser(kind, state.defaults)) {
                state.disconnected.insert(kind);
            }
        }
    }
    queue_->async([shared = state_] {
        std::vector<std::pair<AgentKind, HookInstaller::FileChange>> changes;
        for (const AgentKind kind : AgentKinds::all) {
            if (shared->isInstalled && !shared->isInstalled(kind)) {
                continue;
            }
            const std::lock_guard lock(shared->files);
            // Checked again here, under the lock: a disconnect since the pass began has the last word.
            if (shared->disconnected.contains(kind)) {
                continue;
            }
            // Errors are the setup page's business (an unreadable settings file, say); the pass goes on.
            changes.emplace_back(kind, HookInstaller::installFile(kind));
        }
        HookInstaller::CodexTrustReading codex = HookInstaller::readCodexTrust();
        postToMain(
            [weak = std::weak_ptr<State>(shared), changes = std::move(changes), codex = std::move(codex)] {
                const std::shared_ptr<State> alive = weak.lock();
                if (!alive) {
                    return;
                }
                alive->codex = codex;
                for (const auto& change : changes) {
                    HookInstaller::publish(change.second, alive->defaults);
                }
                alive->running = false;
                const auto finished = std::exchange(alive->runningDone, {});
                if (std::exchange(alive->again, false)) {
                    alive->runningDone = std::exchange(alive->waitingDone, {});
                    alive->owner->run();
                }
                for (const auto& callback : finished) {
                    callback();
                }
            });
    });
}

std::optional<QString> ConnectionPass::setConnected(const QString& agent, bool connect) {
    const auto kind = AgentKinds::fromRawValue(QStringView(agent));
    if (!kind) {
        return QStringLiteral("no agent called ") + agent;
    }
    State& state = *state_;
    const std::lock_guard lock(state.files);
    const HookResult result = connect ? HookInstaller::connect(*kind, state.defaults)
                                      : HookInstaller::disconnect(*kind, state.defaults);
    state.codex = HookInstaller::readCodexTrust(); // read here anyway: the user is waiting on files
    if (HookInstaller::isDisconnectedByUser(*kind, state.defaults)) {
        state.disconnected.insert(*kind);
    } else {
        state.disconnected.remove(*kind);
    }
    if (result) {
        return result->message();
    }
    return std::nullopt;
}

void ConnectionPass::setConnectedInBackground(const QString& agent, bool connect,
                                              std::function<void(std::optional<QString>)> done) {
    const auto kind = AgentKinds::fromRawValue(QStringView(agent));
    if (!kind) {
        done(QStringLiteral("no agent called ") + agent);
        return;
    }
    if (connect) {
        // The user's mark goes first, as in setConnected: a pass starting meanwhile installs too.
        state_->defaults.remove(HookInstaller::disconnectedKey(*kind));
        const std::lock_guard lock(state_->files);
        state_->disconnected.remove(*kind);
    }
    queue_->async([weak = std::weak_ptr<State>(state_), kind = *kind, connect, done = std::move(done)] {
        const std::shared_ptr<State> shared = weak.lock();
        if (!shared) {
            return;
        }
        HookInstaller::FileChange change;
        {
            const std::lock_guard lock(shared->files);
            if (connect) {
                change = HookInstaller::installFile(kind);
            } else {
                change.result = HookInstaller::uninstall(kind);
                if (!change.result) {
                    // No pass may put the hooks back between this removal and the mark on the main thread.
                    shared->disconnected.insert(kind);
                }
            }
        }
        HookInstaller::CodexTrustReading codex = HookInstaller::readCodexTrust();
        postToMain([weak, kind, connect, done, change = std::move(change), codex = std::move(codex)] {
            const std::shared_ptr<State> alive = weak.lock();
            if (!alive) {
                return;
            }
            alive->codex = codex;
            HookInstaller::publish(change, alive->defaults);
            if (!connect && !change.result) {
                alive->defaults.set(HookInstaller::disconnectedKey(kind), true);
            }
            done(change.result ? std::optional<QString>(change.result->message()) : std::nullopt);
        });
    });
}

CodexHookStatus ConnectionPass::codexHookStatus() {
    State& state = *state_;
    if (state.readingCodex) {
        state.readCodexAgain = true;
    } else {
        state.readingCodex = true;
        queue_->async([weak = std::weak_ptr<State>(state_)] {
            HookInstaller::CodexTrustReading reading = HookInstaller::readCodexTrust();
            postToMain([weak, reading = std::move(reading)] {
                const std::shared_ptr<State> alive = weak.lock();
                if (!alive) {
                    return;
                }
                alive->readingCodex = false;
                if (alive->codex != reading) {
                    alive->codex = reading;
                    if (alive->codexChanged) {
                        alive->codexChanged();
                    }
                }
                if (alive->readCodexAgain && alive->owner != nullptr) {
                    alive->readCodexAgain = false;
                    alive->owner->codexHookStatus();
                }
            });
        });
    }
    return state.codex ? HookInstaller::codexHookStatus(*state.codex, state.defaults)
                       : CodexHookStatus::ready;
}

void ConnectionPass::setCodexReadingChanged(std::function<void()> changed) {
    state_->codexChanged = std::move(changed);
}

} // namespace mirrowisp
