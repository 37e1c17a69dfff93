// The drift mark in the open island's header, over a stand-in Claude Code home edited by hand: shown on
// the Home tab only, and a click on it asks for the settings' Agents page.
#include "InProcessIsland.h"
#include "integration/AgentEnvironment.h"
#include "integration/HookInstaller.h"
#include "integration/Locations.h"
#include "island/HookDriftWatch.h"
#include "island/NotchViewModel.h"
#include "island/x11/RealIsland.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSignalSpy>
#include <gtest/gtest.h>

using namespace mirrowisp;

namespace {

class IslandDriftMark : public test::InProcessIsland {
protected:
    std::optional<QRect> button(const char* name) {
        return test::buttonIn(shell.toJson().first().toObject(), name);
    }

    std::optional<QRect> restingButton(const char* name) {
        return test::restingRect([&] { return button(name); });
    }
};

} // namespace

TEST_F(IslandDriftMark, ShowsOnTheHomeTabAndLeadsToTheAgentsPage) {
    AgentEnvironment::setCurrent(Locations::standard(home.path()));
    test::writeFile(home.path() + text("/.claude.json"), "{}"); // Claude Code is on this machine
    ASSERT_EQ(HookInstaller::install(AgentKind::claude, defaults), std::nullopt);
    const QString file = home.path() + text("/.claude/settings.json");
    QJsonObject root = test::readJsonObject(file);
    QJsonObject hooks = root.value(text("hooks")).toObject();
    hooks.remove(text("Stop"));
    root.insert(text("hooks"), hooks);
    test::writeFile(file, QJsonDocument(root).toJson());
    shell.hookDrift()->check();
    ASSERT_TRUE(test::waitUntil([&] { return !shell.hookDrift()->drifted().isEmpty(); }));

    // Hovering opens it, as a person would.
    const QRect screen = controller->screen().frame;
    ASSERT_TRUE(test::moveTo(QPoint(screen.center().x(), screen.top() + 6)));
    ASSERT_TRUE(test::waitUntil([&] { return controller->model().isOpen(); }));
    controller->model().selectTabNamed(text("agents"));
    ASSERT_TRUE(restingButton("appMenuButton").has_value());
    EXPECT_FALSE(button("hookWarningButton").has_value()) << "the mark shows beside the Agents tab";
    controller->model().selectTabNamed(text("home"));
    const std::optional<QRect> mark = restingButton("hookWarningButton");
    ASSERT_TRUE(mark.has_value()) << "no mark on the Home tab: "
                                  << QJsonDocument(shell.toJson()).toJson().toStdString();
    QSignalSpy settings(&model, &AppModel::settingsRequested);
    ASSERT_TRUE(test::clickAt(mark->center()));
    ASSERT_TRUE(settings.wait(5000)) << "the click did not reach the mark";
    EXPECT_EQ(settings.first().first().toString(), text("agents"));
}
