#include "media/ArtworkLookup.h"

#include "support/TestSupport.h"

#include <QBuffer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTcpServer>
#include <QTcpSocket>
#include <QUrlQuery>
#include <future>
#include <gtest/gtest.h>

using namespace mirrowisp;
using namespace Qt::StringLiterals;

namespace {

// A loopback stand-in for the catalogue: searches answer from a table keyed by entity and term, and
// covers are one-colour PNGs named by their path. It counts the searches it is asked.
class CatalogueStandIn {
public:
    CatalogueStandIn() {
        server.listen(QHostAddress::LocalHost);
        QObject::connect(&server, &QTcpServer::newConnection, [this] {
            QTcpSocket* socket = server.nextPendingConnection();
            QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket] { answer(socket); });
        });
    }
    QString origin() const { return u"http://127.0.0.1:%1"_s.arg(server.serverPort()); }
    QJsonObject result(const char* field, const char* value, const char* artist, const char* cover) const {
        return {{QString::fromUtf8(field), QString::fromUtf8(value)},
                {u"artistName"_s, QString::fromUtf8(artist)},
                {u"artworkUrl100"_s, origin() + u"/art/"_s + QString::fromUtf8(cover) + u"/100x100bb.png"_s}};
    }

    QHash<QString, QJsonArray> results; // "entity term" → results
    int searches = 0;

private:
    void answer(QTcpSocket* socket) {
        const QByteArray request = socket->readAll();
        const QUrl url(u"http://x"_s + QString::fromUtf8(request.split(' ').value(1)));
        QByteArray body;
        if (url.path() == u"/search"_s) {
            ++searches;
            const QUrlQuery query(url);
            body = QJsonDocument(
                       QJsonObject{{u"results"_s,
                                    results.value(query.queryItemValue(u"entity"_s) + u' ' +
                                                  query.queryItemValue(u"term"_s, QUrl::FullyDecoded))}})
                       .toJson();
        } else if (url.path().endsWith(u"/600x600bb.png"_s)) {
            QImage image(8, 8, QImage::Format_RGB32);
            image.fill(QColor(url.path().section(u'/', 2, 2)));
            QBuffer buffer(&body);
            image.save(&buffer, "PNG");
        }
        socket->write("HTTP/1.1 " + QByteArray(body.isEmpty() ? "404 Not Found" : "200 OK") +
                      "\r\nConnection: close\r\nContent-Length: " + QByteArray::number(body.size()) +
                      "\r\n\r\n" + body);
        socket->disconnectFromHost();
    }

    QTcpServer server;
};

// The lookup blocks, as on the now-playing queue; the stand-in answers on the main loop meanwhile.
std::optional<QImage> lookUp(const CatalogueStandIn& catalogue, const char* artist, const char* album,
                             const char* title) {
    auto result = std::async(std::launch::async, [&] {
        return ArtworkLookup::image(catalogue.origin(), QString::fromUtf8(artist), QString::fromUtf8(album),
                                    QString::fromUtf8(title));
    });
    test::waitUntil([&] { return result.wait_for(std::chrono::seconds(0)) == std::future_status::ready; },
                    20000);
    return result.get();
}

} // namespace

TEST(ArtworkLookupTest, FindsTheAlbumThenTheSongAndRemembersHitsAndMisses) {
    CatalogueStandIn catalogue;
    catalogue.results[u"album Band Record"_s] = {catalogue.result("collectionName", "Other", "Band", "gray"),
                                                 catalogue.result("collectionName", "RECORD", "band", "red")};
    catalogue.results[u"album Solo Vague"_s] = {
        catalogue.result("collectionName", "Nothing alike", "X", "blue"),
        catalogue.result("collectionName", "Nor this", "Y", "gray")};
    catalogue.results[u"song Duo Single"_s] = {catalogue.result("trackName", "Other", "Duo", "gray"),
                                               catalogue.result("trackName", "single", "Trio", "green")};
    struct Case {
        const char *artist, *album, *title;
        std::optional<QColor> cover;
        int searches; // asked of the catalogue by this lookup
    };
    const Case cases[] = {
        {"Band", "Record", "Song", QColor(u"red"_s), 1},     // the exact album, ignoring case
        {"Solo", "Vague", "Song", QColor(u"blue"_s), 1},     // no exact match: the first result
        {"Duo", "Nowhere", "Single", QColor(u"green"_s), 2}, // no album: the song
        {"BAND", "RECORD", "SONG", QColor(u"red"_s), 0},     // the same key in capitals is cached
        {"Nobody", "Nothing", "Never", std::nullopt, 2},     // a miss asks both searches once...
        {"Nobody", "Nothing", "Never", std::nullopt, 0},     // ...and never again
    };
    for (const Case& c : cases) {
        const int before = catalogue.searches;
        const std::optional<QImage> image = lookUp(catalogue, c.artist, c.album, c.title);
        EXPECT_EQ(catalogue.searches - before, c.searches) << c.artist;
        ASSERT_EQ(image.has_value(), c.cover.has_value()) << c.artist;
        if (image) {
            EXPECT_EQ(image->pixelColor(0, 0), *c.cover) << c.artist;
        }
    }
}

TEST(ArtworkLookupTest, ArtworkAddressesAreHttpsWithAHost) {
    EXPECT_EQ(ArtworkLookup::artworkURL(u" http://i.example/a.jpg\n"_s), QUrl(u"https://i.example/a.jpg"_s));
    EXPECT_FALSE(ArtworkLookup::artworkURL(u"ftp://i.example/a.jpg"_s));
    EXPECT_FALSE(ArtworkLookup::artworkURL(u"https:///a.jpg"_s));
    EXPECT_FALSE(ArtworkLookup::artworkURL(u""_s));
}
