#include "front/FrontDoor.h"

#include "app/AppModel.h"
#include "base/Log.h"

void qml_register_types_MirrowispFront();

namespace mirrowisp {

FrontDoor::FrontDoor(AppModel& model, QObject* parent) : QObject(parent), model_(model) {
    connect(&model_, &AppModel::settingsRequested, this, &FrontDoor::showSettings);
    connect(&model_, &AppModel::setupGuideRequested, this, &FrontDoor::showSetupGuide);
}

FrontDoor::~FrontDoor() = default;

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
