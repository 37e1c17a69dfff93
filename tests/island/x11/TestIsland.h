#pragma once

// An island window with a small view of its own for the window tests: a full-panel mouse area that
// counts presses, a red pill at the top centre and a text field below it.

#include "X11Desktop.h"
#include "island/x11/IslandWindow.h"
#include "support/TestSupport.h"

#include <QQuickItem>
#include <QTemporaryDir>
#include <QUrl>
#include <memory>

namespace mirrowisp::test {

inline constexpr QRect islandFrame{550, 0, 820, 560};
// Where the pill and the field sit in the panel's own coordinates.
inline constexpr QRect pillRect{310, 0, 200, 40};
inline constexpr QRect fieldRect{310, 100, 200, 40};

class TestIsland {
public:
    TestIsland() {
        const QString path = dir_.filePath(QStringLiteral("TestIsland.qml"));
        writeFile(path, R"(import QtQuick
import QtQuick.Controls
Item {
    property int presses: 0
    property point lastPress
    property alias typed: field.text
    MouseArea {
        anchors.fill: parent
        onPressed: (mouse) => { lastPress = Qt.point(mouse.x, mouse.y); presses += 1 }
    }
    Rectangle { x: 310; y: 0; width: 200; height: 40; radius: 20; color: "#ff0000" }
    TextField { objectName: "field"; id: field; x: 310; y: 100; width: 200; height: 40 }
}
)");
        window = std::make_unique<IslandWindow>();
        loadErrors = window->setContent(QUrl::fromLocalFile(path));
        window->setFrame(islandFrame);
    }

    QVariant rootProperty(const char* name) const { return window->rootObject()->property(name); }
    int presses() const { return rootProperty("presses").toInt(); }
    QPoint lastPress() const { return rootProperty("lastPress").toPointF().toPoint(); }
    QString typed() const { return rootProperty("typed").toString(); }

    // Shows the window and returns once the manager has taken it and it is on screen.
    bool showOn(const X11Desktop& desktop) {
        window->show();
        const auto id = static_cast<xcb_window_t>(window->winId());
        return waitUntil([&] { return window->isExposed() && desktop.managed(id); }, 10000) &&
               desktop.settle();
    }

    xcb_window_t id() const { return static_cast<xcb_window_t>(window->winId()); }

    std::unique_ptr<IslandWindow> window;
    std::optional<QStringList> loadErrors;

private:
    QTemporaryDir dir_;
};

} // namespace mirrowisp::test
