#pragma once

#include <QString>
#include <optional>

namespace mirrowisp {

// The system's registration of the app as something to start when the user logs in. It is stored by
// the system only, so the getter always tells the true state, also after a failed change.
class LaunchAtLogin {
public:
    virtual ~LaunchAtLogin() = default;

    virtual bool isEnabled() const = 0;
    // Registers (true) or unregisters (false) the app; answers the error text on failure.
    virtual std::optional<QString> setEnabled(bool enabled) = 0;
};

} // namespace mirrowisp
