#include "island/NotchViewModel.h"

#include <cmath>

namespace mirrowisp {

NotchViewModel::NotchViewModel(quint32 screenID, QSizeF notchSize, bool hasPhysicalNotch, QObject* parent)
    : QObject(parent), screenID_(screenID), notchSize_(notchSize), hasPhysicalNotch_(hasPhysicalNotch),
      closedSize_(notchSize) {}

template <typename Change> void NotchViewModel::keepingTarget(Change change) {
    const QSizeF before = targetSize();
    change();
    if (targetSize() != before) {
        Q_EMIT targetSizeChanged();
    }
}

void NotchViewModel::setNotchSize(QSizeF size) {
    if (size != notchSize_) {
        notchSize_ = size;
        Q_EMIT notchSizeChanged();
    }
}

void NotchViewModel::setHasPhysicalNotch(bool physical) {
    if (physical != hasPhysicalNotch_) {
        hasPhysicalNotch_ = physical;
        Q_EMIT hasPhysicalNotchChanged();
    }
}

void NotchViewModel::setIsOpen(bool open) {
    if (open != isOpen_) {
        keepingTarget([&] { isOpen_ = open; });
        Q_EMIT isOpenChanged();
    }
}

void NotchViewModel::setIsHovering(bool hovering) {
    if (hovering != isHovering_) {
        isHovering_ = hovering;
        Q_EMIT isHoveringChanged();
    }
}

void NotchViewModel::setIsDropTargeted(bool targeted) {
    if (targeted != isDropTargeted_) {
        isDropTargeted_ = targeted;
        Q_EMIT isDropTargetedChanged();
    }
}

void NotchViewModel::setTab(NotchTab tab) {
    if (tab != tab_) {
        keepingTarget([&] { tab_ = tab; });
        Q_EMIT tabChanged();
    }
}

void NotchViewModel::selectTabNamed(const QString& name) {
    if (const auto tab = NotchTabs::fromRawValue(name)) {
        setAnimation(QStringLiteral("resize"));
        setTab(*tab);
    }
}

void NotchViewModel::setOpenedAutomatically(bool automatic) {
    if (automatic != openedAutomatically_) {
        openedAutomatically_ = automatic;
        Q_EMIT openedAutomaticallyChanged();
    }
}

void NotchViewModel::setClosedSize(QSizeF size) {
    if (size != closedSize_) {
        keepingTarget([&] { closedSize_ = size; });
        Q_EMIT closedSizeChanged();
    }
}

QStringList NotchViewModel::secondaryKeys() const {
    QStringList keys;
    for (const SecondaryActivity& activity : secondaries_) {
        keys.append(activity.key());
    }
    return keys;
}

void NotchViewModel::setSecondaries(const QList<SecondaryActivity>& secondaries) {
    if (secondaries != secondaries_) {
        secondaries_ = secondaries;
        Q_EMIT secondariesChanged();
    }
}

void NotchViewModel::setPrimaryTab(std::optional<NotchTab> tab) {
    if (tab != primaryTab_) {
        primaryTab_ = tab;
        Q_EMIT primaryTabChanged();
    }
}

QSizeF NotchViewModel::openSize(NotchTab tab) const {
    const auto found = openSizes_.constFind(static_cast<int>(tab));
    if (found != openSizes_.cend()) {
        return *found;
    }
    return {668, tab == NotchTab::home ? 186.0 : 160.0};
}

void NotchViewModel::setOpenSize(QSizeF size, const QString& tab) {
    if (const auto parsed = NotchTabs::fromRawValue(tab)) {
        setOpenSize(size, *parsed);
    }
}

void NotchViewModel::setOpenSize(QSizeF size, NotchTab tab) {
    const auto found = openSizes_.constFind(static_cast<int>(tab));
    if (found != openSizes_.cend() && std::abs(found->width() - size.width()) <= 0.5 &&
        std::abs(found->height() - size.height()) <= 0.5) {
        return;
    }
    setAnimation(QStringLiteral("resize"));
    keepingTarget([&] { openSizes_.insert(static_cast<int>(tab), size); });
    Q_EMIT openSizesChanged();
}

QSizeF NotchViewModel::targetSize() const {
    return isOpen_ ? openSize(tab_) : closedSize_;
}

void NotchViewModel::setAnimation(const QString& name) {
    if (name != animation_) {
        animation_ = name;
        Q_EMIT animationChanged();
    }
}

} // namespace mirrowisp
