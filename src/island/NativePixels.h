#pragma once

#include <QPoint>

namespace mirrowisp::NativePixels {

// A global position as the X server gives it (device pixels) in Qt's global coordinates. Qt keeps
// each screen's top-left corner and divides the distance from it by the screen's pixel ratio.
QPoint toLogical(QPoint native);

} // namespace mirrowisp::NativePixels
