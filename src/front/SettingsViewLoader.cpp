#include "front/SettingsViewLoader.h"

#include "base/Log.h"

#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickWindow>

namespace mirrowisp {

std::unique_ptr<QQuickWindow> loadWindow(QQmlEngine& engine, const QString& view,
                                         const QVariantMap& properties) {
    QQmlComponent component(&engine, QUrl(QStringLiteral("qrc:/MirrowispFront/qml/") + view));
    std::unique_ptr<QObject> object(component.createWithInitialProperties(properties));
    if (!object) {
        for (const QQmlError& error : component.errors()) {
            logLine(QStringLiteral("Mirrowisp: ") + error.toString());
        }
        return nullptr;
    }
    auto* window = qobject_cast<QQuickWindow*>(object.get());
    if (window == nullptr) {
        return nullptr;
    }
    // Owned here, not by the engine's garbage collector.
    QQmlEngine::setObjectOwnership(window, QQmlEngine::CppOwnership);
    object.release();
    return std::unique_ptr<QQuickWindow>(window);
}

void bringForward(QQuickWindow& window) {
    window.show();
    window.raise();
    window.requestActivate();
}

} // namespace mirrowisp
