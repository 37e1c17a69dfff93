#include "island/NotchRootModel.h"

#include "app/AppModel.h"
#include "app/Preferences.h"
#include "base/Clock.h"
#include "island/IslandInputs.h"
#include "island/NotchViewModel.h"

namespace mirrowisp {

namespace {

QStringList keysOf(const QList<SecondaryActivity>& activities) {
    QStringList keys;
    for (const SecondaryActivity& activity : activities) {
        keys.append(activity.key());
    }
    return keys;
}

} // namespace

NotchRootModel::NotchRootModel(AppModel& app, NotchViewModel& model, const Clock& clock, QObject* parent)
    : QObject(parent), app_(app), model_(model), clock_(clock) {
    labelTimer_.setSingleShot(true);
    connect(&labelTimer_, &QTimer::timeout, this, &NotchRootModel::refresh);

    connect(&app_, &AppModel::transientChanged, this, &NotchRootModel::scheduleRefresh);
    connect(&app_, &AppModel::liveEventChanged, this, &NotchRootModel::scheduleRefresh);
    connect(&app_, &AppModel::nowPlayingChanged, this, &NotchRootModel::scheduleRefresh);
    connect(&app_, &AppModel::devicesChanged, this, &NotchRootModel::devicesChanged);
    AgentStore& store = app_.agents();
    connect(&store, &AgentStore::sessionsChanged, this, [this] {
        watchSessions();
        scheduleRefresh();
    });
    connect(&store, &AgentStore::hasUnseenFinishChanged, this, &NotchRootModel::scheduleRefresh);
    connect(&app_.prefs(), &Preferences::shelfEnabledChanged, this, &NotchRootModel::scheduleRefresh);
    // The island's own state changes one at a time and its size is hit-tested right after, so
    // those are evaluated at once.
    connect(&model_, &NotchViewModel::isOpenChanged, this, &NotchRootModel::refresh);
    connect(&model_, &NotchViewModel::isHoveringChanged, this, &NotchRootModel::refresh);
    connect(&model_, &NotchViewModel::notchSizeChanged, this, &NotchRootModel::refresh);
    connect(&model_, &NotchViewModel::notchSizeChanged, this, &NotchRootModel::layoutChanged);
    // Bubbles stand beside the island, so they follow both what is written and how wide it is.
    connect(&model_, &NotchViewModel::secondariesChanged, this, &NotchRootModel::updateBubbles);
    connect(&model_, &NotchViewModel::closedSizeChanged, this, &NotchRootModel::updateBubbles);

    watchSessions();
    refresh();
}

NotchRootModel::~NotchRootModel() {
    for (const auto& connection : sessionConnections_) {
        disconnect(connection);
    }
}

void NotchRootModel::scheduleRefresh() {
    // A hook event changes a session's status and time one after the other; evaluating once after
    // both keeps the wings from flickering through the state in between.
    if (!refreshQueued_) {
        refreshQueued_ = true;
        QMetaObject::invokeMethod(this, &NotchRootModel::refresh, Qt::QueuedConnection);
    }
}

void NotchRootModel::watchSessions() {
    for (const auto& connection : sessionConnections_) {
        disconnect(connection);
    }
    sessionConnections_.clear();
    for (const auto& session : app_.agents().sessions()) {
        AgentSession* watched = session.get();
        for (auto signal : {&AgentSession::statusChanged, &AgentSession::updatedAtChanged,
                            &AgentSession::pendingChanged, &AgentSession::needsUserChanged}) {
            sessionConnections_.push_back(connect(watched, signal, this, &NotchRootModel::scheduleRefresh));
        }
    }
}

void NotchRootModel::refresh() {
    refreshQueued_ = false;
    const IslandInputs inputs = IslandInputs::from(app_);
    ClosedContent next = ClosedContent::resolve(inputs);
    const bool keyChanged = !appeared_ || next.animationKey() != content_.animationKey();
    const bool contentMoved = !appeared_ || next != content_;
    if (keyChanged && appeared_) {
        model_.setAnimation(QStringLiteral("activity"));
    }
    content_ = std::move(next);

    model_.setClosedSize(IslandLayout::closedSize(content_, model_.notchSize(), model_.isHovering()));

    // Written only when the list of keys changes: a new track or a moved meeting keeps the bubbles.
    const QList<SecondaryActivity> bubbles =
        model_.isOpen() ? QList<SecondaryActivity>{} : SecondaryActivity::resolveAll(inputs, content_);
    const QStringList keys = keysOf(bubbles);
    if (!appeared_ || keys != bubbleKeys_) {
        bubbleKeys_ = keys;
        model_.setSecondaries(bubbles);
    }

    const bool unseenFinish = app_.agents().hasUnseenFinish();
    if (keyChanged || unseenFinish != hadUnseenFinish_) {
        model_.setPrimaryTab(IslandLayout::openingTab(content_, unseenFinish));
    }
    hadUnseenFinish_ = unseenFinish;
    // Opening during a meeting should show it, so the home tab turns to the calendar.
    if (keyChanged && appeared_ && content_.kind() == ClosedContent::Case::meeting) {
        const QString calendar = QStringLiteral("calendar");
        if (app_.prefs().homeWidgetSelection() != calendar) {
            app_.prefs().setHomeWidgetSelection(calendar);
        }
    }

    appeared_ = true;
    if (contentMoved) {
        Q_EMIT contentChanged();
    }
    updateWings();
    updateTabsAndBadges();
    updateBubbles();
    armLabelTimer();
}

void NotchRootModel::updateWings() {
    WingContent next = WingContent::make(content_, clock_.now());
    if (next != wings_) {
        wings_ = std::move(next);
        Q_EMIT wingsChanged();
    }
}

void NotchRootModel::updateTabsAndBadges() {
    QStringList tabs;
    for (NotchTab tab : IslandLayout::tabs(app_.prefs().shelfEnabled())) {
        tabs.append(NotchTabs::rawValue(tab));
    }
    if (tabs != tabs_) {
        tabs_ = tabs;
        Q_EMIT tabsChanged();
    }

    std::vector<const AgentSession*> sessions;
    for (const auto& session : app_.agents().sessions()) {
        sessions.push_back(session.get());
    }
    const QVariantMap badges{
        {NotchTabs::rawValue(NotchTab::home), 0},
        {NotchTabs::rawValue(NotchTab::agents), static_cast<int>(IslandLayout::agentsBadge(sessions))},
        {NotchTabs::rawValue(NotchTab::shelf), shelfCount_},
    };
    if (badges != badges_) {
        badges_ = badges;
        Q_EMIT badgesChanged();
    }
}

void NotchRootModel::updateBubbles() {
    QVariantList bubbles;
    for (const BubblePlacement& placed :
         IslandLayout::bubbles(model_.secondaries(), model_.closedSize(), model_.notchSize())) {
        bubbles.append(QVariantMap{
            {QStringLiteral("key"), placed.activity.key()},
            {QStringLiteral("identity"), placed.identity()},
            {QStringLiteral("side"),
             placed.side == BubbleSide::left ? QStringLiteral("left") : QStringLiteral("right")},
            {QStringLiteral("x"), placed.x},
            {QStringLiteral("width"), placed.width},
            {QStringLiteral("height"), placed.height},
        });
    }
    if (bubbles != bubbles_) {
        bubbles_ = bubbles;
        Q_EMIT bubblesChanged();
    }
}

void NotchRootModel::armLabelTimer() {
    // An idle island must not wake up: only a counting label keeps a timer, and only while it counts.
    if (!wings_.refreshSeconds) {
        labelTimer_.stop();
    } else if (!labelTimer_.isActive()) {
        labelTimer_.start(*wings_.refreshSeconds * 1000);
    }
}

double NotchRootModel::spacerWidth() const {
    return IslandLayout::spacerWidth(model_.notchSize());
}

double NotchRootModel::outerInset() const {
    return IslandLayout::outerInset(model_.notchSize());
}

void NotchRootModel::setShelfCount(int count) {
    if (count != shelfCount_) {
        shelfCount_ = count;
        updateTabsAndBadges();
    }
}

QVariantMap NotchRootModel::devices() const {
    return app_.devices();
}

} // namespace mirrowisp
