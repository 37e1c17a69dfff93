#pragma once

#include "front/SettingsServices.h"

#include <QObject>
#include <QString>
#include <memory>

class QQmlEngine;
class QQuickWindow;

namespace mirrowisp {

class SettingsAgentHealth;
class SettingsAgentList;
class SettingsDecisions;
class SettingsModel;

// The one settings window: made from its QML the first time it is asked for, brought forward again
// on later asks. Closing it only hides it.
class SettingsWindow : public QObject {
    Q_OBJECT

public:
    SettingsWindow(SettingsServices services, QQmlEngine& engine, QObject* parent = nullptr);
    ~SettingsWindow() override;

    // Shows `page` (general, agents, decisions, usage, island, about; the last one shown when empty or
    // unknown).
    void show(const QString& page = QString());
    // Nothing until the first show, or when the views failed to load.
    QQuickWindow* window() const { return window_.get(); }
    SettingsModel& model() const { return *model_; }

private:
    bool load();

    QQmlEngine& engine_;
    std::unique_ptr<SettingsAgentList> agents_;
    std::unique_ptr<SettingsAgentHealth> health_;
    std::unique_ptr<SettingsDecisions> decisions_;
    std::unique_ptr<SettingsModel> model_;
    std::unique_ptr<QQuickWindow> window_;
    bool failed_ = false;
};

} // namespace mirrowisp
