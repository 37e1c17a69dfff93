#pragma once

// The front's windows over a real model and real preferences in a temporary home, with no agent on
// the machine and no `claude` to probe.

#include "app/AppModel.h"
#include "app/AutostartEntry.h"
#include "app/ConnectionPass.h"
#include "app/Preferences.h"
#include "base/UserDefaults.h"
#include "front/FrontDoor.h"
#include "front/SettingsServices.h"
#include "integration/AgentEnvironment.h"
#include "integration/Locations.h"
#include "support/TestSupport.h"

#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <memory>

namespace mirrowisp::test {

class FrontFixture {
public:
    FrontFixture() {
        FrontDoor::registerTypes();
        // The agents' files live in this test's home, not where an earlier test's home was.
        AgentEnvironment::setCurrent(Locations::standard(home.path()));
    }

    // Model, preferences and store as the app makes them, over whatever the file holds now.
    void start() {
        defaults = std::make_unique<UserDefaults>(path);
        prefs = std::make_unique<Preferences>(*defaults, login);
        model = std::make_unique<AppModel>(*prefs, *defaults, clock, noClaude());
        pass = std::make_unique<ConnectionPass>(*defaults, [](AgentKind) { return false; });
    }
    SettingsServices services() {
        return {*model, *pass, [](AgentKind) { return false; }, clock};
    }

    static ClaudeProbeRunner noClaude() {
        return {[] { return std::optional<QString>(); },
                [](const QString&) { return ClaudeUsageProbe::FetchResult{}; }};
    }

    // The view's item with this object name, once it exists (rows that load later included).
    static QQuickItem* control(QQuickWindow& window, const QString& name) {
        QQuickItem* found = nullptr;
        waitUntil([&] { return (found = find(window.contentItem(), name)) != nullptr; }, 3000);
        return found;
    }
    // Through the items as they are drawn: views parent their items visually, not always as objects.
    static QQuickItem* find(QQuickItem* item, const QString& name) {
        if (item->objectName() == name) {
            return item;
        }
        for (QQuickItem* child : item->childItems()) {
            if (QQuickItem* found = find(child, name)) {
                return found;
            }
        }
        return nullptr;
    }

    TemporaryHome home;
    QString path = home.path() + QStringLiteral("/.config/mirrowisp/defaults.json");
    AutostartEntry login{home.path() + QStringLiteral("/.config/autostart/mirrowisp.desktop"),
                         QStringLiteral("/usr/bin/mirrowisp")};
    ManualClock clock;
    std::unique_ptr<UserDefaults> defaults;
    std::unique_ptr<Preferences> prefs;
    std::unique_ptr<AppModel> model;
    std::unique_ptr<ConnectionPass> pass;
    QQmlEngine engine;
};

} // namespace mirrowisp::test
