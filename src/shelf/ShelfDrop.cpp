#include "shelf/ShelfDrop.h"

#include "shelf/ShelfStore.h"

#include <QMimeDatabase>

namespace mirrowisp {

namespace {

// A single web address is a link; anything else (several words, several lines) is text.
std::optional<QUrl> webLink(const QString& text) {
    const QString trimmed = text.trimmed();
    if (trimmed.isEmpty() || trimmed.contains(QLatin1Char(' ')) || trimmed.contains(QLatin1Char('\n'))) {
        return std::nullopt;
    }
    const QUrl url(trimmed, QUrl::StrictMode);
    const QString scheme = url.scheme().toLower();
    if (!url.isValid() || url.host().isEmpty() ||
        (scheme != QLatin1StringView("http") && scheme != QLatin1StringView("https"))) {
        return std::nullopt;
    }
    return url;
}

QList<QUrl> fileURLs(const QList<QUrl>& urls, QList<QUrl>& links) {
    QList<QUrl> files;
    for (const QUrl& url : urls) {
        if (url.isLocalFile()) {
            files.append(url);
        } else if (const auto link = webLink(url.toString())) {
            links.append(*link);
        }
    }
    return files;
}

} // namespace

QList<QUrl> shelfDropFiles(const ShelfStore& store, const ShelfDrop& drop) {
    QList<QUrl> links;
    // A browser's link drag carries the link as a URI list too; it becomes a shortcut below.
    QList<QUrl> files = fileURLs(drop.urls, links);
    if (!files.isEmpty()) {
        return files;
    }
    // An image dragged out of a web page is the image, though its address comes along.
    if (!drop.imageBytes.isEmpty()) {
        const QMimeType type = QMimeDatabase().mimeTypeForName(drop.imageType);
        const QString suffix = type.isValid() && !type.preferredSuffix().isEmpty() ? type.preferredSuffix()
                                                                                   : QStringLiteral("png");
        if (const auto path = store.writeData(QStringLiteral("Image.") + suffix, drop.imageBytes)) {
            return {QUrl::fromLocalFile(*path)};
        }
    }
    if (links.isEmpty() && !drop.mozURL.isEmpty()) {
        if (const auto link = webLink(drop.mozURL.section(QLatin1Char('\n'), 0, 0))) {
            links.append(*link);
        }
    }
    if (links.isEmpty()) {
        if (const auto link = webLink(drop.text)) {
            links.append(*link);
        }
    }
    for (const QUrl& link : links) {
        if (const auto path = store.writeLink(link)) {
            files.append(QUrl::fromLocalFile(*path));
        }
    }
    if (!files.isEmpty()) {
        return files;
    }
    if (!drop.text.isEmpty()) {
        if (const auto path = store.writeText(drop.text)) {
            return {QUrl::fromLocalFile(*path)};
        }
    }
    return {};
}

} // namespace mirrowisp
