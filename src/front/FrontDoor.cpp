#include "front/FrontDoor.h"

#include "app/AppModel.h"
#include "base/UserDefaults.h"
#include "front/SettingsWindow.h"
#include "front/SetupGuideModel.h"
#include "front/SetupGuideWindow.h"

#include <QQmlEngine>
#include <mutex>

void qml_register_types_MirrowispFront();

namespace mirrowisp {

FrontDoor::FrontDoor(SettingsServices services, QObject* parent)
    : QObject(parent), services_(std::move(services)), model_(services_.model) {
    connect(&model_, &AppModel::settingsRequested, this, &FrontDoor::showSettings);
    connect(&model_, &AppModel::setupGuideRequested, this, &FrontDoor::showSetupGuide);
}

FrontDoor::~FrontDoor() {
    // The windows' views go before the engine that made them.
    settings_.reset();
    guide_.reset();
}

void FrontDoor::registerTypes() {
    static std::once_flag once;
    std::call_once(once, [] { qml_register_types_MirrowispFront(); });
}

QQmlEngine& FrontDoor::engine() {
    if (!engine_) {
        registerTypes();
        engine_ = std::make_unique<QQmlEngine>();
    }
    return *engine_;
}

void FrontDoor::showSettings(const QString& page) {
    if (!settings_) {
        settings_ = std::make_unique<SettingsWindow>(services_, engine());
    }
    settings_->show(page);
}

void FrontDoor::showSetupGuide() {
    if (!guide_) {
        guide_ = std::make_unique<SetupGuideWindow>(services_, engine());
    }
    guide_->show();
}

void FrontDoor::showSetupGuideOnFirstLaunch() {
    if (!model_.defaults().boolValue(SetupGuideModel::completedKey).value_or(false)) {
        showSetupGuide();
    }
}

} // namespace mirrowisp
