#include "widgets/PullRequestService.h"

#include "base/MainQueue.h"
#include "base/ProcessRunner.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QPointer>

namespace mirrowisp {

namespace {

QList<PullRequest> parsedNodes(const QJsonValue& nodes) {
    QList<PullRequest> out;
    for (const QJsonValue& node : nodes.toArray()) {
        if (auto pr = PullRequest::fromNode(node.toObject())) {
            out.append(*std::move(pr));
        }
    }
    return out;
}

bool isExecutable(const QString& path) {
    const QFileInfo info(path);
    return info.isFile() && info.isExecutable();
}

} // namespace

PullRequestService::Options PullRequestService::Options::standard(const QString& loginPath) {
    const QString home = QDir::homePath();
    Options options;
    options.searchPath = loginPath.isEmpty() ? qEnvironmentVariable("PATH") : loginPath;
    options.fallbacks = {QStringLiteral("/usr/bin/gh"), QStringLiteral("/usr/local/bin/gh"),
                         home + QStringLiteral("/.local/bin/gh"),
                         QStringLiteral("/home/linuxbrew/.linuxbrew/bin/gh"),
                         home + QStringLiteral("/.linuxbrew/bin/gh")};
    return options;
}

PullRequestService::PullRequestService(const Clock& clock, Options options, QObject* parent)
    : QObject(parent), clock_(clock), options_(std::move(options)),
      queue_(std::make_unique<SerialQueue>("mirrowisp.prs")) {
    connect(&timer_, &QTimer::timeout, this, [this] { refresh(false); });
}

PullRequestService::~PullRequestService() = default;

QString PullRequestService::query() {
    return QStringLiteral(
        "query=query {\n"
        "  viewer {\n"
        "    pullRequests(states: OPEN, first: 10, orderBy: {field: UPDATED_AT, direction: DESC}) {\n"
        "      nodes { ...pr }\n"
        "    }\n"
        "  }\n"
        "  search(query: \"is:open is:pr review-requested:@me archived:false\", type: ISSUE, first: 10) {\n"
        "    nodes { ... on PullRequest { ...pr } }\n"
        "  }\n"
        "}\n"
        "fragment pr on PullRequest {\n"
        "  number title url isDraft reviewDecision\n"
        "  repository { nameWithOwner }\n"
        "  commits(last: 1) { nodes { commit { statusCheckRollup { state } } } }\n"
        "}");
}

std::optional<QString> PullRequestService::findGH(const Options& options) {
    for (const QString& folder : options.searchPath.split(QLatin1Char(':'), Qt::SkipEmptyParts)) {
        const QString candidate = folder + QStringLiteral("/gh");
        if (QDir::isAbsolutePath(folder) && isExecutable(candidate)) {
            return candidate;
        }
    }
    for (const QString& candidate : options.fallbacks) {
        if (isExecutable(candidate)) {
            return candidate;
        }
    }
    return std::nullopt;
}

PullRequestService::Reply PullRequestService::interpret(std::optional<int> exitStatus,
                                                        const QString& output) {
    Reply reply;
    if (exitStatus != 0) {
        reply.state = exitStatus && output.toLower().contains(QLatin1String("auth login")) ? State::signedOut
                                                                                           : State::failed;
        return reply;
    }
    // Standard error shares the pipe: a warning may stand before or after the document.
    const qsizetype open = output.indexOf(QLatin1Char('{'));
    const qsizetype close = output.lastIndexOf(QLatin1Char('}'));
    if (open < 0 || close < open) {
        return reply;
    }
    QJsonParseError error{};
    const QJsonDocument document =
        QJsonDocument::fromJson(output.mid(open, close - open + 1).toUtf8(), &error);
    const QJsonObject data = document.object().value(QLatin1String("data")).toObject();
    const QJsonValue mine = data.value(QLatin1String("viewer"))
                                .toObject()
                                .value(QLatin1String("pullRequests"))
                                .toObject()
                                .value(QLatin1String("nodes"));
    const QJsonValue review = data.value(QLatin1String("search")).toObject().value(QLatin1String("nodes"));
    if (error.error != QJsonParseError::NoError || !mine.isArray() || !review.isArray()) {
        return reply;
    }
    reply.state = State::ready;
    reply.mine = parsedNodes(mine);
    reply.reviewRequested = parsedNodes(review);
    return reply;
}

void PullRequestService::start() {
    timer_.start(static_cast<int>(refreshSeconds * 1000));
    refresh(false);
}

void PullRequestService::refresh(bool force) {
    const Timestamp now = clock_.now();
    if (fetching_ || (!force && lastFetch_ && now - *lastFetch_ < minimumGapSeconds)) {
        return;
    }
    fetching_ = true;
    lastFetch_ = now;
    Q_EMIT changed();
    QPointer<PullRequestService> self(this);
    Options options = options_;
    if (const QString path = options.loginPath ? options.loginPath() : QString(); !path.isEmpty()) {
        options.searchPath = path;
    }
    queue_->async([self, options = std::move(options)] {
        Reply reply;
        if (const auto gh = findGH(options)) {
            // Through env: the runner hands children the app's environment, and gh must never prompt.
            const ProcessRunner::RunResult run =
                ProcessRunner::run(QStringLiteral("/usr/bin/env"),
                                   {QStringLiteral("GH_PROMPT_DISABLED=1"), *gh, QStringLiteral("api"),
                                    QStringLiteral("graphql"), QStringLiteral("-f"), query()},
                                   options.timeoutSeconds);
            reply = run.ok() ? interpret(run.exitStatus, run.output) : Reply{};
        } else {
            reply.state = State::ghMissing;
        }
        postToMain([self, reply = std::move(reply)]() mutable {
            if (self) {
                self->apply(std::move(reply));
            }
        });
    });
}

void PullRequestService::apply(Reply reply) {
    fetching_ = false;
    state_ = reply.state;
    if (reply.state == State::ready) {
        mine_ = std::move(reply.mine);
        reviewRequested_ = std::move(reply.reviewRequested);
    }
    Q_EMIT changed();
}

QString PullRequestService::stateText() const {
    switch (state_) {
    case State::ready:
        return mine_.isEmpty() && reviewRequested_.isEmpty() ? QStringLiteral("No open pull requests")
                                                             : QString();
    case State::failed:
        return QStringLiteral("Cannot load pull requests.");
    case State::signedOut:
        return QStringLiteral("Sign in to GitHub in Terminal:");
    case State::ghMissing:
        return QStringLiteral("Install the GitHub CLI to see your PRs:");
    case State::loading:
        break;
    }
    return {};
}

QString PullRequestService::stateName(State state) {
    switch (state) {
    case State::ready:
        return QStringLiteral("ready");
    case State::ghMissing:
        return QStringLiteral("ghMissing");
    case State::signedOut:
        return QStringLiteral("signedOut");
    case State::failed:
        return QStringLiteral("failed");
    case State::loading:
        break;
    }
    return QStringLiteral("loading");
}

QJsonObject PullRequestService::toJson() const {
    const auto array = [](const QList<PullRequest>& prs) {
        QJsonArray out;
        for (const PullRequest& pr : prs) {
            out.append(pr.toJson());
        }
        return out;
    };
    return {{QStringLiteral("state"), stateName(state_)},
            {QStringLiteral("fetching"), fetching_},
            {QStringLiteral("mine"), array(mine_)},
            {QStringLiteral("reviewRequested"), array(reviewRequested_)}};
}

} // namespace mirrowisp
