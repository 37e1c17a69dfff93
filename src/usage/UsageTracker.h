#pragma once

#include "base/AgentKind.h"
#include "base/Clock.h"
#include "base/SerialQueue.h"
#include "usage/ClaudeUsageProbe.h"
#include "usage/UsageMeter.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QObject>
#include <QTimer>
#include <functional>
#include <optional>

namespace mirrowisp {

class UserDefaults;

// How far the last Claude probe got.
enum class ClaudeUsageState { checking, live, cliNotFound, notSignedIn, unavailable };

namespace ClaudeUsageStates {
QString rawValue(ClaudeUsageState state); // "checking", "live", …
QString title(ClaudeUsageState state);    // the headline a window shows; empty for checking and live
QString detail(ClaudeUsageState state);   // the sentence under it; may be empty
} // namespace ClaudeUsageStates

// How the tracker finds and asks `claude`. Injected, so tests hand in stand-ins and the app the real
// probe. Both run on the tracker's background queue, never on the main thread.
struct ClaudeProbeRunner {
    std::function<std::optional<QString>()> findCLI;
    std::function<ClaudeUsageProbe::FetchResult(const QString& cli)> fetch;

    static ClaudeProbeRunner standard(); // ClaudeUsageProbe::findCLI and ClaudeUsageProbe::fetch
};

// The agents' usage limits and which of them the closed island shows. Lives on the main thread;
// blocking reads run on one private queue and their results come back through the main queue.
class UsageTracker : public QObject {
    Q_OBJECT

public:
    UsageTracker(UserDefaults& defaults, const Clock& clock,
                 ClaudeProbeRunner runner = ClaudeProbeRunner::standard(), QObject* parent = nullptr);
    ~UsageTracker() override;

    // Reads Codex now and every 60 s, probes Claude now and every 300 s, the others now and every 600 s.
    void start();

    ClaudeUsageState claudeState() const { return claudeState_; }
    QList<UsageMeter> claude() const { return claude_; }
    QList<UsageMeter> codex() const { return codex_; }
    std::optional<Timestamp> claudeUpdatedAt() const { return claudeUpdatedAt_; }
    std::optional<Timestamp> codexUpdatedAt() const { return codexUpdatedAt_; }
    QMap<AgentKind, QList<UsageMeter>> extra() const { return extra_; }
    std::optional<QString> claudeCLI() const { return claudeCLI_; }
    Timestamp lastClaudeProbe() const { return lastClaudeProbe_; }
    bool probing() const { return probing_; }
    // Reads queued or running whose results have not been applied yet.
    int pendingWork() const { return pendingWork_; }

    // Probes `claude` unless a probe runs or, without `force`, one started less than 60 s before `now`.
    void refreshClaude(bool force, Timestamp now);
    void refreshClaude(bool force) { refreshClaude(force, clock_.now()); }
    // Results are checked against the clock when they arrive, so only the time of applying counts.
    void refreshCodex();
    // One agent (amp or opencode), or both without a kind.
    void refreshOthers(std::optional<AgentKind> kind, Timestamp now);
    void refreshOthers(std::optional<AgentKind> kind = std::nullopt) { refreshOthers(kind, clock_.now()); }

    // The limits a Claude Code status line carries in rate_limits.limits.
    void ingestClaudeStatusLine(const QJsonObject& payload, Timestamp now);
    void ingestClaudeStatusLine(const QJsonObject& payload) { ingestClaudeStatusLine(payload, clock_.now()); }

    QList<UsageMeter> meters(AgentKind kind) const;
    // The user's choice when there is one, else the two agents with meters used most in seven days.
    // The agents the user chose for the island (`usageAgents`); empty lets the tracker choose.
    void setChosenAgents(QList<AgentKind> agents) { chosenAgents_ = std::move(agents); }
    QList<AgentKind> islandAgents(Timestamp now) const;
    QList<AgentKind> islandAgents() const { return islandAgents(clock_.now()); }

    // Everything the tracker holds, for `mirrowisp ctl usage`.
    QJsonObject toJson(Timestamp now) const;
    QJsonObject toJson() const { return toJson(clock_.now()); }

    static QList<UsageMeter> metersFromLimitRows(const QJsonArray& rows);
    // The meters whose window has not reset by `now`.
    static QList<UsageMeter> fresh(const QList<UsageMeter>& meters, Timestamp now);
    // The limits in the newest of the five latest Codex session logs under `codexDir`/sessions that has any.
    static QList<UsageMeter> readCodexLimits(const QString& codexDir);
    static QJsonObject meterJson(const UsageMeter& meter);
    // "Shows after you use " and the agent's name, for an agent without meters.
    static QString noDataText(AgentKind kind);

Q_SIGNALS:
    void claudeStateChanged();
    void claudeChanged();
    void codexChanged();
    void claudeUpdatedAtChanged();
    void codexUpdatedAtChanged();
    void extraChanged();
    void probingChanged();

private:
    void setClaudeState(ClaudeUsageState state);
    void setClaude(const QList<UsageMeter>& meters);
    void setCodex(const QList<UsageMeter>& meters);
    void setClaudeUpdatedAt(Timestamp at);
    void setCodexUpdatedAt(Timestamp at);
    void setExtra(AgentKind kind, const QList<UsageMeter>& meters);
    void setProbing(bool probing);
    // Drops the meters whose window reset, so a stale high value is never shown.
    void pruneStale(Timestamp now);
    void enqueue(std::function<std::function<void(UsageTracker&)>()> work);

    QList<AgentKind> chosenAgents_;
    UserDefaults& defaults_;
    const Clock& clock_;
    ClaudeProbeRunner runner_;

    ClaudeUsageState claudeState_ = ClaudeUsageState::checking;
    QList<UsageMeter> claude_;
    QList<UsageMeter> codex_;
    std::optional<Timestamp> claudeUpdatedAt_;
    std::optional<Timestamp> codexUpdatedAt_;
    QMap<AgentKind, QList<UsageMeter>> extra_;
    std::optional<QString> claudeCLI_;
    Timestamp lastClaudeProbe_ = -1e300; // the distant past
    bool probing_ = false;
    int pendingWork_ = 0;

    QTimer timer_;
    QTimer claudeTimer_;
    QTimer othersTimer_;
    // Last member: destroyed first, so queued reads finish before anything they were given goes.
    SerialQueue queue_{"mirrowisp.usage"};
};

} // namespace mirrowisp
