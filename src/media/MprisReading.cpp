#include "media/MprisReading.h"

#include <QDBusArgument>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QStringList>
#include <algorithm>
#include <cmath>

namespace mirrowisp {

namespace {

// A title of a hundred kilobytes would only be elided by the view; the rest is never shown.
constexpr qsizetype maxTextLength = 512;

// Nested containers arrive still marshalled; bring the two shapes MPRIS uses out of them.
QVariant plain(const QVariant& value) {
    if (value.metaType() == QMetaType::fromType<QDBusVariant>()) {
        return plain(value.value<QDBusVariant>().variant());
    }
    if (value.metaType() != QMetaType::fromType<QDBusArgument>()) {
        return value;
    }
    const auto argument = value.value<QDBusArgument>();
    const QString signature = argument.currentSignature();
    if (signature == QLatin1StringView("a{sv}")) {
        return qdbus_cast<QVariantMap>(argument);
    }
    if (signature == QLatin1StringView("as")) {
        return qdbus_cast<QStringList>(argument);
    }
    return {};
}

std::optional<QString> text(const QVariantMap& map, const QString& key) {
    const QVariant value = plain(map.value(key));
    if (value.metaType() == QMetaType::fromType<QString>()) {
        return value.toString().left(maxTextLength);
    }
    if (value.metaType() == QMetaType::fromType<QDBusObjectPath>()) {
        return value.value<QDBusObjectPath>().path();
    }
    return std::nullopt;
}

// Players disagree on the integer type of lengths and positions; any number is taken.
std::optional<double> number(const QVariantMap& map, const QString& key) {
    const QVariant value = plain(map.value(key));
    switch (value.metaType().id()) {
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double: {
        const double v = value.toDouble();
        return std::isfinite(v) ? std::optional(v) : std::nullopt;
    }
    default:
        return std::nullopt;
    }
}

QString artists(const QVariantMap& metadata) {
    const QVariant value = plain(metadata.value(QStringLiteral("xesam:artist")));
    if (value.metaType() == QMetaType::fromType<QStringList>()) {
        return value.toStringList().join(QStringLiteral(", ")).left(maxTextLength);
    }
    if (value.metaType() == QMetaType::fromType<QString>()) { // against the standard, but common
        return value.toString().left(maxTextLength);
    }
    return {};
}

} // namespace

RepeatMode repeatModeFromLoopStatus(const QString& status) {
    if (status == QLatin1StringView("Playlist")) {
        return RepeatMode::all;
    }
    if (status == QLatin1StringView("Track")) {
        return RepeatMode::one;
    }
    return RepeatMode::off;
}

QString loopStatusFromRepeatMode(RepeatMode mode) {
    switch (mode) {
    case RepeatMode::all:
        return QStringLiteral("Playlist");
    case RepeatMode::one:
        return QStringLiteral("Track");
    case RepeatMode::off:
        break;
    }
    return QStringLiteral("None");
}

MprisReading readMprisProperties(const QString& player, const QVariantMap& properties) {
    MprisReading reading;
    const QVariant metadataValue = plain(properties.value(QStringLiteral("Metadata")));
    const std::optional<QString> status = text(properties, QStringLiteral("PlaybackStatus"));
    if (metadataValue.metaType() != QMetaType::fromType<QVariantMap>() || !status ||
        (*status != QLatin1StringView("Playing") && *status != QLatin1StringView("Paused"))) {
        return reading;
    }
    const QVariantMap metadata = metadataValue.toMap();
    reading.trackId = text(metadata, QStringLiteral("mpris:trackid")).value_or(QString());
    reading.artUrl = text(metadata, QStringLiteral("mpris:artUrl")).value_or(QString());
    NowPlayingTrack track;
    track.title = text(metadata, QStringLiteral("xesam:title")).value_or(QString());
    if (track.title.isEmpty()) {
        return reading;
    }
    track.artist = artists(metadata);
    track.album = text(metadata, QStringLiteral("xesam:album")).value_or(QString());
    track.duration = std::max(0.0, number(metadata, QStringLiteral("mpris:length")).value_or(0) / 1e6);
    track.position = std::max(0.0, number(properties, QStringLiteral("Position")).value_or(0) / 1e6);
    if (track.duration > 0) {
        track.position = std::min(track.position, track.duration);
    }
    track.isPlaying = *status == QLatin1StringView("Playing");
    track.player = player;
    const std::optional<QString> loop = text(properties, QStringLiteral("LoopStatus"));
    track.canRepeat = loop.has_value();
    track.repeatMode = repeatModeFromLoopStatus(loop.value_or(QString()));
    const double rate = number(properties, QStringLiteral("Rate")).value_or(1.0);
    track.rate = rate > 0 ? rate : 1.0;
    reading.track = track;
    return reading;
}

} // namespace mirrowisp
