#pragma once

#include "front/SettingsServices.h"

#include <QObject>
#include <QString>
#include <memory>

class QQmlEngine;

namespace mirrowisp {

class AppModel;
class Clock;
class TrayItem;
class SettingsWindow;
class SetupGuideWindow;

// The app's own windows and its tray item: what a user meets first and comes back to. Made once a
// display is there, after the island; shows the setup guide on the first launch.
class FrontDoor : public QObject {
    Q_OBJECT

public:
    explicit FrontDoor(SettingsServices services, QObject* parent = nullptr);
    ~FrontDoor() override;

    // The launch steps that follow the island: the tray item, the setup guide on the first launch,
    // and the "updated" flash a few seconds later when this launch follows an update.
    void launch(const QString& version);
    TrayItem* tray() const { return tray_.get(); }

    // Registers the views' QML types; the island's module and this one share one engine per window.
    static void registerTypes();

    // Brings the settings window forward on `page` (the last one shown when empty).
    void showSettings(const QString& page = QString());
    void showSetupGuide();
    // The guide, unless the user finished it once ("didCompleteOnboarding").
    void showSetupGuideOnFirstLaunch();

    // Nothing until first shown.
    SettingsWindow* settingsWindow() const { return settings_.get(); }
    SetupGuideWindow* setupGuideWindow() const { return guide_.get(); }

private:
    QQmlEngine& engine();

    SettingsServices services_;
    AppModel& model_;
    QString version_;
    std::unique_ptr<TrayItem> tray_;
    // Both windows share one engine; it goes after them.
    std::unique_ptr<QQmlEngine> engine_;
    std::unique_ptr<SettingsWindow> settings_;
    std::unique_ptr<SetupGuideWindow> guide_;
};

} // namespace mirrowisp
