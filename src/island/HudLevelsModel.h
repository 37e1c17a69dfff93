#pragma once

#include <QObject>
#include <QString>
#include <QtQml/qqmlregistration.h>

class QQmlEngine;
class QJSEngine;

namespace mirrowisp {

class SystemHud;

// The volume and the screen brightness for the home tab's sliders, while those controls exist.
// Levels change outside the app too, so the sliders read them again while they show (`refresh`).
class HudLevelsModel : public QObject {
    Q_OBJECT
    QML_NAMED_ELEMENT(HudLevels)
    QML_SINGLETON
    Q_PROPERTY(bool hasVolume READ hasVolume NOTIFY changed)
    Q_PROPERTY(double volume READ volume NOTIFY changed)
    Q_PROPERTY(bool muted READ muted NOTIFY changed)
    Q_PROPERTY(bool hasBrightness READ hasBrightness NOTIFY changed)
    Q_PROPERTY(double brightness READ brightness NOTIFY changed)

public:
    explicit HudLevelsModel(SystemHud* hud, QObject* parent = nullptr);

    // The controls every engine's views read from now on; the app sets them before the islands.
    static void setShared(SystemHud* hud);
    static HudLevelsModel* create(QQmlEngine* engine, QJSEngine*);

    bool hasVolume() const { return volume_ >= 0; }
    double volume() const { return volume_; }
    bool muted() const { return muted_; }
    bool hasBrightness() const { return brightness_ >= 0; }
    double brightness() const { return brightness_; }

    Q_INVOKABLE void refresh();
    Q_INVOKABLE void setVolume(double level);
    Q_INVOKABLE void setBrightness(double level);

Q_SIGNALS:
    void changed();

private:
    SystemHud* hud_;
    double volume_ = -1; // -1: the control is absent
    double brightness_ = -1;
    bool muted_ = false;
};

} // namespace mirrowisp
