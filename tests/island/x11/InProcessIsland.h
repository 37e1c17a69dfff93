#pragma once

#include "X11Desktop.h"
#include "app/AppModel.h"
#include "app/Preferences.h"
#include "base/UserDefaults.h"
#include "island/IslandShell.h"
#include "island/NotchManager.h"
#include "island/NotchWindowController.h"
#include "support/NoLaunchAtLogin.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

namespace mirrowisp::test {

// The app's model and its islands in the test's own process, on the test's X server, with a bridge
// in a temporary home and no `claude` to probe. Tests drive the model and look at the real window.
class InProcessIsland : public testing::Test {
protected:
    InProcessIsland()
        : defaults(home.path() + QStringLiteral("/defaults.json")), prefs(defaults, login),
          model(prefs, defaults, SystemClock::shared(),
                {[] { return std::optional<QString>(); },
                 [](const QString&) { return ClaudeUsageProbe::FetchResult{}; }}),
          shell(model, {}) {}

    void SetUp() override {
        // The pointer rests away from the island, as a user's does until they reach for it: an island
        // under it would be one they took over.
        ASSERT_TRUE(moveTo(QPoint(5, 1000)));
        model.start();
        shell.start();
        ASSERT_FALSE(shell.manager().controllers().isEmpty());
        controller = shell.manager().controllers().first();
    }

    void TearDown() override { model.stop(); }

    static QString text(const char* s) { return mirrowisp::test::text(s); }

    TemporaryHome home;
    UserDefaults defaults;
    NoLaunchAtLogin login;
    Preferences prefs;
    AppModel model;
    IslandShell shell;
    NotchWindowController* controller = nullptr;
};

} // namespace mirrowisp::test
