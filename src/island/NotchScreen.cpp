#include "island/NotchScreen.h"

#include <algorithm>

namespace mirrowisp {

QSizeF notchSize(const NotchScreen& screen, double fakeWidth) {
    // A hidden or absent panel still gets a tab tall enough to hover and click.
    const int panel = screen.topPanelHeight() > 0 ? screen.topPanelHeight() : 24;
    return {fakeWidth, static_cast<double>(std::max(26, panel))};
}

} // namespace mirrowisp
