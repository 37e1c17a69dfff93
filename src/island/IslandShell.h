#pragma once

#include "island/PointerSource.h"

#include <QJsonArray>
#include <QObject>
#include <QPointer>
#include <QQuickItem>
#include <QtQml/qqmlregistration.h>
#include <functional>
#include <memory>

namespace mirrowisp {

class AgentSession;
class AgentsViewModel;
class AppModel;
class CodexApprovalNotice;
class DecisionCardActions;
class HookDriftWatch;
class IslandUsageModel;
class IslandWindow;
class NotchManager;
class NotchWindowController;
class QtScreenSource;
class TimerDelayedTasks;
class X11DragWatch;
class X11KeyGrab;
class XInputPointerMonitor;

// The islands as the running app has them: one window per chosen screen with its QML views, fed by
// the global pointer, the permission keys and the app's state. Made only when there is a display.
class IslandShell : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("the app makes it")
    Q_PROPERTY(bool glass READ glass NOTIFY glassChanged)
    Q_PROPERTY(mirrowisp::HookDriftWatch* hookDrift READ hookDrift CONSTANT)

public:
    using Jump = std::function<void(const AgentSession&)>;

    IslandShell(AppModel& app, Jump jump, QObject* parent = nullptr);
    ~IslandShell() override;

    // Registers the view types, builds the islands and starts following screens and the pointer.
    void start();
    NotchManager& manager() { return *manager_; }

    // Each island's state, for `mirrowisp ctl island`.
    QJsonArray toJson() const;

    bool glass() const;
    HookDriftWatch* hookDrift() const { return hookDrift_.get(); }
    // A card's text field took or lost the keyboard: typing holds the island open.
    Q_INVOKABLE void setTextFieldFocused(bool focused);
    // Gives the island's window the keyboard and the field the focus, on a click into it.
    Q_INVOKABLE void focusTextField(QQuickItem* field);

    // The way to the app's own windows and out of it on desktops without a tray.
    Q_INVOKABLE void openSettings(const QString& page = QString());
    Q_INVOKABLE void openSetupGuide();
    Q_INVOKABLE void quitApp();

    // The QML types every island view uses; safe to call more than once.
    static void registerTypes();

Q_SIGNALS:
    void glassChanged();

private:
    void attachViews();
    void pointerEvent(int kind, QPointF global);
    // Where the pointer is now, asked of the server.
    QPointF whereIsPointer() const;
    void updateKeyGrab();
    void permissionKey(const QString& key);
    // Space plays or pauses while the pointer rests on an open island, nothing takes text and a
    // track is there; anywhere else it types.
    void updateSpaceGrab();
    QString firstPermissionID() const;

    AppModel& app_;
    Jump jump_;
    PointerTracker pointer_;
    std::unique_ptr<QtScreenSource> screens_;
    std::unique_ptr<TimerDelayedTasks> tasks_;
    std::unique_ptr<DecisionCardActions> cardActions_;
    std::unique_ptr<CodexApprovalNotice> codexNotice_;
    std::unique_ptr<AgentsViewModel> agents_;
    std::unique_ptr<IslandUsageModel> usage_;
    std::unique_ptr<HookDriftWatch> hookDrift_;
    std::unique_ptr<NotchManager> manager_;
    std::unique_ptr<XInputPointerMonitor> monitor_;
    std::unique_ptr<X11DragWatch> drags_;
    std::unique_ptr<X11KeyGrab> keys_;
    std::unique_ptr<X11KeyGrab> space_;
    QList<QPointer<IslandWindow>> attached_;
};

} // namespace mirrowisp
