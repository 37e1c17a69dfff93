#pragma once

#include <QPointF>

namespace mirrowisp {

// The last known pointer position in global coordinates. On X11 the app learns it from XInput 2 raw
// motion and its own windows' events, since QCursor::pos() goes blind over other clients under
// XWayland.
class PointerSource {
public:
    virtual ~PointerSource() = default;
    virtual QPointF position() const = 0;
};

// A pointer position that whoever sees the pointer move writes.
class PointerTracker final : public PointerSource {
public:
    QPointF position() const override { return position_; }
    void setPosition(QPointF position) { position_ = position; }

private:
    QPointF position_;
};

} // namespace mirrowisp
