#include "widgets/MeetingLinks.h"

#include <QRegularExpression>
#include <QUrl>
#include <array>

namespace mirrowisp::MeetingLinks {

namespace {

// Zoom, Google Meet, Microsoft Teams, Webex, Around, Whereby, FaceTime: tried in this order.
constexpr std::array<QLatin1StringView, 7> meetingMarks = {
    QLatin1StringView("zoom.us"),
    QLatin1StringView("meet.google.com"),
    QLatin1StringView("teams.microsoft.com"),
    QLatin1StringView("webex.com"),
    QLatin1StringView("around.co"),
    QLatin1StringView("whereby.com"),
    QLatin1StringView("facetime"),
};

const QRegularExpression& linkPattern() {
    // A scheme, a "www." start, or a bare host followed by a path, up to the next blank or quote.
    static const QRegularExpression pattern(QStringLiteral(
        R"((?:\b[A-Za-z][A-Za-z0-9+.\-]*://|\bwww\.|\b(?:[A-Za-z0-9\-]+\.)+[A-Za-z]{2,}/)[^\s<>"'`]*)"));
    return pattern;
}

// Sentence punctuation after a link belongs to the sentence.
QString trimmed(QString link) {
    static const QString trailing = QStringLiteral(".,;:!?)]}*");
    while (!link.isEmpty() && trailing.contains(link.back())) {
        link.chop(1);
    }
    return link;
}

} // namespace

bool isMeeting(const QString& text) {
    for (const QLatin1StringView mark : meetingMarks) {
        if (text.contains(mark, Qt::CaseSensitive)) {
            return true;
        }
    }
    return false;
}

QStringList linksIn(const QString& text) {
    QStringList links;
    auto matches = linkPattern().globalMatch(text);
    while (matches.hasNext()) {
        QString link = trimmed(matches.next().captured(0));
        if (!link.contains(QLatin1String("://"))) {
            link.prepend(QLatin1String("https://"));
        }
        const QUrl url(link, QUrl::StrictMode);
        if (url.isValid() && !url.host().isEmpty()) {
            links.append(link);
        }
    }
    return links;
}

std::optional<QString> meetingURL(const CalendarEvent& event) {
    if (event.url && isMeeting(*event.url)) {
        return event.url;
    }
    QStringList candidates;
    for (const QString& conference : event.conferences) {
        candidates += linksIn(conference);
    }
    QStringList parts;
    if (event.location) {
        parts.append(*event.location);
    }
    if (event.notes) {
        parts.append(*event.notes);
    }
    candidates += linksIn(parts.join(QLatin1Char(' ')));
    for (const QString& link : candidates) {
        if (isMeeting(link)) {
            return link;
        }
    }
    return std::nullopt;
}

} // namespace mirrowisp::MeetingLinks
