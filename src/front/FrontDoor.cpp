#include "front/FrontDoor.h"

#include "app/AppModel.h"
#include "app/TransientActivity.h"
#include "app/WhatsNew.h"
#include "base/Clock.h"
#include "base/Log.h"
#include "base/UserDefaults.h"
#include "front/DesktopActions.h"
#include "front/TrayItem.h"

#include <QTimer>

void qml_register_types_MirrowispFront();

namespace mirrowisp {

namespace {

const QString onboardingKey = QStringLiteral("didCompleteOnboarding");
// The island shows first; the flash follows once it is there.
constexpr int updatedFlashDelayMs = 3000;
constexpr double updatedFlashSeconds = 5.0;

} // namespace

FrontDoor::FrontDoor(AppModel& model, const Clock& clock, QObject* parent)
    : QObject(parent), model_(model), clock_(clock) {
    connect(&model_, &AppModel::settingsRequested, this, &FrontDoor::showSettings);
    connect(&model_, &AppModel::setupGuideRequested, this, &FrontDoor::showSetupGuide);
}

FrontDoor::~FrontDoor() = default;

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
        return WhatsNew::recentUpdate(model_.defaults(), version_, clock_.now());
    };
    tray_ = std::make_unique<TrayItem>(std::move(actions));
    tray_->install();

    if (!model_.defaults().boolValue(onboardingKey).value_or(false)) {
        showSetupGuide();
    }
    if (const auto updated = WhatsNew::checkAtLaunch(model_.defaults(), version_, clock_.now())) {
        QTimer::singleShot(updatedFlashDelayMs, this, [this, text = *updated] {
            TransientActivity activity;
            activity.kind = TransientActivity::Case::updated;
            activity.text = text;
            model_.flash(activity, updatedFlashSeconds);
        });
    }
}

void FrontDoor::registerTypes() {
    qml_register_types_MirrowispFront();
}

void FrontDoor::showSettings(const QString& page) {
    logLine(QStringLiteral("Mirrowisp: settings asked for ") + page);
}

void FrontDoor::showSetupGuide() {
    logLine(QStringLiteral("Mirrowisp: setup guide asked for"));
}

} // namespace mirrowisp
