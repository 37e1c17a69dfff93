#include "agents/AgentStore.h"
#include "agents/TranscriptReader.h"
#include "base/MainQueue.h"

#include <QPointer>
#include <QTimer>
#include <algorithm>
#include <cerrno>
#include <csignal>

namespace mirrowisp {

namespace {
constexpr double cleanupInterval = 30.0;
constexpr double reconcileInterval = 10.0;
constexpr double quietThreshold = 15.0;
constexpr double endedRemoval = 30.0;
} // namespace

void AgentStore::start() {
    // Timers are thin wiring: the steps themselves take the time and are tested directly.
    cleanupTimer_ = std::make_unique<QTimer>();
    cleanupTimer_->setInterval(static_cast<int>(cleanupInterval * 1000));
    connect(cleanupTimer_.get(), &QTimer::timeout, this, [this] { cleanup(clock_.now()); });
    cleanupTimer_->start();
    reconcileTimer_ = std::make_unique<QTimer>();
    reconcileTimer_->setInterval(static_cast<int>(reconcileInterval * 1000));
    connect(reconcileTimer_.get(), &QTimer::timeout, this, [this] {
        reconcileQuietSessions(clock_.now());
        expireStuckDecisions(clock_.now());
    });
    reconcileTimer_->start();
}

std::vector<AgentSession*> AgentStore::orderedSessions() const {
    std::vector<AgentSession*> ordered;
    ordered.reserve(sessions_.size());
    for (const auto& session : sessions_) {
        ordered.push_back(session.get());
    }
    std::stable_sort(ordered.begin(), ordered.end(), [](const AgentSession* a, const AgentSession* b) {
        if (a->needsUser() != b->needsUser()) {
            return a->needsUser();
        }
        if (a->status().isWorking() != b->status().isWorking()) {
            return a->status().isWorking();
        }
        return a->updatedAt() > b->updatedAt();
    });
    return ordered;
}

std::vector<AgentSession*> AgentStore::visibleSessions() const {
    std::vector<AgentSession*> visible = orderedSessions();
    std::erase_if(visible,
                  [](const AgentSession* s) { return s->status().kind == AgentStatus::Case::ended; });
    return visible;
}

AgentSession* AgentStore::attentionSession() const {
    for (AgentSession* session : orderedSessions()) {
        if (session->needsUser()) {
            return session;
        }
    }
    return nullptr;
}

bool AgentStore::processIsGone(qint32 pid) {
    if (pid <= 0) {
        return false; // 0 and negative values would signal process groups, never a single agent
    }
    return ::kill(pid, 0) != 0 && errno == ESRCH;
}

void AgentStore::cleanup(Timestamp now) {
    const double hideAfter = settings_.hideFinishedAfter;
    auto isOver = [&](const AgentSession& session) {
        if (!session.pending().empty()) {
            return false; // an open decision keeps its session
        }
        bool gone = false;
        if (session.isRemote()) {
            // Its process ids name processes on that host: never look them up, nor signal them here.
            const auto away = hostsAway_.constFind(session.host());
            gone = away != hostsAway_.constEnd() && now - *away > cleanupInterval;
        } else if (const auto pid = session.context().agentPID) {
            gone = processIsGone(*pid);
        }
        switch (session.status().kind) {
        case AgentStatus::Case::ended:
            return now - session.updatedAt() > endedRemoval;
        case AgentStatus::Case::done:
        case AgentStatus::Case::idle:
            if (gone) {
                return true;
            }
            return hideAfter > 0 && now - session.updatedAt() > hideAfter;
        default:
            return gone;
        }
    };
    const auto before = sessions_.size();
    std::erase_if(sessions_, [&](const auto& session) { return isOver(*session); });
    if (sessions_.size() != before) {
        Q_EMIT sessionsChanged();
    }
    refreshCodexApproval();
}

void AgentStore::setHostAway(const QString& host, std::optional<Timestamp> since) {
    if (!since) {
        hostsAway_.remove(host);
    } else if (!hostsAway_.contains(host)) {
        hostsAway_.insert(host, *since); // the first moment counts, not the latest failed retry
    }
}

void AgentStore::reconcileQuietSessions(Timestamp now) {
    for (const auto& owned : sessions_) {
        AgentSession& session = *owned;
        // A remote transcript lies on its host; a local file of that name is not it.
        if (session.isRemote() || !session.status().isWorking() || !session.pending().empty() ||
            now - session.updatedAt() <= quietThreshold || !session.transcriptPath()) {
            continue;
        }
        // A turn that ended without its Stop: the transcript tells, read off the main thread.
        QPointer<AgentStore> store(this);
        QPointer<AgentSession> weakSession(&session);
        const QString path = *session.transcriptPath();
        const AgentKind agent = session.agent();
        transcripts_->async([store, weakSession, path, agent] {
            if (!TranscriptReader::turnIsOver(path, agent)) {
                return;
            }
            const std::optional<QString> message = TranscriptReader::lastAssistantMessage(path, agent);
            postToMain([store, weakSession, message] {
                if (!store || !weakSession || !store->contains(weakSession.data())) {
                    return;
                }
                AgentSession& s = *weakSession;
                // An event may have come meanwhile: test again with a fresh time.
                if (!s.status().isWorking() || !s.pending().empty() ||
                    store->clock_.now() - s.updatedAt() <= quietThreshold) {
                    return;
                }
                s.setStatus(AgentStatus::done());
                s.setToolDetail(std::nullopt);
                if (message) {
                    s.setLastMessage(message);
                }
                store->raise(AgentSignal::finished, s);
            });
        });
    }
}

void AgentStore::refreshCodexApproval() {
    CodexHookStatus status = CodexHookStatus::ready;
    if (settings_.isAgentEnabled(AgentKind::codex) && codexStatusSource_) {
        status = codexStatusSource_();
    }
    setCodexHookStatus(status);
}

} // namespace mirrowisp
