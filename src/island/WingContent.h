#pragma once

#include "base/AgentKind.h"
#include "base/Clock.h"

#include <QColor>
#include <QList>
#include <QSizeF>
#include <QString>
#include <QVariantMap>
#include <optional>

namespace mirrowisp {

class ClosedContent;
struct BluetoothAudioDevice;

// What one wing of the closed island draws: a plain value the views turn into a glyph, a mark or a
// label. Fields that a kind does not use keep their defaults.
struct Wing {
    enum class Kind {
        none,
        symbol,        // a named glyph
        agentMark,     // the mark of `agents.first()`
        agentStack,    // up to three overlapping marks
        activityGrid,  // agents at work; `text` is a count shown before it, if any
        levelBar,      // a bar of `frame` size filled to `level` (0…1)
        text,          // a short label
        calendarGlyph, // the calendar's glyph
        artwork,       // the track's or device's picture; `symbol` is the device's fallback glyph
        waveform,      // playing music, tinted by the artwork's palette
        successCheck,  // a tick of `frame` size
        batteryRing    // a ring filled to `level` percent (0…100)
    };

    Kind kind = Kind::none;
    // "lead-" or "trail-" and the content's key: new content replaces the wing instead of morphing.
    QString identity;
    QString symbol;
    // A device's icon from the desktop's theme; `symbol` stands in where the theme has none.
    QString icon;
    QString text;
    // Invalid while `palette` is set: the colour then comes from the artwork.
    QColor color = Qt::white;
    bool palette = false;
    double level = 0;
    double size = 0; // point size of the glyph or the text
    QString weight;  // "regular", "semibold" or "bold"
    QSizeF frame;
    QList<AgentKind> agents;
    bool wiggle = false; // a periodic shake that asks for the user
    bool monospacedDigits = false;

    static QString kindName(Kind kind);
    // Keys: kind, identity, symbol, icon, text, color, palette, level, size, weight, width, height,
    // agents (raw names), agent (the first raw name or ""), wiggle, monospacedDigits.
    QVariantMap toVariantMap() const;

    bool operator==(const Wing&) const = default;
};

// Both wings for one content at one moment, and how soon they go stale.
struct WingContent {
    Wing left;
    Wing right;
    // Seconds after which a counting minute label needs a fresh look; none when nothing shown
    // depends on the time any more.
    std::optional<int> refreshSeconds;

    static WingContent make(const ClosedContent& content, Timestamp now);

    // "12m" for the minutes until `start`, rounded up, while some are left; none once it began.
    static std::optional<QString> minutesUntil(Timestamp start, Timestamp now);
    // "1 day left", "5 days left".
    static QString daysLeft(qint64 days);
    // The one battery figure a device shows: the combined level, else the single one, else the
    // lower earbud.
    static std::optional<int> batterySummary(const BluetoothAudioDevice& device);
    // The device's glyph, by what its name says it is.
    static QString deviceSymbol(const QString& name);

    bool operator==(const WingContent&) const = default;
};

namespace WingColors {
QColor orange();
QColor yellow();
QColor green();
QColor red();
QColor success();
} // namespace WingColors

} // namespace mirrowisp
