#include "island/NativePixels.h"

#include <QGuiApplication>
#include <QRect>
#include <QScreen>
#include <cmath>

namespace mirrowisp::NativePixels {

QPoint toLogical(QPoint native) {
    const auto screens = QGuiApplication::screens();
    for (const QScreen* screen : screens) {
        const QRect logical = screen->geometry();
        const qreal ratio = screen->devicePixelRatio();
        const QRect device(logical.topLeft(), (QSizeF(logical.size()) * ratio).toSize());
        if (device.contains(native)) {
            const QPointF offset = QPointF(native - device.topLeft()) / ratio;
            return logical.topLeft() +
                   QPoint(static_cast<int>(std::floor(offset.x())), static_cast<int>(std::floor(offset.y())));
        }
    }
    return native;
}

} // namespace mirrowisp::NativePixels
