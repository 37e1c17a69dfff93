#pragma once

#include <QByteArray>
#include <QImage>
#include <QString>
#include <QUrl>
#include <atomic>
#include <memory>
#include <optional>

namespace mirrowisp {

// Finding a cover when the player gives none, and fetching covers over the network. Every function
// here blocks: it runs on the now-playing queue, never on the main thread.
namespace ArtworkLookup {

// Set by the owner to end a wait early (the app is quitting): the fetch then gives nothing at once.
using Cancel = std::shared_ptr<const std::atomic_bool>;

// The catalogue search service's default origin; tests and the setting point elsewhere.
inline const QString defaultCatalogue = QStringLiteral("https://itunes.apple.com");
// Covers larger than this are refused, whether read from disk or fetched.
inline constexpr qint64 maxArtworkBytes = 20 * 1024 * 1024;

// An http(s) artwork address as fetched: http is upgraded to https; anything without a host, or of
// another scheme, gives nothing. `allowPlainHttp` keeps http for loopback stand-ins in tests.
std::optional<QUrl> artworkURL(const QString& text, bool allowPlainHttp = false);

// The body of a 200 answer with data; nothing for anything else, or after 6 s idle or 8 s in all.
std::optional<QByteArray> fetch(const QUrl& url, const Cancel& cancel = {});

// The cover found by the catalogue at `origin` ("https://host[:port]"), once per key for the life of
// the process: hits are kept, and so are misses (a cancelled search is neither).
std::optional<QImage> image(const QString& origin, const QString& artist, const QString& album,
                            const QString& title, const Cancel& cancel = {});

// The cover of the first result matching by the rules below, searching `entity` ("album" or "song").
std::optional<QImage> search(const QString& origin, const QString& term, const QString& entity,
                             const QString& match, const QString& artist, const Cancel& cancel = {});

// An image from bytes, or nothing when they are no image.
std::optional<QImage> decode(const QByteArray& bytes);

} // namespace ArtworkLookup

} // namespace mirrowisp
