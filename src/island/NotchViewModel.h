#pragma once

#include "island/NotchTab.h"
#include "island/SecondaryActivity.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QSizeF>
#include <QStringList>
#include <QtQml/qqmlregistration.h>
#include <optional>

namespace mirrowisp {

// The state of one screen's island. Setters notify only on a real change. Every change that the
// view animates names its spring first (`animation`), so the view picks the curve the change asks for.
class NotchViewModel : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("each screen's island makes its own")
    Q_PROPERTY(quint32 screenID READ screenID CONSTANT)
    Q_PROPERTY(QSizeF notchSize READ notchSize NOTIFY notchSizeChanged)
    Q_PROPERTY(bool hasPhysicalNotch READ hasPhysicalNotch NOTIFY hasPhysicalNotchChanged)
    Q_PROPERTY(bool isOpen READ isOpen NOTIFY isOpenChanged)
    Q_PROPERTY(bool isHovering READ isHovering NOTIFY isHoveringChanged)
    Q_PROPERTY(bool isDropTargeted READ isDropTargeted NOTIFY isDropTargetedChanged)
    Q_PROPERTY(QString tab READ tabName WRITE selectTabNamed NOTIFY tabChanged)
    Q_PROPERTY(bool openedAutomatically READ openedAutomatically NOTIFY openedAutomaticallyChanged)
    Q_PROPERTY(QSizeF closedSize READ closedSize NOTIFY closedSizeChanged)
    Q_PROPERTY(QStringList secondaryKeys READ secondaryKeys NOTIFY secondariesChanged)
    Q_PROPERTY(QSizeF targetSize READ targetSize NOTIFY targetSizeChanged)
    Q_PROPERTY(QString animation READ animation NOTIFY animationChanged)

public:
    explicit NotchViewModel(quint32 screenID, QSizeF notchSize, bool hasPhysicalNotch,
                            QObject* parent = nullptr);

    quint32 screenID() const { return screenID_; }
    QSizeF notchSize() const { return notchSize_; }
    void setNotchSize(QSizeF size);
    bool hasPhysicalNotch() const { return hasPhysicalNotch_; }
    void setHasPhysicalNotch(bool physical);
    bool isOpen() const { return isOpen_; }
    void setIsOpen(bool open);
    bool isHovering() const { return isHovering_; }
    void setIsHovering(bool hovering);
    bool isDropTargeted() const { return isDropTargeted_; }
    void setIsDropTargeted(bool targeted);
    NotchTab tab() const { return tab_; }
    QString tabName() const { return NotchTabs::rawValue(tab_); }
    // Selecting a tab writes it only if it differs.
    void setTab(NotchTab tab);
    Q_INVOKABLE void selectTabNamed(const QString& name);
    bool openedAutomatically() const { return openedAutomatically_; }
    void setOpenedAutomatically(bool automatic);
    QSizeF closedSize() const { return closedSize_; }
    void setClosedSize(QSizeF size);
    const QList<SecondaryActivity>& secondaries() const { return secondaries_; }
    QStringList secondaryKeys() const;
    void setSecondaries(const QList<SecondaryActivity>& secondaries);
    std::optional<NotchTab> primaryTab() const { return primaryTab_; }
    void setPrimaryTab(std::optional<NotchTab> tab);

    // The open panel's size for `tab`: measured if known, else 668 wide and 186 (home) or 160 high.
    QSizeF openSize(NotchTab tab) const;
    // Records a measured panel size; changes within half a point in both directions are noise.
    Q_INVOKABLE void setOpenSize(QSizeF size, const QString& tab);
    void setOpenSize(QSizeF size, NotchTab tab);
    // The open size of the current tab while open, else the closed size.
    QSizeF targetSize() const;

    // The spring that animates the latest change: "open", "close", "hover", "hoverOut", "resize",
    // "activity".
    const QString& animation() const { return animation_; }
    void setAnimation(const QString& name);

Q_SIGNALS:
    void notchSizeChanged();
    void hasPhysicalNotchChanged();
    void isOpenChanged();
    void isHoveringChanged();
    void isDropTargetedChanged();
    void tabChanged();
    void openedAutomaticallyChanged();
    void closedSizeChanged();
    void secondariesChanged();
    void primaryTabChanged();
    void openSizesChanged();
    void targetSizeChanged();
    void animationChanged();

private:
    // Runs `change` and notifies `targetSizeChanged` if the target size moved.
    template <typename Change> void keepingTarget(Change change);

    const quint32 screenID_;
    QSizeF notchSize_;
    bool hasPhysicalNotch_ = false;
    bool isOpen_ = false;
    bool isHovering_ = false;
    bool isDropTargeted_ = false;
    NotchTab tab_ = NotchTab::home;
    bool openedAutomatically_ = false;
    QSizeF closedSize_;
    QList<SecondaryActivity> secondaries_;
    std::optional<NotchTab> primaryTab_;
    QHash<int, QSizeF> openSizes_;
    QString animation_ = QStringLiteral("activity");
};

} // namespace mirrowisp
