#pragma once

#include <QString>
#include <QVariantMap>
#include <memory>

class QQmlEngine;
class QQuickWindow;

namespace mirrowisp {

// Makes a top-level window from one of the front's views with its required properties set; nothing
// (and the reasons in the log) when the view does not load or is no window.
std::unique_ptr<QQuickWindow> loadWindow(QQmlEngine& engine, const QString& view,
                                         const QVariantMap& properties);
// Shows the window, raises it and asks the window manager for the keyboard.
void bringForward(QQuickWindow& window);

} // namespace mirrowisp
