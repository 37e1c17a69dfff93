// Real drops on the real island under a private X server: this process is the drag source, as a file
// manager or a browser would be, and xdotool moves the pointer through the drag.
#include "island/x11/X11Desktop.h"
#include "support/RealApp.h"

#include <QDrag>
#include <QGuiApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMimeData>
#include <QProcess>
#include <QRasterWindow>
#include <QScreen>
#include <gtest/gtest.h>

namespace {

using mirrowisp::test::text;

struct DropCase {
    const char* label;
    const char* format;
    QByteArray (*data)(const QString& home);
    const char* expectedName;
};

class ShelfDrop : public testing::TestWithParam<DropCase> {};

TEST_P(ShelfDrop, LandsOnTheShelf) {
    mirrowisp::test::RealApp real{true};
    ASSERT_TRUE(real.busStarted());
    ASSERT_TRUE(real.start());
    const QString home = real.home().path();
    mirrowisp::test::writeFile(home + text("/report.txt"), "report");

    // The source window the button goes down in, away from the island.
    QRasterWindow source;
    source.setGeometry(100, 400, 200, 200);
    source.show();
    ASSERT_TRUE(mirrowisp::test::waitUntil([&] { return source.isExposed(); }));
    const int centreX = QGuiApplication::primaryScreen()->geometry().center().x();
    ASSERT_TRUE(mirrowisp::test::moveTo(QPoint(200, 500)));
    ASSERT_TRUE(mirrowisp::test::xdotool({text("mousedown"), text("1")}));

    // The pointer's path while the drag runs: onto the closed island, a pause while it opens, into the
    // open shelf, and the button up there.
    const QString path =
        QStringLiteral("sleep 0.4; xdotool mousemove %1 4; sleep 0.2; xdotool mousemove %2 6; "
                       "sleep 1.2; xdotool mousemove %1 90; sleep 0.3; xdotool mousemove %2 95; "
                       "sleep 0.4; xdotool mouseup 1")
            .arg(centreX)
            .arg(centreX + 3);
    QProcess::startDetached(text("sh"), {text("-c"), path});
    auto* mime = new QMimeData;
    mime->setData(QString::fromLatin1(GetParam().format), GetParam().data(home));
    auto* drag = new QDrag(&source);
    drag->setMimeData(mime);
    EXPECT_EQ(drag->exec(Qt::CopyAction), Qt::CopyAction);

    // The drop message leaves, and the island fetches the dragged data from this process, only while
    // its event loop runs: nothing may block it before the drop has landed.
    mirrowisp::test::waitUntil([] { return false; }, 2000);
    QJsonArray shelf;
    mirrowisp::test::waitUntil([&] {
        shelf = QJsonDocument::fromJson(real.ctl({text("shelf")}).out).array();
        return !shelf.isEmpty();
    });
    ASSERT_EQ(shelf.size(), 1);
    EXPECT_EQ(shelf[0].toObject()[text("items")].toArray()[0].toObject()[text("name")].toString(),
              text(GetParam().expectedName));
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, ShelfDrop,
    testing::Values(DropCase{"FileList", "text/uri-list",
                             [](const QString& home) {
                                 return QUrl::fromLocalFile(home + text("/report.txt")).toEncoded() + "\r\n";
                             },
                             "report.txt"},
                    DropCase{"Text", "text/plain", [](const QString&) { return QByteArray("a few words"); },
                             "a few words.txt"},
                    // A link dragged out of a browser comes as a URI list of its web address.
                    DropCase{"Link", "text/uri-list",
                             [](const QString&) { return QByteArray("https://example.org/page\r\n"); },
                             "example.org.url"}),
    [](const auto& param) { return std::string(param.param.label); });

} // namespace
