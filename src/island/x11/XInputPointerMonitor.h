#pragma once

#include <QObject>
#include <QPoint>
#include <QString>
#include <memory>

class QSocketNotifier;
struct xcb_connection_t;

namespace mirrowisp {

// The pointer anywhere on the screen, over any client's window: XInput 2 raw motion and button events
// selected on the root window over a connection of its own. Raw events carry no position, so after
// each burst the pointer is queried once and the signals carry that position, in Qt's global
// coordinates: a press read in the same burst as later motion reports where the pointer is now.
// Raw events come from devices only, so a pointer warped by a program (XWarpPointer) goes unseen
// until it moves again. Where XInput 2 is missing or the display cannot be reached `isAvailable()`
// is false and nothing is emitted; under XWayland raw events only cover the app's own windows. The
// island window's own pointer signals are then what the controller has.
class XInputPointerMonitor final : public QObject {
    Q_OBJECT
public:
    // `display` as in DISPLAY; empty means the environment's.
    explicit XInputPointerMonitor(const QString& display = {}, QObject* parent = nullptr);
    ~XInputPointerMonitor() override;
    XInputPointerMonitor(const XInputPointerMonitor&) = delete;
    XInputPointerMonitor& operator=(const XInputPointerMonitor&) = delete;

    bool isAvailable() const { return connection_ != nullptr; }
    // Whether the server reports the pointer over every window: false under XWayland, where the
    // compositor shows X clients the pointer only over their own windows.
    bool coversWholeScreen() const { return isAvailable() && !xwayland_; }
    // Why the monitor is unavailable; empty when it works.
    const QString& error() const { return error_; }

Q_SIGNALS:
    void moved(QPoint global);
    void leftPressed(QPoint global);
    void leftReleased(QPoint global);
    // Motion while the left button is held.
    void leftDragged(QPoint global);
    // Any other button (middle, right, wheel steps are buttons 4 to 7 and are left out).
    void otherPressed(QPoint global, int button);

private:
    struct Burst;
    bool open(const QString& display);
    void close();
    void readEvents();
    void report(const Burst& burst);

    xcb_connection_t* connection_ = nullptr;
    std::unique_ptr<QSocketNotifier> notifier_;
    uint32_t root_ = 0;
    uint8_t xinputOpcode_ = 0;
    bool leftHeld_ = false;
    bool xwayland_ = false;
    QString error_;
};

} // namespace mirrowisp
