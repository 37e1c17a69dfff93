#pragma once

#include "base/Clock.h"
#include "system/AudioOutput.h"
#include "system/LevelControl.h"
#include "system/MediaKeyTap.h"
#include "system/SystemAudio.h"
#include "system/SystemHud.h"
#include "system/Timer.h"

#include <QString>
#include <functional>
#include <memory>

namespace mirrowisp {

class X11MediaKeyGrab;

// The volume, the screen brightness and the keyboard light with their keys, put together: what the
// app owns. The keys are grabbed only while the HUD is on and only for controls that exist, so the
// others stay the desktop's; a desktop that holds them already keeps them, and its changes show
// the island's display just the same.
class SystemControls {
public:
    struct Backends {
        std::unique_ptr<AudioOutput> audio;
        std::unique_ptr<LevelDevice> screen;
        std::unique_ptr<LevelDevice> keyboard;
        bool grabKeys = true;
        QString display; // empty: the environment's
    };
    // libpulse, the kernel's backlight and UPower; keys only on an X11 session.
    static Backends linuxBackends();

    explicit SystemControls(Backends backends, const Clock& clock = SystemClock::shared(),
                            const TimerFactory& timers = makeQtTimer);
    ~SystemControls();
    SystemControls(const SystemControls&) = delete;
    SystemControls& operator=(const SystemControls&) = delete;

    void start();
    // The HUD preference: off releases the keys and shows nothing.
    void setEnabled(bool enabled);
    bool isEnabled() const { return enabled_; }
    // Whether the keys are ours (false when the desktop holds them, or with no X11).
    bool holdsKeys() const;

    SystemHud& hud() { return hud_; }
    const SystemHud& hud() const { return hud_; }

    // A level to show: the control, its level, and for the volume whether it is muted.
    std::function<void(SystemHud::Control, double, bool)> show;
    // A new default output that is a Bluetooth device: its address.
    std::function<void(const QString&)> onBluetoothOutput;

private:
    void refreshGrabs();
    void showExternal(SystemHud::Control control, double level, bool muted);

    const Clock& clock_;
    SystemAudio audio_;
    LevelControl screen_;
    LevelControl keyboard_;
    SystemHud hud_;
    MediaKeyTap tap_;
    bool grabKeys_;
    QString display_;
    std::unique_ptr<X11MediaKeyGrab> grab_;
    bool enabled_ = true;
    bool started_ = false;
    bool toldHeld_ = false;
};

} // namespace mirrowisp
