#include "system/SystemControls.h"

#include "base/Log.h"
#include "system/linux/PulseAudioOutput.h"
#include "system/linux/SysfsBacklight.h"
#include "system/linux/UPowerKbdBacklight.h"
#include "system/x11/X11MediaKeyGrab.h"

namespace mirrowisp {

namespace {

using Key = MediaKeyTap::Key;

// No light at all: its keys stay the desktop's.
class NoLight final : public LevelDevice {
public:
    std::optional<double> read() override { return std::nullopt; }
    bool canWrite() const override { return false; }
    void write(double) override {}
};

std::unique_ptr<LevelDevice> orNoLight(std::unique_ptr<LevelDevice> device) {
    return device ? std::move(device) : std::make_unique<NoLight>();
}

} // namespace

SystemControls::Backends SystemControls::linuxBackends() {
    Backends backends;
    backends.audio = std::make_unique<PulseAudioOutput>();
    // Another backlight folder, for benchmarks on machines without a panel.
    const QString backlightRoot =
        qEnvironmentVariable("MIRROWISP_BACKLIGHT_ROOT", SysfsBacklight::defaultRoot);
    backends.screen = std::make_unique<SysfsBacklight>(QDBusConnection::systemBus(), backlightRoot);
    backends.keyboard = std::make_unique<UPowerKbdBacklight>();
    // A Wayland session gives no global grabs, and XWayland's would only see its own clients.
    backends.grabKeys =
        qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") && !qEnvironmentVariableIsEmpty("DISPLAY");
    return backends;
}

SystemControls::SystemControls(Backends backends, const Clock& clock, const TimerFactory& timers)
    : clock_(clock), audio_(std::move(backends.audio), clock, timers()),
      screen_(orNoLight(std::move(backends.screen)), clock, timers()),
      keyboard_(orNoLight(std::move(backends.keyboard)), clock, timers()),
      hud_(clock, &audio_, &screen_, &keyboard_), tap_(clock, timers()), grabKeys_(backends.grabKeys),
      display_(std::move(backends.display)) {
    hud_.enabled = [this] { return enabled_; };
    hud_.show = [this](SystemHud::Control control, double level, bool muted) {
        if (show) {
            show(control, level, muted);
        }
    };
    tap_.handler = [this](Key key, bool fine) {
        const bool handled = hud_.handleKey(key, fine);
        if (!handled) {
            refreshGrabs(); // a control that stopped answering gives its keys back
        }
        return handled;
    };
    tap_.glideHandler = [this](Key key, double amount) { hud_.glide(key, amount); };
    tap_.wouldHandle = [this](Key key) { return hud_.wouldHandle(key); };
    audio_.onChange = [this](double volume, bool muted) {
        showExternal(SystemHud::Control::volume, volume, muted);
    };
    audio_.onOutputChange = [this](const QString& address) {
        if (onBluetoothOutput) {
            onBluetoothOutput(address);
        }
    };
    audio_.onAvailabilityChange = [this](bool) { refreshGrabs(); };
    screen_.onAvailabilityChange = [this] { refreshGrabs(); };
    keyboard_.onAvailabilityChange = [this] { refreshGrabs(); };
    screen_.onExternalChange = [this](double level) {
        showExternal(SystemHud::Control::brightness, level, false);
    };
    keyboard_.onExternalChange = [this](double level) {
        showExternal(SystemHud::Control::keyboard, level, false);
    };
}

SystemControls::~SystemControls() = default;

void SystemControls::start() {
    if (started_) {
        return;
    }
    started_ = true;
    if (grabKeys_) {
        grab_ = std::make_unique<X11MediaKeyGrab>(display_);
        grab_->onKey = [this](uint32_t data1, uint32_t flags) { tap_.process(data1, flags); };
    }
    audio_.start();
    screen_.start();
    keyboard_.start();
    refreshGrabs();
}

void SystemControls::setEnabled(bool enabled) {
    if (enabled == enabled_) {
        return;
    }
    enabled_ = enabled;
    if (!enabled) {
        tap_.stopRepeating();
    }
    refreshGrabs();
}

bool SystemControls::holdsKeys() const {
    return grab_ && !grab_->grabbed().empty();
}

void SystemControls::refreshGrabs() {
    if (!grab_ || !grab_->isAvailable()) {
        return;
    }
    std::vector<Key> keys;
    if (enabled_) {
        for (Key key : {Key::volumeUp, Key::volumeDown, Key::mute, Key::brightnessUp, Key::brightnessDown,
                        Key::keyboardUp, Key::keyboardDown}) {
            if (hud_.wouldHandle(key)) {
                keys.push_back(key);
            }
        }
    }
    if (keys == grab_->grabbed()) {
        return;
    }
    if (grab_->grab(keys) == X11MediaKeyGrab::Result::heldByAnother && !toldHeld_) {
        toldHeld_ = true;
        logLine(
            QStringLiteral("Mirrowisp: the desktop holds the volume and brightness keys; the island follows "
                           "its changes instead"));
    }
}

void SystemControls::showExternal(SystemHud::Control control, double level, bool muted) {
    if (enabled_ && show) {
        show(control, level, muted);
    }
}

} // namespace mirrowisp
