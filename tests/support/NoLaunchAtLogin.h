#pragma once

#include "app/LaunchAtLogin.h"

namespace mirrowisp::test {

// Launch at login that touches nothing: the tests' preferences never write an autostart entry.
class NoLaunchAtLogin final : public LaunchAtLogin {
public:
    bool isEnabled() const override { return false; }
    std::optional<QString> setEnabled(bool) override { return std::nullopt; }
};

} // namespace mirrowisp::test
