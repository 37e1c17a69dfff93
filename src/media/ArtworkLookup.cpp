#include "media/ArtworkLookup.h"

#include <QEventLoop>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSet>
#include <QTimer>
#include <QUrlQuery>
#include <mutex>

namespace mirrowisp::ArtworkLookup {

namespace {

std::mutex lock;
QHash<QString, QImage> cache;
QSet<QString> misses;

} // namespace

std::optional<QUrl> artworkURL(const QString& text, bool allowPlainHttp) {
    QString trimmed = text.trimmed();
    if (trimmed.isEmpty()) {
        return std::nullopt;
    }
    if (!allowPlainHttp && trimmed.startsWith(QLatin1StringView("http://"))) {
        trimmed = QStringLiteral("https://") + trimmed.mid(7);
    }
    const QUrl url(trimmed, QUrl::StrictMode);
    const bool schemeOK = url.scheme() == QLatin1StringView("https") ||
                          (allowPlainHttp && url.scheme() == QLatin1StringView("http"));
    if (!url.isValid() || !schemeOK || url.host().isEmpty()) {
        return std::nullopt;
    }
    return url;
}

std::optional<QByteArray> fetch(const QUrl& url, const Cancel& cancel) {
    if (cancel && *cancel) {
        return std::nullopt;
    }
    // A manager of this thread's own: the queue's thread runs a short event loop for each fetch.
    QNetworkAccessManager manager;
    QNetworkRequest request(url);
    request.setTransferTimeout(6000);
    request.setHeader(QNetworkRequest::UserAgentHeader, QStringLiteral("Mirrowisp"));
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    QNetworkReply* reply = manager.get(request);
    QEventLoop loop;
    QTimer deadline;
    deadline.setSingleShot(true);
    QObject::connect(&deadline, &QTimer::timeout, &loop, &QEventLoop::quit);
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    QObject::connect(reply, &QNetworkReply::downloadProgress, reply, [reply](qint64 received, qint64) {
        if (received > maxArtworkBytes) {
            reply->abort();
        }
    });
    deadline.start(8000);
    QTimer cancelled;
    if (cancel) {
        QObject::connect(&cancelled, &QTimer::timeout, &loop, [&] {
            if (*cancel) {
                loop.quit();
            }
        });
        cancelled.start(100);
    }
    if (!reply->isFinished()) {
        loop.exec();
    }
    std::optional<QByteArray> body;
    if (reply->isFinished() && reply->error() == QNetworkReply::NoError &&
        reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt() == 200) {
        QByteArray bytes = reply->readAll();
        if (!bytes.isEmpty()) {
            body = std::move(bytes);
        }
    }
    reply->abort();
    delete reply; // NOLINT: owned by the manager, which is about to go; no event loop runs for deleteLater
    return body;
}

std::optional<QImage> decode(const QByteArray& bytes) {
    QImage image;
    if (bytes.isEmpty() || !image.loadFromData(bytes) || image.isNull()) {
        return std::nullopt;
    }
    return image;
}

std::optional<QImage> search(const QString& origin, const QString& term, const QString& entity,
                             const QString& match, const QString& artist, const Cancel& cancel) {
    QUrl url(origin + QStringLiteral("/search"));
    QUrlQuery query;
    query.addQueryItem(QStringLiteral("term"), term);
    query.addQueryItem(QStringLiteral("entity"), entity);
    query.addQueryItem(QStringLiteral("limit"), QStringLiteral("5"));
    url.setQuery(query);
    const std::optional<QByteArray> body = fetch(url, cancel);
    if (!body) {
        return std::nullopt;
    }
    const QJsonDocument document = QJsonDocument::fromJson(*body);
    const QJsonArray results = document.object().value(QStringLiteral("results")).toArray();
    const QString field =
        entity == QLatin1StringView("album") ? QStringLiteral("collectionName") : QStringLiteral("trackName");
    const auto same = [](const QJsonValue& value, const QString& text) {
        return value.isString() && value.toString().compare(text, Qt::CaseInsensitive) == 0;
    };
    std::optional<QJsonObject> chosen;
    for (const QJsonValue& result : results) {
        const QJsonObject object = result.toObject();
        if (same(object.value(field), match) && same(object.value(QStringLiteral("artistName")), artist)) {
            chosen = object;
            break;
        }
    }
    for (qsizetype i = 0; !chosen && i < results.size(); ++i) {
        if (same(results[i].toObject().value(field), match)) {
            chosen = results[i].toObject();
        }
    }
    if (!chosen && !results.isEmpty()) {
        chosen = results.first().toObject();
    }
    if (!chosen) {
        return std::nullopt;
    }
    QString art = chosen->value(QStringLiteral("artworkUrl100")).toString();
    art.replace(QStringLiteral("100x100bb"), QStringLiteral("600x600bb"));
    const std::optional<QUrl> artURL = artworkURL(art, url.scheme() == QLatin1StringView("http"));
    if (!artURL) {
        return std::nullopt;
    }
    const std::optional<QByteArray> bytes = fetch(*artURL, cancel);
    return bytes ? decode(*bytes) : std::nullopt;
}

std::optional<QImage> image(const QString& origin, const QString& artist, const QString& album,
                            const QString& title, const Cancel& cancel) {
    const QString key = (artist + QLatin1Char('|') + album + QLatin1Char('|') + title).toLower();
    {
        std::lock_guard guard(lock);
        if (const auto hit = cache.constFind(key); hit != cache.constEnd()) {
            return *hit;
        }
        if (misses.contains(key)) {
            return std::nullopt;
        }
    }
    std::optional<QImage> found =
        search(origin, artist + QLatin1Char(' ') + album, QStringLiteral("album"), album, artist, cancel);
    if (!found) {
        found =
            search(origin, artist + QLatin1Char(' ') + title, QStringLiteral("song"), title, artist, cancel);
    }
    std::lock_guard guard(lock);
    if (cancel && *cancel) {
        return found;
    }
    if (found) {
        cache.insert(key, *found);
    } else {
        misses.insert(key);
    }
    return found;
}

} // namespace mirrowisp::ArtworkLookup
