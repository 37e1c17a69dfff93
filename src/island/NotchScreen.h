#pragma once

#include <QRect>
#include <QSizeF>
#include <QString>

namespace mirrowisp {

// One screen as the islands see it. Geometry is in Qt's global coordinates (y grows downwards).
struct NotchScreen {
    quint32 displayID = 0;
    QRect frame;
    // The frame minus the desktop's panels; its top tells how high the top panel is.
    QRect availableGeometry;
    // Linux screens report no camera housing, so this stays 0; kept so the notch rules read whole.
    double safeAreaTop = 0;
    QString name;

    bool hasPhysicalNotch() const { return safeAreaTop > 0; }
    // How far the desktop's top panel reaches down; 0 when there is none.
    int topPanelHeight() const { return availableGeometry.top() - frame.top(); }

    bool operator==(const NotchScreen&) const = default;
};

// The notch the island grows out of. Without a camera housing the island pretends one: `fakeWidth`
// wide and as high as the top panel, at least 26, with a missing panel counting as 24.
QSizeF notchSize(const NotchScreen& screen, double fakeWidth);

} // namespace mirrowisp
