#include "island/IslandShell.h"

#include "app/AppModel.h"
#include "app/Preferences.h"
#include "base/Clock.h"
#include "base/Log.h"
#include "island/AgentsViewModel.h"
#include "island/CodexApprovalNotice.h"
#include "island/DecisionCardActions.h"
#include "island/DecisionCardModel.h"
#include "island/HookDriftWatch.h"
#include "island/IslandControls.h"
#include "island/IslandUsageModel.h"
#include "island/MarkdownModel.h"
#include "island/NotchAnimation.h"
#include "island/NotchManager.h"
#include "island/NotchRootModel.h"
#include "island/NotchShapeItem.h"
#include "island/NotchViewModel.h"
#include "island/NotchWindowController.h"
#include "island/NowPlayingViewModel.h"
#include "island/QtScreenSource.h"
#include "island/ShelfViewModel.h"
#include "island/TimerDelayedTasks.h"
#include "island/x11/IslandWindow.h"
#include "island/x11/X11DragWatch.h"
#include "island/x11/X11KeyGrab.h"
#include "island/x11/XInputPointerMonitor.h"
#include "media/NowPlayingService.h"

#include <QCursor>
#include <QJsonObject>
#include <QQmlEngine>
#include <QQuickItem>

// Made by the QML module's type registration.
void qml_register_types_Mirrowisp();

