#pragma once

#include <QObject>
#include <QPointer>
#include <QString>
#include <QtQml/qqmlregistration.h>

namespace mirrowisp {

class NotchWindowController;

// What an island's views may ask of its controller: the buttons that close it, the menus that hold
// it open, the tab a click opens. A thin forwarder, so the controller stays free of QML concerns.
class IslandControls : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("each island window gets its own")

public:
    explicit IslandControls(NotchWindowController& controller, QObject* parent = nullptr);

    Q_INVOKABLE void closeIsland();
    Q_INVOKABLE void open(const QString& tab);
    Q_INVOKABLE void menuOpened();
    Q_INVOKABLE void menuClosed();
    Q_INVOKABLE void setPopupShown(bool shown);
    // A drag the island would take hovers over it, or has gone.
    Q_INVOKABLE void setDropTargeted(bool targeted);

private:
    QPointer<NotchWindowController> controller_;
};

} // namespace mirrowisp
