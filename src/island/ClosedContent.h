#pragma once

#include "app/TransientActivity.h"
#include "base/AgentKind.h"
#include "island/IslandInputs.h"
#include "media/NowPlayingTrack.h"
#include "widgets/CalendarItem.h"

#include <QList>
#include <QString>
#include <variant>

namespace mirrowisp {

// The one thing the closed island shows in its wings. A value: it copies what it needs from the
// sessions, so holding one never keeps a deleted session alive or dangling.
class ClosedContent {
public:
    enum class Case { transient, attention, working, meeting, music, none };

    struct Transient {
        TransientActivity activity;
        qint64 id = 0;
        bool operator==(const Transient&) const = default;
    };
    struct Attention {
        QString sessionID; // the store's session id ("claude:abc")
        AgentKind agent = AgentKind::claude;
        bool operator==(const Attention&) const = default;
    };
    struct Working {
        QList<AgentKind> agents; // distinct, most recent first, at most 3
        qsizetype count = 0;     // working sessions, not kinds
        bool operator==(const Working&) const = default;
    };

    ClosedContent() = default;
    static ClosedContent transient(TransientActivity activity, qint64 id);
    static ClosedContent attention(QString sessionID, AgentKind agent);
    static ClosedContent working(QList<AgentKind> agents, qsizetype count);
    static ClosedContent meeting(CalendarItem item);
    static ClosedContent music(NowPlayingTrack track);

    // The first rule that applies wins: a transient, a waiting session, working sessions, a live
    // meeting, playing music, nothing.
    static ClosedContent resolve(const IslandInputs& inputs);
    static ClosedContent resolve(AppModel& app);

    Case kind() const { return static_cast<Case>(payload_.index()); }
    // The payload of the present case, or null for any other case.
    const Transient* transientPayload() const { return std::get_if<Transient>(&payload_); }
    const Attention* attentionPayload() const { return std::get_if<Attention>(&payload_); }
    const Working* workingPayload() const { return std::get_if<Working>(&payload_); }
    const CalendarItem* meetingPayload() const { return std::get_if<CalendarItem>(&payload_); }
    const NowPlayingTrack* musicPayload() const { return std::get_if<NowPlayingTrack>(&payload_); }

    // Tells whether what is shown changed. Two tracks both give "music": a new song does not
    // animate the wings.
    QString animationKey() const;
    // "transient", "attention", "working", "meeting", "music", "none".
    QString caseName() const;

    bool operator==(const ClosedContent&) const = default;

private:
    // Alternatives in the order of `Case`, so the index is the case.
    using Payload =
        std::variant<Transient, Attention, Working, CalendarItem, NowPlayingTrack, std::monostate>;
    static_assert(std::variant_size_v<Payload> == static_cast<size_t>(Case::none) + 1);
    explicit ClosedContent(Payload payload) : payload_(std::move(payload)) {}

    Payload payload_ = std::monostate{};
};

} // namespace mirrowisp
