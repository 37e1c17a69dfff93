#pragma once

#include "island/ClosedContent.h"
#include "island/IslandLayout.h"
#include "island/WingContent.h"

#include <QObject>
#include <QStringList>
#include <QTimer>
#include <QVariantList>
#include <QVariantMap>
#include <QtQml/qqmlregistration.h>
#include <vector>

namespace mirrowisp {

class AppModel;
class Clock;
class NotchViewModel;

// The closed island's brain for one screen. It watches the application state and the island's own
// state, works out what the wings show, and keeps the view model's closed size, bubbles and
// opening tab in step. Changes are gathered and evaluated once per turn of the event loop; nothing
// runs on a timer except a minute label counting down to a meeting.
class NotchRootModel : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("each island window makes its own")
    // "transient", "attention", "working", "meeting", "music" or "none".
    Q_PROPERTY(QString contentKind READ contentKind NOTIFY contentChanged)
    Q_PROPERTY(QString animationKey READ animationKey NOTIFY contentChanged)
    Q_PROPERTY(double wingWidth READ wingWidth NOTIFY contentChanged)
    // See Wing::toVariantMap for the keys.
    Q_PROPERTY(QVariantMap leftWing READ leftWing NOTIFY wingsChanged)
    Q_PROPERTY(QVariantMap rightWing READ rightWing NOTIFY wingsChanged)
    // Raw tab names in header order.
    Q_PROPERTY(QStringList tabs READ tabs NOTIFY tabsChanged)
    // Raw tab name to its badge count; a badge shows when greater than 0.
    Q_PROPERTY(QVariantMap badges READ badges NOTIFY badgesChanged)
    // Maps with key, identity, side ("left"/"right"), x (left edge from the island's centre),
    // width and height.
    Q_PROPERTY(QVariantList bubbles READ bubbles NOTIFY bubblesChanged)
    Q_PROPERTY(double spacerWidth READ spacerWidth NOTIFY layoutChanged)
    Q_PROPERTY(double outerInset READ outerInset NOTIFY layoutChanged)
    // Items on the shelf, for its badge; the shelf feeds it once it exists.
    Q_PROPERTY(int shelfCount READ shelfCount WRITE setShelfCount NOTIFY badgesChanged)
    // The battery and the connected audio devices for the home tab (see AppModel::devices).
    Q_PROPERTY(QVariantMap devices READ devices NOTIFY devicesChanged)

public:
    // Evaluates at once, as the island's first appearance.
    NotchRootModel(AppModel& app, NotchViewModel& model, const Clock& clock, QObject* parent = nullptr);
    ~NotchRootModel() override;

    const ClosedContent& content() const { return content_; }
    const WingContent& wings() const { return wings_; }
    QString contentKind() const { return content_.caseName(); }
    QString animationKey() const { return content_.animationKey(); }
    double wingWidth() const { return IslandLayout::wingWidth(content_); }
    QVariantMap leftWing() const { return wings_.left.toVariantMap(); }
    QVariantMap rightWing() const { return wings_.right.toVariantMap(); }
    QStringList tabs() const { return tabs_; }
    QVariantMap badges() const { return badges_; }
    QVariantList bubbles() const { return bubbles_; }
    double spacerWidth() const;
    double outerInset() const;
    int shelfCount() const { return shelfCount_; }
    QVariantMap devices() const;
    void setShelfCount(int count);

    // Re-evaluates now instead of at the next turn of the event loop.
    Q_INVOKABLE void refresh();
    // Whether a minute label is waiting for its next look at the clock.
    bool isLabelRefreshArmed() const { return labelTimer_.isActive(); }

Q_SIGNALS:
    void contentChanged();
    void wingsChanged();
    void tabsChanged();
    void badgesChanged();
    void bubblesChanged();
    void layoutChanged();
    void devicesChanged();

private:
    void scheduleRefresh();
    void watchSessions();
    void updateWings();
    void updateTabsAndBadges();
    void updateBubbles();
    void armLabelTimer();

    AppModel& app_;
    NotchViewModel& model_;
    const Clock& clock_;
    ClosedContent content_;
    WingContent wings_;
    bool appeared_ = false;
    bool refreshQueued_ = false;
    bool hadUnseenFinish_ = false;
    QStringList bubbleKeys_;
    QStringList tabs_;
    QVariantMap badges_;
    QVariantList bubbles_;
    int shelfCount_ = 0;
    std::vector<QMetaObject::Connection> sessionConnections_;
    QTimer labelTimer_;
};

} // namespace mirrowisp
