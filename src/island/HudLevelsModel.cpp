#include "island/HudLevelsModel.h"

#include "system/SystemHud.h"

#include <algorithm>

namespace mirrowisp {

namespace {

SystemHud* shared = nullptr;

} // namespace

HudLevelsModel::HudLevelsModel(SystemHud* hud, QObject* parent) : QObject(parent), hud_(hud) {
    refresh();
}

void HudLevelsModel::setShared(SystemHud* hud) {
    shared = hud;
}

HudLevelsModel* HudLevelsModel::create(QQmlEngine*, QJSEngine*) {
    return new HudLevelsModel(shared); // the engine owns it
}

void HudLevelsModel::refresh() {
    const auto level = [this](SystemHud::Control control) {
        return hud_ != nullptr ? hud_->level(control).value_or(-1) : -1;
    };
    const double volume = level(SystemHud::Control::volume);
    const double brightness = level(SystemHud::Control::brightness);
    const bool muted = hud_ != nullptr && hud_->isMuted();
    if (volume != volume_ || brightness != brightness_ || muted != muted_) {
        volume_ = volume;
        brightness_ = brightness;
        muted_ = muted;
        Q_EMIT changed();
    }
}

void HudLevelsModel::setVolume(double level) {
    if (hud_ != nullptr && hud_->set(SystemHud::Control::volume, std::clamp(level, 0.0, 1.0))) {
        refresh();
    }
}

void HudLevelsModel::setBrightness(double level) {
    if (hud_ != nullptr && hud_->set(SystemHud::Control::brightness, std::clamp(level, 0.0, 1.0))) {
        refresh();
    }
}

} // namespace mirrowisp
