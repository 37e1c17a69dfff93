#include "system/SystemHud.h"

#include "system/LevelControl.h"
#include "system/SystemAudio.h"

#include <algorithm>
#include <cmath>

namespace mirrowisp {

namespace {

constexpr double glideBaseAge = 0.15;

bool raises(MediaKeyTap::Key key) {
    using Key = MediaKeyTap::Key;
    return key == Key::volumeUp || key == Key::brightnessUp || key == Key::keyboardUp;
}

} // namespace

SystemHud::SystemHud(const Clock& clock, SystemAudio* audio, LevelControl* brightness, LevelControl* keyboard)
    : clock_(clock), audio_(audio), brightness_(brightness), keyboard_(keyboard) {}

SystemHud::Control SystemHud::controlOf(Key key) {
    switch (key) {
    case Key::volumeUp:
    case Key::volumeDown:
    case Key::mute:
        return Control::volume;
    case Key::brightnessUp:
    case Key::brightnessDown:
        return Control::brightness;
    case Key::keyboardUp:
    case Key::keyboardDown:
        break;
    }
    return Control::keyboard;
}

std::optional<double> SystemHud::level(Control control) const {
    switch (control) {
    case Control::volume:
        return audio_ != nullptr && audio_->isAvailable() ? std::optional(audio_->volume()) : std::nullopt;
    case Control::brightness:
        return brightness_ != nullptr ? brightness_->level() : std::nullopt;
    case Control::keyboard:
        break;
    }
    return keyboard_ != nullptr ? keyboard_->level() : std::nullopt;
}

std::optional<SystemHud::Control> SystemHud::controlNamed(const QString& name) {
    if (name == QLatin1String("volume")) {
        return Control::volume;
    }
    if (name == QLatin1String("brightness")) {
        return Control::brightness;
    }
    if (name == QLatin1String("keyboard")) {
        return Control::keyboard;
    }
    return std::nullopt;
}

QJsonObject SystemHud::toJson() const {
    QJsonObject json;
    if (const auto volume = level(Control::volume)) {
        json.insert(QStringLiteral("volume"), *volume);
        json.insert(QStringLiteral("muted"), isMuted());
    }
    if (const auto brightness = level(Control::brightness)) {
        json.insert(QStringLiteral("brightness"), *brightness);
    }
    if (const auto keyboard = level(Control::keyboard)) {
        json.insert(QStringLiteral("keyboard"), *keyboard);
    }
    return json;
}

bool SystemHud::isMuted() const {
    return audio_ != nullptr && audio_->isMuted();
}

bool SystemHud::wouldHandle(Key key) const {
    switch (controlOf(key)) {
    case Control::volume:
        return audio_ != nullptr && audio_->isAvailable();
    case Control::brightness:
        return brightness_ != nullptr && brightness_->canAdjust();
    case Control::keyboard:
        break;
    }
    return keyboard_ != nullptr && keyboard_->canAdjust();
}

bool SystemHud::handleKey(Key key, bool fine) {
    if (!isEnabled()) {
        return false;
    }
    const double step = fine ? 1.0 / 64 : 1.0 / 16;
    const Control control = controlOf(key);
    const double sign = raises(key) ? 1 : -1;
    if (control == Control::volume) {
        if (audio_ == nullptr || !audio_->isAvailable()) {
            return false;
        }
        if (key == Key::mute) {
            audio_->setMuted(!audio_->isMuted());
        } else {
            audio_->setVolume(std::round((audio_->volume() + sign * step) / step) * step);
            if (key == Key::volumeUp && audio_->isMuted()) {
                audio_->setMuted(false);
            }
        }
        flash(control, audio_->volume());
        return true;
    }
    LevelControl* light = control == Control::brightness ? brightness_ : keyboard_;
    const std::optional<double> next = light != nullptr ? light->adjust(sign * step, true) : std::nullopt;
    if (!next) {
        return false;
    }
    flash(control, *next);
    return true;
}

void SystemHud::glide(Key key, double amount) {
    if (!isEnabled()) {
        return;
    }
    const Control control = controlOf(key);
    const std::optional<double> current = level(control);
    if (!current) {
        return;
    }
    const Timestamp now = clock_.now();
    const double base = glideLevel_ && glideLevel_->key == key && now - glideLevel_->at < glideBaseAge
                            ? glideLevel_->value
                            : *current;
    const double next = raises(key) ? std::min(base + amount, 1.0) : std::max(base - amount, 0.0);
    glideLevel_ = GlideLevel{key, next, now};
    if (control == Control::volume) {
        audio_->setVolume(next);
        if (key == Key::volumeUp && audio_->isMuted()) {
            audio_->setMuted(false);
        }
        flash(control, next);
        return;
    }
    LevelControl* light = control == Control::brightness ? brightness_ : keyboard_;
    const std::optional<double> applied = light->adjust(next - *current, false);
    if (applied) {
        flash(control, *applied);
    }
}

bool SystemHud::set(Control control, double value) {
    if (!has(control)) {
        return false;
    }
    value = std::clamp(value, 0.0, 1.0);
    if (control == Control::volume) {
        audio_->setVolume(value);
        return true;
    }
    LevelControl* light = control == Control::brightness ? brightness_ : keyboard_;
    return light->adjust(value - *light->level(), false).has_value();
}

void SystemHud::flash(Control control, double level) {
    if (show) {
        show(control, level, control == Control::volume && isMuted());
    }
}

} // namespace mirrowisp
