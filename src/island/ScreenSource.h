#pragma once

#include "island/NotchScreen.h"

#include <QList>
#include <functional>
#include <optional>

namespace mirrowisp {

// Where the islands learn which screens exist. The app reads Qt's screens; tests arrange their own.
class ScreenSource {
public:
    virtual ~ScreenSource() = default;
    // Every screen, the primary one first.
    virtual QList<NotchScreen> screens() const = 0;
    virtual std::optional<NotchScreen> primaryScreen() const = 0;
    // Called after screens come, go, or change their geometry; replaces any earlier callback.
    virtual void setOnChange(std::function<void()> onChange) = 0;
};

} // namespace mirrowisp
