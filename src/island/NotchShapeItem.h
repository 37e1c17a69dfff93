#pragma once

#include <QQuickPaintedItem>
#include <QtQml/qqmlregistration.h>

namespace mirrowisp {

// Paints the island's outline: solid black, or glass (a dark translucent fill over a black gradient
// that keeps the part under the notch black). The radii are plain properties so QML animates them
// together and the corners morph during an open or close.
class NotchShapeItem : public QQuickPaintedItem {
    Q_OBJECT
    QML_NAMED_ELEMENT(NotchShape)
    Q_PROPERTY(double topRadius READ topRadius WRITE setTopRadius NOTIFY topRadiusChanged)
    Q_PROPERTY(double bottomRadius READ bottomRadius WRITE setBottomRadius NOTIFY bottomRadiusChanged)
    Q_PROPERTY(bool open READ isOpen WRITE setOpen NOTIFY openChanged)
    Q_PROPERTY(bool glass READ glass WRITE setGlass NOTIFY glassChanged)
    Q_PROPERTY(double notchFraction READ notchFraction WRITE setNotchFraction NOTIFY notchFractionChanged)

public:
    explicit NotchShapeItem(QQuickItem* parent = nullptr);

    double topRadius() const { return topRadius_; }
    void setTopRadius(double radius);
    double bottomRadius() const { return bottomRadius_; }
    void setBottomRadius(double radius);
    bool isOpen() const { return open_; }
    void setOpen(bool open);
    bool glass() const { return glass_; }
    void setGlass(bool glass);
    double notchFraction() const { return notchFraction_; }
    void setNotchFraction(double fraction);

    void paint(QPainter* painter) override;

Q_SIGNALS:
    void topRadiusChanged();
    void bottomRadiusChanged();
    void openChanged();
    void glassChanged();
    void notchFractionChanged();

private:
    template <typename T> void assign(T& member, T value, void (NotchShapeItem::*changed)());

    double topRadius_ = 6;
    double bottomRadius_ = 10;
    bool open_ = false;
    bool glass_ = false;
    double notchFraction_ = 1;
};

} // namespace mirrowisp
