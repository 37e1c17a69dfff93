#include "front/SettingsWindow.h"

#include "base/Log.h"
#include "front/SettingsAgentList.h"
#include "front/SettingsModel.h"
#include "front/SettingsViewLoader.h"

#include <QQuickWindow>

namespace mirrowisp {

SettingsWindow::SettingsWindow(SettingsServices services, QQmlEngine& engine, QObject* parent)
    : QObject(parent), engine_(engine), agents_(std::make_unique<SettingsAgentList>(services)),
      model_(std::make_unique<SettingsModel>(services, *agents_)) {}

SettingsWindow::~SettingsWindow() = default;

bool SettingsWindow::load() {
    if (!window_ && !failed_) {
        window_ = loadWindow(engine_, QStringLiteral("SettingsWindow.qml"),
                             {{QStringLiteral("settings"), QVariant::fromValue(model_.get())}});
        failed_ = !window_;
    }
    return window_ != nullptr;
}

void SettingsWindow::show(const QString& page) {
    model_->setPage(page);
    if (!load()) {
        logLine(QStringLiteral("Mirrowisp: the settings window could not be made"));
        return;
    }
    // Hooks change behind the app's back: each showing reads them again.
    agents_->refresh();
    bringForward(*window_);
}

} // namespace mirrowisp
