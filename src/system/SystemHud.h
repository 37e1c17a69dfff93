#pragma once

#include "base/Clock.h"
#include "system/MediaKeyTap.h"

#include <QJsonObject>
#include <QString>
#include <functional>
#include <optional>

namespace mirrowisp {

class LevelControl;
class SystemAudio;

// What the keys mean: a step on the 1/16 grid (1/64 fine) or a glide frame on one of the three
// controls, and the level to show for it. Absent controls are null; their keys pass to the desktop.
class SystemHud {
public:
    enum class Control { volume, brightness, keyboard };
    using Key = MediaKeyTap::Key;

    SystemHud(const Clock& clock, SystemAudio* audio, LevelControl* brightness, LevelControl* keyboard);

    bool handleKey(Key key, bool fine);
    void glide(Key key, double amount);
    bool wouldHandle(Key key) const;

    // The level of a control, nothing when it is absent.
    std::optional<double> level(Control control) const;
    bool isMuted() const;
    // Sets one level as a slider or the command line would; false when the control is absent.
    bool set(Control control, double value);
    bool has(Control control) const { return level(control).has_value(); }
    static Control controlOf(Key key);
    // "volume", "brightness" or "keyboard".
    static std::optional<Control> controlNamed(const QString& name);
    // The three levels, each absent while its control is; the volume's mute beside it.
    QJsonObject toJson() const;

    // The preference: off, every key goes to the desktop.
    std::function<bool()> enabled;
    // A level to show: which control, its level, and for the volume whether it is muted.
    std::function<void(Control, double, bool)> show;

private:
    bool isEnabled() const { return !enabled || enabled(); }
    void flash(Control control, double level);

    struct GlideLevel {
        Key key;
        double value;
        Timestamp at;
    };

    const Clock& clock_;
    SystemAudio* audio_;
    LevelControl* brightness_;
    LevelControl* keyboard_;
    std::optional<GlideLevel> glideLevel_;
};

} // namespace mirrowisp
