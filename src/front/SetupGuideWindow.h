#pragma once

#include "front/SettingsServices.h"

#include <QObject>
#include <memory>

class QQmlEngine;
class QQuickWindow;

namespace mirrowisp {

class SettingsAgentList;
class SetupGuideModel;

// The setup guide's own window, made on its first showing; finishing it hides it.
class SetupGuideWindow : public QObject {
    Q_OBJECT

public:
    SetupGuideWindow(SettingsServices services, QQmlEngine& engine, QObject* parent = nullptr);
    ~SetupGuideWindow() override;

    void show();
    QQuickWindow* window() const { return window_.get(); }
    SetupGuideModel& model() const { return *model_; }

private:
    QQmlEngine& engine_;
    std::unique_ptr<SettingsAgentList> agents_;
    std::unique_ptr<SetupGuideModel> model_;
    std::unique_ptr<QQuickWindow> window_;
};

} // namespace mirrowisp
