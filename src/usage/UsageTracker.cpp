#include "usage/UsageTracker.h"

#include "agents/AgentActivity.h"
#include "base/MainQueue.h"
#include "base/ProcessRunner.h"
#include "integration/Locations.h"
#include "usage/OtherUsage.h"

#include <QDateTime>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QPointer>
#include <algorithm>
#include <cmath>
#include <utility>

namespace mirrowisp {

namespace {

constexpr qint64 codexTailBytes = 524288;
constexpr int codexFiles = 5;
constexpr double claudeGateSeconds = 60;

std::optional<Timestamp> isoDate(const QString& text) {
    QDateTime date = QDateTime::fromString(text, Qt::ISODateWithMs);
    if (!date.isValid()) {
        date = QDateTime::fromString(text, Qt::ISODate);
    }
    if (!date.isValid()) {
        return std::nullopt;
    }
    return static_cast<Timestamp>(date.toMSecsSinceEpoch()) / 1000.0;
}

// A reset given as seconds since 1970, or as an ISO 8601 text.
std::optional<Timestamp> resetValue(const QJsonValue& value) {
    if (value.isDouble()) {
        return value.toDouble();
    }
    if (value.isString()) {
        return isoDate(value.toString());
    }
    return std::nullopt;
}

QString windowLabel(qint64 minutes) {
    if (minutes > 1439) {
        return QStringLiteral("Weekly");
    }
    if (minutes >= 60) {
        return QString::number(minutes / 60) + QStringLiteral("-hour");
    }
    return QString::number(minutes) + QStringLiteral("-minute");
}

// The meters of one Codex token_count event's rate_limits.
QList<UsageMeter> codexMeters(const QJsonObject& limits, const QJsonValue& timestamp) {
    QList<UsageMeter> meters;
    for (auto it = limits.constBegin(); it != limits.constEnd(); ++it) {
        const QJsonObject window = it.value().toObject();
        const QJsonValue used = window.value(QStringLiteral("used_percent"));
        const QJsonValue minutes = window.value(QStringLiteral("window_minutes"));
        if (!used.isDouble() || !minutes.isDouble()) {
            continue;
        }
        UsageMeter meter;
        meter.agent = AgentKind::codex;
        meter.label = windowLabel(static_cast<qint64>(minutes.toDouble()));
        meter.percent = used.toDouble();
        const QJsonValue resetsAt = window.value(QStringLiteral("resets_at"));
        const QJsonValue resetsIn = window.value(QStringLiteral("resets_in_seconds"));
        if (resetsAt.isDouble()) {
            meter.resetsAt = resetsAt.toDouble();
        } else if (resetsIn.isDouble()) {
            if (const auto base = isoDate(timestamp.toString())) {
                meter.resetsAt = *base + resetsIn.toDouble();
            }
        }
        meter.severity = severityFor(meter.percent);
        meters.append(meter);
    }
    return meters;
}

// The limits of the last token_count event in the file's last 512 KiB. Only lines that mention
// token_count are parsed: a session log is mostly answers, and parsing them all costs most of a read.
QList<UsageMeter> codexLimitsIn(const QString& path) {
    if (!QFileInfo(path).isFile()) {
        return {};
    }
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    const qint64 size = file.size();
    const bool startsInside = size > codexTailBytes;
    if (startsInside && !file.seek(size - codexTailBytes)) {
        return {};
    }
    const QByteArray data = file.read(std::min(size, codexTailBytes));
    // Reading that began inside the file began inside a line, whose rest is no object.
    const qsizetype floor = startsInside ? data.indexOf('\n') + 1 : 0;
    if (startsInside && floor == 0) {
        return {};
    }
    qsizetype end = data.size();
    while (end > floor) {
        const qsizetype newline = data.lastIndexOf('\n', end - 1);
        const qsizetype start = std::max(floor, newline + 1);
        const QByteArrayView line = QByteArrayView(data).sliced(start, end - start);
        end = start > floor ? start - 1 : floor;
        if (!line.contains(QByteArrayView("token_count"))) {
            continue;
        }
        const QJsonObject object = QJsonDocument::fromJson(line.toByteArray()).object();
        const QJsonObject payload = object.value(QStringLiteral("payload")).toObject();
        const QJsonValue limits = payload.value(QStringLiteral("rate_limits"));
        if (payload.value(QStringLiteral("type")).toString() == QStringLiteral("token_count") &&
            limits.isObject()) {
            return codexMeters(limits.toObject(), object.value(QStringLiteral("timestamp")));
        }
    }
    return {};
}

std::optional<ClaudeUsageState> stateFor(ClaudeUsageProbe::Failure failure) {
    switch (failure) {
    case ClaudeUsageProbe::Failure::cliNotFound:
        return ClaudeUsageState::cliNotFound;
    case ClaudeUsageProbe::Failure::notSignedIn:
        return ClaudeUsageState::notSignedIn;
    default:
        return ClaudeUsageState::unavailable;
    }
}

} // namespace

namespace ClaudeUsageStates {

QString rawValue(ClaudeUsageState state) {
    switch (state) {
    case ClaudeUsageState::checking:
        return QStringLiteral("checking");
    case ClaudeUsageState::live:
        return QStringLiteral("live");
    case ClaudeUsageState::cliNotFound:
        return QStringLiteral("cliNotFound");
    case ClaudeUsageState::notSignedIn:
        return QStringLiteral("notSignedIn");
    case ClaudeUsageState::unavailable:
        return QStringLiteral("unavailable");
    }
    return {};
}

QString title(ClaudeUsageState state) {
    switch (state) {
    case ClaudeUsageState::cliNotFound:
        return QStringLiteral("Claude Code is not installed");
    case ClaudeUsageState::notSignedIn:
        return QStringLiteral("Claude Code is not signed in");
    case ClaudeUsageState::unavailable:
        return QStringLiteral("Cannot read limits now");
    default:
        return {};
    }
}

QString detail(ClaudeUsageState state) {
    switch (state) {
    case ClaudeUsageState::cliNotFound:
        return QStringLiteral(
            "Mirrowisp gets your limits from Claude Code. Install Claude Code to see them. The "
            "desktop app cannot share them.");
    case ClaudeUsageState::unavailable:
        return QStringLiteral(
            "Claude Code did not send limits. API key accounts have no plan limits. Try again later.");
    default:
        return {};
    }
}

} // namespace ClaudeUsageStates

ClaudeProbeRunner ClaudeProbeRunner::standard() {
    return {[] { return ClaudeUsageProbe::findCLI(); },
            [](const QString& cli) { return ClaudeUsageProbe::fetch(cli); }};
}

UsageTracker::UsageTracker(UserDefaults& defaults, const Clock& clock, ClaudeProbeRunner runner,
                           QObject* parent)
    : QObject(parent), defaults_(defaults), clock_(clock), runner_(std::move(runner)) {
    timer_.setInterval(60'000);
    claudeTimer_.setInterval(300'000);
    othersTimer_.setInterval(600'000);
    // A loose timer: the others' numbers move slowly, and the system may batch the wake-up.
    othersTimer_.setTimerType(Qt::VeryCoarseTimer);
    connect(&timer_, &QTimer::timeout, this, [this] { refreshCodex(); });
    connect(&claudeTimer_, &QTimer::timeout, this, [this] { refreshClaude(false); });
    connect(&othersTimer_, &QTimer::timeout, this, [this] { refreshOthers(std::nullopt); });
}

UsageTracker::~UsageTracker() {
    timer_.stop();
    claudeTimer_.stop();
    othersTimer_.stop();
}

void UsageTracker::start() {
    refreshCodex();
    timer_.start();
    claudeTimer_.start();
    refreshClaude(false);
    othersTimer_.start();
    refreshOthers(std::nullopt);
}

void UsageTracker::enqueue(std::function<std::function<void(UsageTracker&)>()> work) {
    ++pendingWork_;
    QPointer<UsageTracker> self(this);
    queue_.async([self, work = std::move(work)] {
        auto apply = work();
        postToMain([self, apply = std::move(apply)] {
            // The tracker may be gone by the time the result arrives; then it is dropped.
            if (self) {
                --self->pendingWork_;
                apply(*self);
            }
        });
    });
}

void UsageTracker::refreshClaude(bool force, Timestamp now) {
    if (probing_) {
        return;
    }
    if (!force && now - lastClaudeProbe_ < claudeGateSeconds) {
        return;
    }
    setProbing(true);
    lastClaudeProbe_ = now;
    const std::optional<QString> known = claudeCLI_;
    const ClaudeProbeRunner runner = runner_;
    enqueue([known, runner] {
        const std::optional<QString> cli = known ? known : runner.findCLI();
        ClaudeUsageProbe::FetchResult result;
        if (!cli) {
            result.failure = ClaudeUsageProbe::Failure::cliNotFound;
        } else {
            result = runner.fetch(*cli);
        }
        return std::function<void(UsageTracker&)>([cli, result](UsageTracker& tracker) {
            tracker.setProbing(false);
            if (cli) {
                tracker.claudeCLI_ = cli;
            }
            const Timestamp applied = tracker.clock_.now();
            tracker.pruneStale(applied);
            if (!result.failure) {
                tracker.setClaude(fresh(result.meters, applied));
                tracker.setClaudeUpdatedAt(applied);
                tracker.setClaudeState(ClaudeUsageState::live);
            } else if (const auto state = stateFor(*result.failure)) {
                tracker.setClaudeState(*state);
            }
        });
    });
}

void UsageTracker::refreshCodex() {
    const QString dir = AgentEnvironment::current().dir(AgentKind::codex);
    enqueue([dir] {
        const QList<UsageMeter> found = readCodexLimits(dir);
        return std::function<void(UsageTracker&)>([found](UsageTracker& tracker) {
            const Timestamp applied = tracker.clock_.now();
            tracker.pruneStale(applied);
            if (!found.isEmpty()) {
                tracker.setCodex(fresh(found, applied));
                tracker.setCodexUpdatedAt(applied);
            }
        });
    });
}

void UsageTracker::refreshOthers(std::optional<AgentKind> kind, Timestamp now) {
    const Locations locations = AgentEnvironment::current();
    const bool amp = !kind || *kind == AgentKind::amp;
    const bool openCode = !kind || *kind == AgentKind::opencode;
    enqueue([locations, amp, openCode, now] {
        QMap<AgentKind, QList<UsageMeter>> found;
        const QString ampCLI = locations.clis.value(AgentKind::amp);
        if (amp && !ampCLI.isEmpty()) {
            const ProcessRunner::RunResult result =
                ProcessRunner::run(ampCLI, {QStringLiteral("usage")}, 20.0);
            if (result.ok()) {
                found.insert(AgentKind::amp, OtherUsage::parseAmp(result.output, now));
            }
        }
        if (openCode) {
            found.insert(AgentKind::opencode,
                         OtherUsage::openCode(
                             locations.home + QStringLiteral("/.local/share/opencode/opencode.db"), now));
        }
        return std::function<void(UsageTracker&)>([found](UsageTracker& tracker) {
            tracker.pruneStale(tracker.clock_.now());
            for (auto it = found.constBegin(); it != found.constEnd(); ++it) {
                if (!it.value().isEmpty()) {
                    tracker.setExtra(it.key(), it.value());
                }
            }
        });
    });
}

void UsageTracker::ingestClaudeStatusLine(const QJsonObject& payload, Timestamp now) {
    const QJsonArray rows =
        payload.value(QStringLiteral("rate_limits")).toObject().value(QStringLiteral("limits")).toArray();
    const QList<UsageMeter> meters = fresh(metersFromLimitRows(rows), now);
    if (meters.isEmpty()) {
        return;
    }
    setClaude(meters);
    setClaudeUpdatedAt(now);
}

QList<UsageMeter> UsageTracker::meters(AgentKind kind) const {
    switch (kind) {
    case AgentKind::claude:
        return claude_;
    case AgentKind::codex:
        return codex_;
    default:
        return extra_.value(kind);
    }
}

QList<AgentKind> UsageTracker::islandAgents(Timestamp now) const {
    const QList<AgentKind>& chosen = chosenAgents_;
    if (!chosen.isEmpty()) {
        return chosen;
    }
    QList<AgentKind> candidates;
    for (AgentKind kind : AgentKinds::all) {
        if (!meters(kind).isEmpty()) {
            candidates.append(kind);
        }
    }
    QMap<AgentKind, qint64> prompts;
    for (AgentKind kind : candidates) {
        prompts.insert(kind, AgentActivity::prompts(defaults_, kind, 7, now));
    }
    std::stable_sort(candidates.begin(), candidates.end(),
                     [&prompts](AgentKind a, AgentKind b) { return prompts.value(a) > prompts.value(b); });
    return candidates.mid(0, 2);
}

QJsonObject UsageTracker::meterJson(const UsageMeter& meter) {
    QJsonObject object{{QStringLiteral("id"), meter.id()},
                       {QStringLiteral("agent"), AgentKinds::rawValue(meter.agent)},
                       {QStringLiteral("label"), meter.label},
                       {QStringLiteral("percent"), meter.percent},
                       {QStringLiteral("severity"), meter.severity}};
    object.insert(QStringLiteral("resetsAt"), meter.resetsAt ? QJsonValue(*meter.resetsAt) : QJsonValue());
    object.insert(QStringLiteral("text"), meter.text ? QJsonValue(*meter.text) : QJsonValue());
    return object;
}

QJsonObject UsageTracker::toJson(Timestamp now) const {
    auto list = [](const QList<UsageMeter>& meters) {
        QJsonArray array;
        for (const UsageMeter& meter : meters) {
            array.append(meterJson(meter));
        }
        return array;
    };
    QJsonObject state{{QStringLiteral("state"), ClaudeUsageStates::rawValue(claudeState_)}};
    if (const QString title = ClaudeUsageStates::title(claudeState_); !title.isEmpty()) {
        state.insert(QStringLiteral("title"), title);
    }
    if (const QString detail = ClaudeUsageStates::detail(claudeState_); !detail.isEmpty()) {
        state.insert(QStringLiteral("detail"), detail);
    }
    QJsonObject agents;
    for (AgentKind kind : AgentKinds::all) {
        const QList<UsageMeter> held = meters(kind);
        if (!held.isEmpty()) {
            agents.insert(AgentKinds::rawValue(kind), list(held));
        }
    }
    QJsonArray island;
    for (AgentKind kind : islandAgents(now)) {
        island.append(AgentKinds::rawValue(kind));
    }
    auto date = [](const std::optional<Timestamp>& at) { return at ? QJsonValue(*at) : QJsonValue(); };
    return {{QStringLiteral("claude"), state},
            {QStringLiteral("meters"), agents},
            {QStringLiteral("claudeUpdatedAt"), date(claudeUpdatedAt_)},
            {QStringLiteral("codexUpdatedAt"), date(codexUpdatedAt_)},
            {QStringLiteral("islandAgents"), island}};
}

QList<UsageMeter> UsageTracker::metersFromLimitRows(const QJsonArray& rows) {
    QList<UsageMeter> meters;
    for (const QJsonValue& value : rows) {
        const QJsonObject row = value.toObject();
        const QJsonValue percent = row.value(QStringLiteral("percent"));
        if (!percent.isDouble()) {
            continue;
        }
        const QString kind = row.value(QStringLiteral("kind")).toString();
        UsageMeter meter;
        meter.agent = AgentKind::claude;
        // "usage" rows carry the rolling session limit under another name.
        if (kind == QStringLiteral("session") || kind == QStringLiteral("usage")) {
            meter.label = QStringLiteral("5-hour");
        } else if (kind == QStringLiteral("weekly_all")) {
            meter.label = QStringLiteral("Weekly");
        } else {
            QString name;
            for (const char* key : {"scope", "model", "surface"}) {
                name =
                    row.value(QLatin1String(key)).toObject().value(QStringLiteral("display_name")).toString();
                if (!name.isEmpty()) {
                    break;
                }
            }
            // Without a name the row would take the id of the weekly limit.
            if (name.isEmpty()) {
                continue;
            }
            meter.label = QStringLiteral("Weekly · ") + name;
        }
        meter.percent = percent.toDouble();
        meter.resetsAt = resetValue(row.value(QStringLiteral("resets_at")));
        const QString severity = row.value(QStringLiteral("severity")).toString();
        meter.severity = severity.isEmpty() ? severityFor(meter.percent) : severity;
        meters.append(meter);
    }
    return meters;
}

QList<UsageMeter> UsageTracker::fresh(const QList<UsageMeter>& meters, Timestamp now) {
    QList<UsageMeter> kept;
    for (const UsageMeter& meter : meters) {
        if (!meter.resetsAt || *meter.resetsAt > now) {
            kept.append(meter);
        }
    }
    return kept;
}

QList<UsageMeter> UsageTracker::readCodexLimits(const QString& codexDir) {
    struct Log {
        QString path;
        qint64 modified;
    };
    QList<Log> logs;
    QDirIterator it(codexDir + QStringLiteral("/sessions"), {QStringLiteral("*.jsonl")}, QDir::Files,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        it.next();
        const QFileInfo info = it.fileInfo();
        logs.append({info.filePath(), info.lastModified().toMSecsSinceEpoch()});
    }
    std::stable_sort(logs.begin(), logs.end(),
                     [](const Log& a, const Log& b) { return a.modified > b.modified; });
    for (qsizetype i = 0; i < std::min<qsizetype>(logs.size(), codexFiles); ++i) {
        QList<UsageMeter> meters = codexLimitsIn(logs.at(i).path);
        if (!meters.isEmpty()) {
            return meters;
        }
    }
    return {};
}

QString UsageTracker::noDataText(AgentKind kind) {
    return QStringLiteral("Shows after you use ") + AgentKinds::displayName(kind);
}

void UsageTracker::pruneStale(Timestamp now) {
    setClaude(fresh(claude_, now));
    setCodex(fresh(codex_, now));
    const QList<AgentKind> kinds = extra_.keys();
    for (AgentKind kind : kinds) {
        const QList<UsageMeter> kept = fresh(extra_.value(kind), now);
        if (kept.isEmpty()) {
            extra_.remove(kind);
            Q_EMIT extraChanged();
        } else {
            setExtra(kind, kept);
        }
    }
}

void UsageTracker::setClaudeState(ClaudeUsageState state) {
    if (claudeState_ != state) {
        claudeState_ = state;
        Q_EMIT claudeStateChanged();
    }
}

void UsageTracker::setClaude(const QList<UsageMeter>& meters) {
    if (claude_ != meters) {
        claude_ = meters;
        Q_EMIT claudeChanged();
    }
}

void UsageTracker::setCodex(const QList<UsageMeter>& meters) {
    if (codex_ != meters) {
        codex_ = meters;
        Q_EMIT codexChanged();
    }
}

void UsageTracker::setClaudeUpdatedAt(Timestamp at) {
    if (claudeUpdatedAt_ != at) {
        claudeUpdatedAt_ = at;
        Q_EMIT claudeUpdatedAtChanged();
    }
}

void UsageTracker::setCodexUpdatedAt(Timestamp at) {
    if (codexUpdatedAt_ != at) {
        codexUpdatedAt_ = at;
        Q_EMIT codexUpdatedAtChanged();
    }
}

void UsageTracker::setExtra(AgentKind kind, const QList<UsageMeter>& meters) {
    if (!extra_.contains(kind) || extra_.value(kind) != meters) {
        extra_.insert(kind, meters);
        Q_EMIT extraChanged();
    }
}

void UsageTracker::setProbing(bool probing) {
    if (probing_ != probing) {
        probing_ = probing;
        Q_EMIT probingChanged();
    }
}

} // namespace mirrowisp
