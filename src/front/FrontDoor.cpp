#include "front/FrontDoor.h"

#include "app/AppModel.h"
#include "app/TransientActivity.h"
#include "app/WhatsNew.h"
#include "base/Clock.h"
#include "base/UserDefaults.h"
#include "front/DesktopActions.h"
#include "front/SettingsWindow.h"
#include "front/SetupGuideModel.h"
#include "front/SetupGuideWindow.h"
#include "front/TrayItem.h"

#include <QQmlEngine>
#include <QTimer>
#include <mutex>

void qml_register_types_MirrowispFront();

namespace mirrowisp {

namespace {

// The island shows first; the flash follows once it is there.
constexpr int updatedFlashDelayMs = 3000;
constexpr double updatedFlashSeconds = 5.0;

} // namespace

FrontDoor::FrontDoor(SettingsServices services, QObject* parent)
    : QObject(parent), services_(std::move(services)), model_(services_.model) {
    connect(&model_, &AppModel::settingsRequested, this, &FrontDoor::showSettings);
    connect(&model_, &AppModel::setupGuideRequested, this, &FrontDoor::showSetupGuide);
}

FrontDoor::~FrontDoor() {
    // The windows' views go before the engine that made them; the tray item goes with its menu.
    settings_.reset();
    guide_.reset();
    tray_.reset();
}

void FrontDoor::launch(const QString& version) {
    version_ = version;
    TrayItem::Actions actions;
    actions.openSettings = [this] { showSettings(); };
    actions.openSetupGuide = [this] { showSetupGuide(); };
    actions.openAbout = [this] { showSettings(QStringLiteral("about")); };
    actions.openWhatsNew = [](const QString& recent) { DesktopActions::openChangelog(recent); };
    actions.sendFeedback = [] { DesktopActions::sendFeedback(); };
    actions.quit = [this] { model_.requestQuit(); };
    actions.recentUpdate = [this] {
        return WhatsNew::recentUpdate(model_.defaults(), version_, services_.clock.now());
    };
    tray_ = std::make_unique<TrayItem>(std::move(actions));
    tray_->install();

    showSetupGuideOnFirstLaunch();
    if (const auto updated = WhatsNew::checkAtLaunch(model_.defaults(), version_, services_.clock.now())) {
        QTimer::singleShot(updatedFlashDelayMs, this, [this, text = *updated] {
            TransientActivity activity;
            activity.kind = TransientActivity::Case::updated;
            activity.text = text;
            model_.flash(activity, updatedFlashSeconds);
        });
    }
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
