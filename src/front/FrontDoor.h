#pragma once

#include <QObject>
#include <QString>

namespace mirrowisp {

class AppModel;

// The app's own windows and its tray item: what a user meets first and comes back to. Made once a
// display is there, after the island; shows the setup guide on the first launch.
class FrontDoor : public QObject {
    Q_OBJECT

public:
    explicit FrontDoor(AppModel& model, QObject* parent = nullptr);
    ~FrontDoor() override;

    // Registers the views' QML types; the island's module and this one share one engine per window.
    static void registerTypes();

    // Brings the settings window forward on `page` (the last one shown when empty).
    void showSettings(const QString& page = QString());
    void showSetupGuide();

private:
    AppModel& model_;
};

} // namespace mirrowisp