namespace mirrowisp {

namespace {

const char* const rootModelProperty = "mirrowispRootModel";

// Far off every screen: where the pointer "is" once it left the island and nothing reports it.
const QPointF nowhere(-1e6, -1e6);

QJsonObject sizeJson(QSizeF size) {
    return {{QStringLiteral("width"), size.width()}, {QStringLiteral("height"), size.height()}};
}

// The island's visible buttons and sliders by name with their global rectangles, so scripts can
// press them.
void collectButtons(QQuickItem* item, const QPoint& origin, QJsonArray& out) {
    if (item == nullptr || !item->isVisible() || item->opacity() <= 0) {
        return;
    }
    if (item->objectName().endsWith(QLatin1StringView("Button")) ||
        item->objectName().endsWith(QLatin1StringView("Slider"))) {
        const QRectF rect = item->mapRectToScene(item->boundingRect()).translated(origin);
        out.append(QJsonObject{{QStringLiteral("name"), item->objectName()},
                               {QStringLiteral("x"), rect.x()},
                               {QStringLiteral("y"), rect.y()},
                               {QStringLiteral("width"), rect.width()},
                               {QStringLiteral("height"), rect.height()}});
    }
    for (QQuickItem* child : item->childItems()) {
        collectButtons(child, origin, out);
    }
}

} // namespace

IslandShell::IslandShell(AppModel& app, Jump jump, QObject* parent)
    : QObject(parent), app_(app), jump_(std::move(jump)), hookDrift_(std::make_unique<HookDriftWatch>(app)) {
    connect(&app_.prefs(), &Preferences::islandStyleChanged, this, &IslandShell::glassChanged);
}

IslandShell::~IslandShell() {
    app_.setNotch(nullptr);
    // Windows (and the views bound to the models below) go before the models.
    manager_.reset();
}

void IslandShell::registerTypes() {
    // The module's types register when QML first imports it; naming the function keeps its
    // registration in the program, which links the island as a static library without a plugin.
    volatile auto registration = &qml_register_types_Mirrowisp;
    Q_UNUSED(registration);
}

bool IslandShell::glass() const {
    return app_.prefs().islandStyleRaw() == QLatin1StringView("glass");
}

void IslandShell::start() {
    registerTypes();
    screens_ = std::make_unique<QtScreenSource>();
    tasks_ = std::make_unique<TimerDelayedTasks>();
    cardActions_ = std::make_unique<DecisionCardActions>(app_.agents(),
                                                         DecisionCardActions::timerSchedule(this), [this] {
                                                             if (manager_) {
                                                                 manager_->closeAutomaticallyOpened();
                                                             }
                                                         });
    // Codex has no desktop app on Linux: the notice always points at the terminal.
    codexNotice_ = std::make_unique<CodexApprovalNotice>(app_.agents(), CodexHookApproval::AppLookup{});
    agents_ = std::make_unique<AgentsViewModel>(app_.agents(), *cardActions_, *codexNotice_,
                                                SystemClock::shared(), jump_);
    usage_ = std::make_unique<IslandUsageModel>(app_.usage());
    monitor_ = std::make_unique<XInputPointerMonitor>();
    if (!monitor_->isAvailable()) {
        logLine(QStringLiteral(
                    "Mirrowisp: no global pointer (%1); the island follows the pointer over itself only")
                    .arg(monitor_->error()));
    }
    drags_ = std::make_unique<X11DragWatch>();
    keys_ = std::make_unique<X11KeyGrab>();
    space_ = std::make_unique<X11KeyGrab>(QStringLiteral(" "));
    NowPlayingViewModel::setShared(app_.nowPlayingService());
    ShelfViewModel::setShared(&app_);

    const IslandPanelFactory makePanel = [this](const NotchScreen&,
                                                NotchViewModel& model) -> std::unique_ptr<IslandPanel> {
        auto window = std::make_unique<IslandWindow>();
        auto* content = new NotchRootModel(app_, model, SystemClock::shared(), window.get());
        window->setProperty(rootModelProperty, QVariant::fromValue<QObject*>(content));
        content->setShelfCount(static_cast<int>(app_.shelf().items().size()));
        connect(&app_.shelf(), &ShelfStore::itemsChanged, content,
                [this, content] { content->setShelfCount(static_cast<int>(app_.shelf().items().size())); });
        IslandWindow* raw = window.get();
        connect(raw, &IslandWindow::escapePressed, this, [this] { manager_->handleEscape(); });
        connect(raw, &IslandWindow::keyboardFocusLost, this, [this] { app_.setIsEditingText(false); });
        // The monitor hears devices only: a pointer warped onto or off the island (a window manager's
        // key, a remote desktop) shows in the window's own enter and leave events alone, and a region
        // that grows or shrinks under a resting pointer in a query of where it is.
        connect(raw, &IslandWindow::pointerMoved, this,
                [this](QPoint at) { pointerEvent(static_cast<int>(IslandMouseEvent::mouseMoved), at); });
        connect(raw, &IslandWindow::pointerLeft, this,
                [this] { pointerEvent(static_cast<int>(IslandMouseEvent::mouseMoved), whereIsPointer()); });
        connect(
            raw, &IslandWindow::inputRegionChanged, this,
            [this] {
                if (monitor_->coversWholeScreen()) {
                    pointerEvent(static_cast<int>(IslandMouseEvent::mouseMoved), whereIsPointer());
                }
            },
            Qt::QueuedConnection);
        // Where the monitor does not see the whole screen (XWayland), the window's presses stand in too.
        if (!monitor_->coversWholeScreen()) {
            connect(raw, &IslandWindow::pointerPressed, this, [this](QPoint at, Qt::MouseButton button) {
                if (button == Qt::LeftButton) {
                    pointerEvent(static_cast<int>(IslandMouseEvent::leftMouseDown), at);
                }
            });
        }
        return window;
    };
    manager_ = std::make_unique<NotchManager>(
        *screens_, IslandEnvironment{app_.prefs(), app_, *tasks_, pointer_, drags_.get()}, makePanel);
    connect(manager_.get(), &NotchManager::controllersChanged, this, &IslandShell::attachViews);
    app_.setNotch(manager_.get());

    connect(monitor_.get(), &XInputPointerMonitor::moved, this,
            [this](QPoint at) { pointerEvent(static_cast<int>(IslandMouseEvent::mouseMoved), at); });
    connect(monitor_.get(), &XInputPointerMonitor::leftPressed, this,
            [this](QPoint at) { pointerEvent(static_cast<int>(IslandMouseEvent::leftMouseDown), at); });
    connect(monitor_.get(), &XInputPointerMonitor::leftDragged, this,
            [this](QPoint at) { pointerEvent(static_cast<int>(IslandMouseEvent::leftMouseDragged), at); });
    connect(monitor_.get(), &XInputPointerMonitor::leftReleased, this,
            [this](QPoint at) { pointerEvent(static_cast<int>(IslandMouseEvent::leftMouseUp), at); });
    connect(keys_.get(), &X11KeyGrab::pressed, this, &IslandShell::permissionKey);
    connect(space_.get(), &X11KeyGrab::pressed, this, [this] {
        if (NowPlayingService* media = app_.nowPlayingService()) {
            media->send(QStringLiteral("playpause"));
        }
    });
    connect(&app_, &AppModel::nowPlayingChanged, this, &IslandShell::updateSpaceGrab);
    connect(&app_, &AppModel::isEditingTextChanged, this, &IslandShell::updateSpaceGrab);
    connect(&app_, &AppModel::lockedChanged, this, &IslandShell::updateKeyGrab);
    connect(agents_.get(), &QAbstractItemModel::modelReset, this, &IslandShell::updateKeyGrab);
    connect(agents_.get(), &QAbstractItemModel::dataChanged, this, &IslandShell::updateKeyGrab);

    manager_->start();
    attachViews();
}

void IslandShell::attachViews() {
    attached_.removeAll(nullptr);
    for (NotchWindowController* controller : manager_->controllers()) {
        auto* window = dynamic_cast<IslandWindow*>(controller->panel());
        if (window == nullptr || attached_.contains(window)) {
            continue;
        }
        connect(&controller->model(), &NotchViewModel::isOpenChanged, this, &IslandShell::updateKeyGrab);
        // Looking at the agents tab is looking at what finished.
        auto seen = [this, model = &controller->model()] {
            if (model->isOpen() && model->tab() == NotchTab::agents) {
                app_.agents().setHasUnseenFinish(false);
            }
        };
        connect(&controller->model(), &NotchViewModel::isOpenChanged, this, seen);
        connect(&controller->model(), &NotchViewModel::tabChanged, this, seen);
        connect(&controller->model(), &NotchViewModel::tabChanged, this, &IslandShell::updateKeyGrab);
        // A card that grows the panel can bring it under a pointer that did not move.
        connect(&controller->model(), &NotchViewModel::targetSizeChanged, this, &IslandShell::updateKeyGrab);
        // What the root view requires; it hands each part down to the views that use it.
        const auto object = [](QObject* value) { return QVariant::fromValue(value); };
        const QVariantMap views{
            {QStringLiteral("island"), object(&controller->model())},
            {QStringLiteral("content"), window->property(rootModelProperty)},
            {QStringLiteral("agents"), object(agents_.get())},
            {QStringLiteral("usage"), object(usage_.get())},
            {QStringLiteral("shell"), object(this)},
            {QStringLiteral("controller"), object(new IslandControls(*controller, window))},
        };
        if (const auto errors =
                window->setContent(QUrl(QStringLiteral("qrc:/Mirrowisp/qml/NotchRootView.qml")), views)) {
            logLine(QStringLiteral("Mirrowisp: the island's views did not load: ") +
                    errors->join(QStringLiteral("; ")));
        }
        attached_.append(window);
    }
}

void IslandShell::openSettings(const QString& page) {
    app_.requestSettings(page);
}

void IslandShell::openSetupGuide() {
    app_.requestSetupGuide();
}

void IslandShell::quitApp() {
    app_.requestQuit();
}

QPointF IslandShell::whereIsPointer() const {
    // Under XWayland the server knows the pointer only over the app's own windows: once it left
    // them, it is nowhere the island could be.
    return monitor_->coversWholeScreen() ? QPointF(QCursor::pos()) : nowhere;
}

void IslandShell::pointerEvent(int kind, QPointF global) {
    if (!manager_) {
        return; // the islands are being torn down; a window that goes reports the pointer leaving
    }
    pointer_.setPosition(global);
    manager_->handleMouse(static_cast<IslandMouseEvent>(kind), global);
    updateKeyGrab();
}

QString IslandShell::firstPermissionID() const {
    for (int row = 0; row < agents_->rowCount(); ++row) {
        const QModelIndex at = agents_->index(row);
        if (agents_->data(at, AgentsViewModel::DecisionKindRole).toString() ==
            QLatin1StringView("permission")) {
            return agents_->data(at, AgentsViewModel::DecisionIDRole).toString();
        }
    }
    return {};
}

void IslandShell::updateKeyGrab() {
    if (!keys_ || !manager_) {
        return;
    }
    bool wanted = false;
    for (NotchWindowController* controller : manager_->controllers()) {
        const NotchViewModel& model = controller->model();
        wanted =
            wanted || (model.isOpen() && model.tab() == NotchTab::agents && controller->isPointerOver(12));
    }
    // While the session is locked the keys belong to the locker.
    keys_->setGrabbed(wanted && !firstPermissionID().isEmpty() && !app_.isLocked());
    updateSpaceGrab();
}

void IslandShell::updateSpaceGrab() {
    if (!space_ || !manager_) {
        return;
    }
    bool overOpenIsland = false;
    for (NotchWindowController* controller : manager_->controllers()) {
        overOpenIsland = overOpenIsland || (controller->model().isOpen() && controller->isPointerOver(0));
    }
    space_->setGrabbed(!app_.isLocked() && !app_.isEditingText() && !manager_->isTyping() &&
                       app_.nowPlaying().has_value() && overOpenIsland);
}

void IslandShell::permissionKey(const QString& key) {
    const QString id = firstPermissionID();
    auto* card = qobject_cast<DecisionCardModel*>(id.isEmpty() ? nullptr : agents_->card(id));
    if (card == nullptr) {
        return;
    }
    if (key == QLatin1StringView("y") || key == QLatin1StringView("n")) {
        card->answerWithKey(key == QLatin1StringView("y"));
    }
}

void IslandShell::setTextFieldFocused(bool focused) {
    app_.setIsEditingText(focused);
}

void IslandShell::focusTextField(QQuickItem* field) {
    if (field == nullptr) {
        return;
    }
    if (auto* window = qobject_cast<IslandWindow*>(field->window())) {
        window->requestKeyboardFocus();
    }
    field->forceActiveFocus(Qt::MouseFocusReason);
}

QJsonArray IslandShell::toJson() const {
    QJsonArray islands;
    if (!manager_) {
        return islands;
    }
    for (NotchWindowController* controller : manager_->controllers()) {
        const NotchViewModel& model = controller->model();
        QJsonArray secondaries;
        for (const QString& key : model.secondaryKeys()) {
            secondaries.append(key);
        }
        QJsonObject island{
            {QStringLiteral("screen"), controller->screen().name},
            {QStringLiteral("displayID"), static_cast<qint64>(controller->screenID())},
            {QStringLiteral("isOpen"), model.isOpen()},
            {QStringLiteral("isHovering"), model.isHovering()},
            {QStringLiteral("tab"), model.tabName()},
            {QStringLiteral("openedAutomatically"), model.openedAutomatically()},
            {QStringLiteral("closedSize"), sizeJson(model.closedSize())},
            {QStringLiteral("targetSize"), sizeJson(model.targetSize())},
            {QStringLiteral("secondaries"), secondaries},
        };
        auto* window = dynamic_cast<IslandWindow*>(controller->panel());
        if (window != nullptr) {
            if (auto* content =
                    qobject_cast<NotchRootModel*>(window->property(rootModelProperty).value<QObject*>())) {
                island.insert(QStringLiteral("content"), content->animationKey());
            }
            QJsonArray buttons;
            collectButtons(window->contentItem(), window->position(), buttons);
            island.insert(QStringLiteral("buttons"), buttons);
        }
        islands.append(island);
    }
    return islands;
}

} // namespace mirrowisp
