#include "front/SettingsWindow.h"

#include "base/Log.h"
#include "front/SettingsAgentHealth.h"
#include "front/SettingsAgentList.h"
#include "front/SettingsDecisions.h"
#include "front/SettingsModel.h"
#include "front/SettingsViewLoader.h"

#include <QQuickWindow>

namespace mirrowisp {

SettingsWindow::SettingsWindow(SettingsServices services, QQmlEngine& engine, QObject* parent)
    : QObject(parent), engine_(engine), agents_(std::make_unique<SettingsAgentList>(services)),
      health_(std::make_unique<SettingsAgentHealth>(services)),
      decisions_(std::make_unique<SettingsDecisions>(services)),
      model_(
          std::make_unique<SettingsModel>(services, SettingsModel::Parts{*agents_, *health_, *decisions_})) {}

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
    // Hooks and the log change behind the app's back: each showing reads them again.
    agents_->refresh();
    if (model_->page() == u"agents") {
        health_->refresh();
    } else if (model_->page() == u"decisions") {
        decisions_->refresh();
    }
    bringForward(*window_);
}

} // namespace mirrowisp
