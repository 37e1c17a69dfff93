// The header's drift mark after a connection pass, over a stand-in Claude Code home: hooks someone
// else changed show, hooks as we wrote them and an agent the user disconnected do not.
#include "island/HookDriftWatch.h"

#include "IslandTestSupport.h"
#include "integration/AgentEnvironment.h"
#include "integration/HookInstaller.h"
#include "integration/Locations.h"

#include <QJsonDocument>
#include <QSignalSpy>
#include <gtest/gtest.h>

using namespace mirrowisp;
using mirrowisp::test::text;

namespace {

struct DriftCase {
    const char* name;
    bool editByHand;
    bool disconnected;
    QStringList drifted;
};

void PrintTo(const DriftCase& c, std::ostream* os) {
    *os << c.name;
}

class HookDrift : public testing::TestWithParam<DriftCase> {};

const DriftCase driftCases[] = {
    {"asWritten", false, false, {}},
    {"editedByHand", true, false, {text("Claude Code")}},
    {"disconnected", true, true, {}},
};

} // namespace

TEST_P(HookDrift, TheMarkFollowsThePass) {
    const DriftCase& c = GetParam();
    test::IslandWorld world;
    AgentEnvironment::setCurrent(Locations::standard(world.home.path()));
    test::writeFile(world.home.path() + text("/.claude.json"), "{}"); // Claude Code is on this machine
    ASSERT_EQ(HookInstaller::install(AgentKind::claude, world.defaults), std::nullopt);
    const QString file = world.home.path() + text("/.claude/settings.json");
    if (c.editByHand) {
        QJsonObject root = test::readJsonObject(file);
        QJsonObject hooks = root.value(text("hooks")).toObject();
        hooks.remove(text("Stop"));
        root.insert(text("hooks"), hooks);
        test::writeFile(file, QJsonDocument(root).toJson());
    }
    if (c.disconnected) {
        world.defaults.set(HookInstaller::disconnectedKey(AgentKind::claude), true);
    }
    HookDriftWatch watch(world.app);
    // A pass that changes nothing, so the hand edit is still there when the watch looks.
    world.app.setConnectionPass([](std::function<void()> done) { done(); });
    QSignalSpy checked(&watch, &HookDriftWatch::checked);

    world.app.runConnectionPass();
    ASSERT_TRUE(checked.wait(5000)) << "the pass did not set off a reading";
    EXPECT_EQ(watch.drifted(), c.drifted);
}

INSTANTIATE_TEST_SUITE_P(EveryCase, HookDrift, testing::ValuesIn(driftCases));
