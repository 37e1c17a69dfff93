#include "app/HookDoctor.h"

#include "base/UserDefaults.h"
#include "integration/AgentEnvironment.h"
#include "integration/HookInstaller.h"
#include "support/TestSupport.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <functional>
#include <gtest/gtest.h>

namespace mirrowisp {
namespace {

class Doctor : public testing::Test {
public:
    void SetUp() override { AgentEnvironment::setCurrent(Locations::standard(home.path())); }
    QString settings() const { return home.path() + QStringLiteral("/.claude/settings.json"); }
    QString state() {
        return HookDoctor::hookState(AgentKind::claude,
                                     HookInstaller::isDisconnectedByUser(AgentKind::claude, defaults));
    }
    // Replaces the first occurrence of `from` in the settings file, as a user's editor would.
    void edit(const char* from, const char* to) {
        QByteArray bytes = test::readFile(settings());
        ASSERT_TRUE(bytes.contains(from));
        bytes.replace(bytes.indexOf(from), qsizetype(qstrlen(from)), to);
        test::writeFile(settings(), bytes);
    }

    test::TemporaryHome home;
    UserDefaults defaults{home.path() + QStringLiteral("/defaults.json")};
};

TEST_F(Doctor, TellsEachHookStateFromTheAgentsFile) {
    struct Case {
        const char* name;
        std::function<void(Doctor&)> arrange;
        const char* state;
    };
    const Case cases[] = {
        {"nothing yet", [](Doctor&) {}, "missing"},
        {"installed", [](Doctor& t) { ASSERT_FALSE(HookInstaller::install(AgentKind::claude, t.defaults)); },
         "installed"},
        {"an entry edited", [](Doctor& t) { t.edit("\"timeout\": 86400", "\"timeout\": 30"); }, "drifted"},
        {"repaired", [](Doctor& t) { ASSERT_FALSE(HookInstaller::install(AgentKind::claude, t.defaults)); },
         "installed"},
        {"an event removed",
         [](Doctor& t) {
             QJsonObject root = test::readJsonObject(t.settings());
             QJsonObject hooks = root[QStringLiteral("hooks")].toObject();
             hooks.remove(QStringLiteral("Stop"));
             root.insert(QStringLiteral("hooks"), hooks);
             test::writeFile(t.settings(), QJsonDocument(root).toJson());
         },
         "drifted"},
        {"all ours removed by hand", [](Doctor& t) { test::writeFile(t.settings(), R"({"model":"opus"})"); },
         "missing"},
        {"a file we must not write", [](Doctor& t) { test::writeFile(t.settings(), "{ // mine\n}"); },
         "unreadable"},
        {"disconnected",
         [](Doctor& t) { t.defaults.set(HookInstaller::disconnectedKey(AgentKind::claude), true); },
         "disconnected"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        c.arrange(*this);
        EXPECT_EQ(state(), QString::fromUtf8(c.state));
    }
}

TEST_F(Doctor, PreviewsTheExactRepairWithoutWritingAndTheRepairRestores) {
    ASSERT_FALSE(HookInstaller::install(AgentKind::claude, defaults));
    const QByteArray installed = test::readFile(settings());
    edit("\"timeout\": 86400", "\"timeout\": 30");
    const QByteArray edited = test::readFile(settings());

    // The hunk: three lines either side of the one changed line.
    const QList<QByteArray> lines = edited.split('\n');
    qsizetype at = 0;
    while (!lines[at].contains("\"timeout\": 30")) {
        ++at;
    }
    QByteArray expected = "--- " + settings().toUtf8() + "\n+++ " + settings().toUtf8() + "\n";
    expected += "@@ -" + QByteArray::number(at - 2) + ",7 +" + QByteArray::number(at - 2) + ",7 @@\n";
    for (qsizetype i = at - 3; i <= at + 3; ++i) {
        if (i == at) {
            expected += '-' + lines[i] + '\n';
            expected += '+' + QByteArray(lines[i]).replace("30", "86400") + '\n';
        } else {
            expected += ' ' + lines[i] + '\n';
        }
    }
    EXPECT_EQ(HookDoctor::connectPreview(AgentKind::claude).toStdString(), expected.toStdString());
    EXPECT_EQ(test::readFile(settings()), edited) << "a preview changes nothing";

    ASSERT_FALSE(HookInstaller::install(AgentKind::claude, defaults));
    EXPECT_EQ(test::readFile(settings()), installed);
    EXPECT_TRUE(HookDoctor::connectPreview(AgentKind::claude)
                    .startsWith(QStringLiteral("connect would change nothing")));
}

TEST_F(Doctor, ReportsTheAgentsTheBridgeAndRoundTrips) {
    ASSERT_FALSE(HookInstaller::install(AgentKind::claude, defaults));
    HookInstaller::refreshBridgeLink(QStringLiteral(MIRROWISP_BRIDGE_TOOL_PATH));
    HookDoctor::Inputs inputs;
    inputs.now = 1'800'000'000;
    inputs.lastSeen.insert(AgentKind::claude, inputs.now - 5);
    inputs.timings.insert(AgentKind::claude, {10, 1.5, 4.0, 0.5});
    inputs.supportDirectory = home.supportDir();
    const QJsonObject report = HookDoctor::report(inputs);

    const QJsonObject bridge = report[QStringLiteral("bridge")].toObject();
    EXPECT_TRUE(bridge[QStringLiteral("usable")].toBool());
    EXPECT_FALSE(bridge[QStringLiteral("toolVersion")].toString().isEmpty()) << "the tool answers --version";
    const QJsonArray agents = report[QStringLiteral("agents")].toArray();
    ASSERT_EQ(agents.size(), 8);
    const QJsonObject claude = agents[0].toObject();
    EXPECT_EQ(claude[QStringLiteral("hooks")], QStringLiteral("installed"));
    EXPECT_EQ(claude[QStringLiteral("eventsInstalled")], claude[QStringLiteral("eventsSupported")]);
    EXPECT_EQ(claude[QStringLiteral("roundTrip")][QStringLiteral("p95Ms")], 4.0);
    EXPECT_TRUE(claude[QStringLiteral("lastEvent")].isString());
    const QJsonObject codex = agents[1].toObject();
    EXPECT_EQ(codex[QStringLiteral("hooks")], QStringLiteral("missing"));
    EXPECT_TRUE(codex[QStringLiteral("eventsInstalled")].toArray().isEmpty());
    EXPECT_TRUE(codex[QStringLiteral("roundTrip")].isNull());
}

} // namespace
} // namespace mirrowisp
