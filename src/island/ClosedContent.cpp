#include "island/ClosedContent.h"

#include "agents/AgentSession.h"

#include <algorithm>

namespace mirrowisp {

namespace {

constexpr qsizetype maxWorkingKinds = 3;

std::optional<ClosedContent> workingContent(const std::vector<const AgentSession*>& ordered) {
    std::vector<const AgentSession*> working;
    std::copy_if(ordered.begin(), ordered.end(), std::back_inserter(working),
                 [](const AgentSession* session) { return session->status().isWorking(); });
    if (working.empty()) {
        return std::nullopt;
    }
    // Stable, so sessions updated at the same moment keep the store's order.
    std::stable_sort(working.begin(), working.end(), [](const AgentSession* a, const AgentSession* b) {
        return a->updatedAt() > b->updatedAt();
    });
    QList<AgentKind> kinds;
    for (const AgentSession* session : working) {
        if (!kinds.contains(session->agent())) {
            kinds.append(session->agent());
        }
    }
    if (kinds.size() > maxWorkingKinds) {
        kinds.resize(maxWorkingKinds);
    }
    return ClosedContent::working(kinds, static_cast<qsizetype>(working.size()));
}

} // namespace

ClosedContent ClosedContent::transient(TransientActivity activity, qint64 id) {
    return ClosedContent(Transient{std::move(activity), id});
}

ClosedContent ClosedContent::attention(QString sessionID, AgentKind agent) {
    return ClosedContent(Attention{std::move(sessionID), agent});
}

ClosedContent ClosedContent::working(QList<AgentKind> agents, qsizetype count) {
    return ClosedContent(Working{std::move(agents), count});
}

ClosedContent ClosedContent::meeting(CalendarItem item) {
    return ClosedContent(std::move(item));
}

ClosedContent ClosedContent::music(NowPlayingTrack track) {
    return ClosedContent(std::move(track));
}

ClosedContent ClosedContent::resolve(const IslandInputs& inputs) {
    // A short-lived event outranks everything, a waiting permission request too: it is gone in a
    // few seconds and the request comes back on its own.
    if (inputs.transient) {
        return transient(*inputs.transient, inputs.transientID);
    }
    if (inputs.attention) {
        return attention(inputs.attention->id(), inputs.attention->agent());
    }
    if (auto working = workingContent(inputs.orderedSessions)) {
        return *std::move(working);
    }
    if (inputs.liveEvent) {
        return meeting(*inputs.liveEvent);
    }
    if (inputs.isMusicLive()) {
        return music(*inputs.nowPlaying);
    }
    return {};
}

ClosedContent ClosedContent::resolve(AppModel& app) {
    return resolve(IslandInputs::from(app));
}

QString ClosedContent::animationKey() const {
    switch (kind()) {
    case Case::transient:
        return QStringLiteral("transient-") + QString::number(transientPayload()->id);
    case Case::attention:
        return QStringLiteral("attention-") + attentionPayload()->sessionID;
    case Case::working: {
        QString key = QStringLiteral("working-");
        for (AgentKind agent : workingPayload()->agents) {
            key += AgentKinds::rawValue(agent);
        }
        return key + QLatin1Char('-') + QString::number(workingPayload()->count);
    }
    case Case::meeting:
        return QStringLiteral("meeting-") + meetingPayload()->id;
    case Case::music:
        return QStringLiteral("music");
    case Case::none:
        break;
    }
    return QStringLiteral("none");
}

QString ClosedContent::caseName() const {
    switch (kind()) {
    case Case::transient:
        return QStringLiteral("transient");
    case Case::attention:
        return QStringLiteral("attention");
    case Case::working:
        return QStringLiteral("working");
    case Case::meeting:
        return QStringLiteral("meeting");
    case Case::music:
        return QStringLiteral("music");
    case Case::none:
        break;
    }
    return QStringLiteral("none");
}

} // namespace mirrowisp
