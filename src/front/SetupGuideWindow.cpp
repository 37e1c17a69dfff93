#include "front/SetupGuideWindow.h"

#include "base/Log.h"
#include "front/SettingsAgentList.h"
#include "front/SettingsViewLoader.h"
#include "front/SetupGuideModel.h"

#include <QQuickWindow>

namespace mirrowisp {

SetupGuideWindow::SetupGuideWindow(SettingsServices services, QQmlEngine& engine, QObject* parent)
    : QObject(parent), engine_(engine), agents_(std::make_unique<SettingsAgentList>(services)),
      model_(std::make_unique<SetupGuideModel>(services, *agents_)) {
    connect(model_.get(), &SetupGuideModel::finished, this, [this] {
        if (window_) {
            window_->hide();
        }
    });
}

SetupGuideWindow::~SetupGuideWindow() = default;

void SetupGuideWindow::show() {
    if (!window_) {
        window_ = loadWindow(engine_, QStringLiteral("SetupGuide.qml"),
                             {{QStringLiteral("guide"), QVariant::fromValue(model_.get())}});
        if (!window_) {
            logLine(QStringLiteral("Mirrowisp: the setup guide could not be made"));
            return;
        }
    }
    agents_->refresh();
    bringForward(*window_);
}

} // namespace mirrowisp
