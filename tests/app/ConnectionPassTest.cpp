#include "app/ConnectionPass.h"

#include "base/UserDefaults.h"
#include "integration/HookInstaller.h"
#include "integration/Locations.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <atomic>
#include <future>
#include <gtest/gtest.h>
#include <thread>

using namespace mirrowisp;

// The pass works on its own thread, takes turns with the user's disconnect, and runs once more when
// asked during a run.
TEST(ConnectionPass, InstallsOffTheMainThreadAndADisconnectMeanwhileHasTheLastWord) {
    const test::TemporaryHome home;
    const Locations saved = AgentEnvironment::current();
    AgentEnvironment::setCurrent(Locations::standard(home.path()));
    UserDefaults defaults(home.path() + QStringLiteral("/defaults.json"));
    const std::thread::id mainThread = std::this_thread::get_id();
    std::promise<void> open;
    const std::shared_future<void> gate = open.get_future().share();
    std::atomic<int> onMain{0};
    std::atomic<int> codexChecks{0};
    ConnectionPass pass(defaults, [&](AgentKind kind) {
        onMain += std::this_thread::get_id() == mainThread ? 1 : 0;
        if (kind == AgentKind::claude) {
            gate.wait(); // holds the pass just before Claude's file
        }
        codexChecks += kind == AgentKind::codex ? 1 : 0;
        return kind == AgentKind::claude || kind == AgentKind::codex;
    });

    int finished = 0;
    pass.run([&] { ++finished; });
    pass.run([&] { ++finished; }); // asked for while the first runs
    EXPECT_TRUE(pass.isRunning());
    EXPECT_EQ(pass.setConnected(QStringLiteral("claude"), false), std::nullopt);
    open.set_value();
    ASSERT_TRUE(test::waitUntil([&] { return finished == 2; }));

    EXPECT_EQ(onMain, 0);
    EXPECT_EQ(codexChecks, 2);
    EXPECT_FALSE(QFile::exists(HookInstaller::integration(AgentKind::claude).file));
    EXPECT_TRUE(HookInstaller::isInstalled(AgentKind::codex));
    // What the pass did is published on the main thread: Codex's trust in the old file is stale.
    EXPECT_TRUE(defaults.contains(HookInstaller::staleCodexTrustHashesKey));
    EXPECT_FALSE(pass.isRunning());

    // Codex's status comes from the files as last read off this thread; asking starts a new reading.
    EXPECT_EQ(pass.codexHookStatus(), CodexHookStatus::needsApproval); // no trust in the new hooks
    EXPECT_EQ(pass.setConnected(QStringLiteral("codex"), false), std::nullopt);
    EXPECT_EQ(pass.codexHookStatus(), CodexHookStatus::ready); // nothing left to approve
    int readings = 0;
    pass.setCodexReadingChanged([&] { ++readings; });
    QDir(HookInstaller::backupsDirectory()).removeRecursively();      // a second backup within the second
    ASSERT_FALSE(HookInstaller::install(AgentKind::codex, defaults)); // behind the pass's back
    EXPECT_EQ(pass.codexHookStatus(), CodexHookStatus::ready);
    ASSERT_TRUE(test::waitUntil([&] { return readings == 1; }));
    EXPECT_EQ(pass.codexHookStatus(), CodexHookStatus::needsApproval);
    AgentEnvironment::setCurrent(saved);
}
