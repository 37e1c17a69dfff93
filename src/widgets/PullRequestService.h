#pragma once

#include "base/Clock.h"
#include "base/SerialQueue.h"
#include "widgets/PullRequest.h"

#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QStringList>
#include <QTimer>
#include <functional>
#include <memory>
#include <optional>

namespace mirrowisp {

// The user's open pull requests and those waiting for their review, through the GitHub CLI, which
// holds the sign-in. State lives on the main thread; `gh` runs on a queue of its own.
class PullRequestService : public QObject {
    Q_OBJECT

public:
    enum class State { loading, ready, ghMissing, signedOut, failed };

    struct Options {
        QString searchPath;    // PATH-style folders tried first
        QStringList fallbacks; // then these files
        double timeoutSeconds = 30;
        // The login shell's PATH, asked at each fetch, which replaces searchPath once it is known:
        // the shell is asked after the service starts.
        std::function<QString()> loginPath;
        // The login shell's PATH (else the app's), then the usual places on Linux.
        static Options standard(const QString& loginPath = {});
    };

    struct Reply {
        State state = State::failed;
        QList<PullRequest> mine;
        QList<PullRequest> reviewRequested;
    };

    static constexpr double refreshSeconds = 180;
    static constexpr double minimumGapSeconds = 60;

    PullRequestService(const Clock& clock, Options options, QObject* parent = nullptr);
    ~PullRequestService() override;

    void start();
    // Dropped while a fetch runs, and unless forced within a minute of the last.
    void refresh(bool force);

    State state() const { return state_; }
    const QList<PullRequest>& mine() const { return mine_; }
    const QList<PullRequest>& reviewRequested() const { return reviewRequested_; }
    bool fetching() const { return fetching_; }
    // The widget's words for the state; empty when the lists speak for themselves.
    QString stateText() const;
    static QString stateName(State state);
    // state, fetching, mine and reviewRequested, for `mirrowisp ctl prs`.
    QJsonObject toJson() const;

    // The GraphQL text handed to `gh api graphql -f`.
    static QString query();
    // What one run of `gh` gave: its exit status (nothing after a signal or a time-out) and output.
    static Reply interpret(std::optional<int> exitStatus, const QString& output);
    static std::optional<QString> findGH(const Options& options);

Q_SIGNALS:
    void changed();

private:
    void apply(Reply reply);

    const Clock& clock_;
    Options options_;
    State state_ = State::loading;
    QList<PullRequest> mine_;
    QList<PullRequest> reviewRequested_;
    bool fetching_ = false;
    std::optional<Timestamp> lastFetch_;
    QTimer timer_;
    // Last: it finishes its work before the rest goes.
    std::unique_ptr<SerialQueue> queue_;
};

} // namespace mirrowisp
