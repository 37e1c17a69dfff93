#include "integration/AgentSetupCopy.h"
#include "integration/CodexHookApproval.h"
#include "integration/HookInstaller.h"
#include "integration/HookTestSupport.h"
#include "integration/Locations.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

using namespace mirrowisp;
using namespace Qt::StringLiterals;
using mirrowisp::test::HookTest;

namespace {

const char* const codexEvents[] = {"session_start", "session_end",    "user_prompt_submit",
                                   "pre_tool_use",  "post_tool_use",  "permission_request",
                                   "stop",          "subagent_start", "subagent_stop",
                                   "pre_compact",   "post_compact"};

QString codexDir() {
    return AgentEnvironment::current().dir(AgentKind::codex);
}

// One trust table as Codex writes it, for our hooks.json unless told otherwise.
QByteArray table(const char* event, const QByteArray& hash, const char* extra = "",
                 const QString& hooksFile = {}) {
    const QString file = hooksFile.isEmpty() ? codexDir() + u"/hooks.json"_s : hooksFile;
    return "[hooks.state.\"" + file.toUtf8() + ":" + event + ":0:0\"]\ntrusted_hash = \"" + hash + "\"\n" +
           extra + "\n";
}

QByteArray allTrusted(const QByteArray& hashPrefix, const char* disabledEvent = nullptr) {
    QByteArray text = "model = \"o4\"\n\n";
    for (const char* event : codexEvents) {
        const bool off = disabledEvent && QByteArray(event) == disabledEvent;
        text += table(event, hashPrefix + event, off ? "enabled = false" : "enabled = true");
    }
    return text;
}

const auto nobodyInstalled = [](AgentKind) { return false; };
const auto everyoneInstalled = [](AgentKind) { return true; };

} // namespace

// ---- Reading config.toml ----

TEST_F(HookTest, TrustTablesAreReadOnlyForOurHooksFile) {
    QByteArray text;
    text += table("stop", "h-stop", "enabled = false");
    text += "  [hooks.state.\"" + codexDir().toUtf8() + "/hooks.json:pre_tool_use:0:0\"]  \n";
    text += "\ttrusted_hash\t=\t\"h-pre\"  \n";
    text += "enabled = maybe\n";
    text += table("post_tool_use", "old-path", "", home() + u"/old codex/hooks.json"_s);
    text += "[profiles.other]\ntrusted_hash = \"not-a-hook\"\n";
    // No ":" after the event: no record, so its hash must not reach "stop".
    text += "[hooks.state.\"" + codexDir().toUtf8() + "/hooks.json:stop\"]\ntrusted_hash = \"no-event\"\n";
    text += table("session_start", "first");
    text += table("session_start", "second");
    text +=
        "[hooks.state.\"" + codexDir().toUtf8() + "/hooks.json:session_end:0:0\"]\nenabled=false\n=x\nkey=\n";
    writeFile(codexDir() + u"/config.toml"_s, text);

    const QMap<QString, HookInstaller::CodexTrust> states = HookInstaller::codexTrustStates();
    EXPECT_EQ(states.keys(),
              (QStringList{u"pre_tool_use"_s, u"session_end"_s, u"session_start"_s, u"stop"_s}));
    EXPECT_EQ(states.value(u"stop"_s), (HookInstaller::CodexTrust{u"h-stop"_s, false}));
    EXPECT_EQ(states.value(u"pre_tool_use"_s), (HookInstaller::CodexTrust{u"h-pre"_s, true}));
    EXPECT_EQ(states.value(u"session_start"_s).hash, u"second"_s);
    EXPECT_EQ(states.value(u"session_end"_s), (HookInstaller::CodexTrust{std::nullopt, false}));
}

TEST_F(HookTest, AMissingOrBinaryConfigHasNoTrust) {
    EXPECT_TRUE(HookInstaller::codexTrustStates().isEmpty());
    writeFile(codexDir() + u"/config.toml"_s,
              QByteArray("\x89PNG\r\n\x1a\n\xff\xfe\x00\x01", 12) + table("stop", "h"));
    EXPECT_TRUE(HookInstaller::codexTrustStates().isEmpty());
    ASSERT_FALSE(HookInstaller::install(AgentKind::codex, defaults()));
    EXPECT_EQ(HookInstaller::codexHookStatus(defaults()), CodexHookStatus::needsApproval);
}

// ---- The status ----

TEST_F(HookTest, CodexStatusWeighsTrustBeforeTurnedOff) {
    const QString config = codexDir() + u"/config.toml"_s;
    // Not installed: nothing to approve.
    EXPECT_EQ(HookInstaller::codexHookStatus(defaults()), CodexHookStatus::ready);

    // Installed with no trust, all trusted, or one off: the setup state's cases below.
    ASSERT_FALSE(HookInstaller::install(AgentKind::codex, defaults()));
    // Ten trusted, one missing, another turned off: the missing one wins.
    QByteArray tenAndOff;
    for (const char* event : codexEvents) {
        if (QByteArray(event) != "subagent_stop") {
            tenAndOff += table(event, "h", QByteArray(event) == "stop" ? "enabled = false" : "");
        }
    }
    writeFile(config, tenAndOff);
    EXPECT_EQ(HookInstaller::codexHookStatus(defaults()), CodexHookStatus::needsApproval);
}

TEST_F(HookTest, RewritingHooksMakesTheOldTrustStaleUntilCodexTrustsAgain) {
    const QString config = codexDir() + u"/config.toml"_s;
    ASSERT_FALSE(HookInstaller::install(AgentKind::codex, defaults()));
    writeFile(config, allTrusted("h-"));
    ASSERT_EQ(HookInstaller::codexHookStatus(defaults()), CodexHookStatus::ready);

    // The steady state rewrites nothing and leaves the trust alone.
    ASSERT_FALSE(HookInstaller::install(AgentKind::codex, defaults()));
    EXPECT_EQ(HookInstaller::codexHookStatus(defaults()), CodexHookStatus::ready);

    // A change to the file (ours went missing from one event) rewrites it: the same hashes no longer count.
    QJsonObject file = readJsonObject(codexDir() + u"/hooks.json"_s);
    QJsonObject hooks = file.value(u"hooks"_s).toObject();
    hooks.remove(u"Stop"_s);
    file.insert(u"hooks"_s, hooks);
    writeFile(codexDir() + u"/hooks.json"_s, QJsonDocument(file).toJson());
    clearBackups();
    ASSERT_FALSE(HookInstaller::install(AgentKind::codex, defaults()));
    EXPECT_EQ(defaults().dictionary(u"staleCodexTrustHashes"_s)->value(u"stop"_s).toString(), u"h-stop"_s);
    EXPECT_EQ(HookInstaller::codexHookStatus(defaults()), CodexHookStatus::needsApproval);

    // A snapshot that is not all strings is no snapshot.
    defaults().set(u"staleCodexTrustHashes"_s, QJsonObject{{u"stop"_s, u"h-stop"_s}, {u"n"_s, 1}});
    EXPECT_EQ(HookInstaller::codexHookStatus(defaults()), CodexHookStatus::ready);

    writeFile(config, allTrusted("new-"));
    EXPECT_EQ(HookInstaller::codexHookStatus(defaults()), CodexHookStatus::ready);
}

// ---- Setup state ----

TEST_F(HookTest, SetupIsDecidedTopToBottom) {
    using K = AgentSetup::Kind;
    const auto setup = [&](AgentKind kind, std::optional<Timestamp> seen,
                           const HookInstaller::AgentPresence& present) {
        return HookInstaller::setup(kind, seen, defaults(), present);
    };
    EXPECT_EQ(setup(AgentKind::gemini, std::nullopt, nobodyInstalled), AgentSetup::of(K::notInstalled));
    EXPECT_EQ(setup(AgentKind::gemini, std::nullopt, {}), AgentSetup::of(K::notInstalled));
    EXPECT_EQ(setup(AgentKind::gemini, 100.0, nobodyInstalled), AgentSetup::of(K::notConnected));
    EXPECT_EQ(setup(AgentKind::gemini, std::nullopt, everyoneInstalled), AgentSetup::of(K::notConnected));
    defaults().set(HookInstaller::disconnectedKey(AgentKind::gemini), true);
    EXPECT_EQ(setup(AgentKind::gemini, std::nullopt, everyoneInstalled), AgentSetup::of(K::disconnected));
    EXPECT_EQ(setup(AgentKind::gemini, std::nullopt, nobodyInstalled), AgentSetup::of(K::notInstalled));

    ASSERT_FALSE(HookInstaller::connect(AgentKind::gemini, defaults()));
    EXPECT_EQ(setup(AgentKind::gemini, 5.0, nobodyInstalled), AgentSetup::connected(5.0));
    EXPECT_EQ(setup(AgentKind::gemini, std::nullopt, nobodyInstalled), AgentSetup::connected(std::nullopt));

    ASSERT_FALSE(HookInstaller::install(AgentKind::codex, defaults()));
    EXPECT_EQ(setup(AgentKind::codex, 5.0, everyoneInstalled), AgentSetup::of(K::codexNeedsApproval));
    writeFile(codexDir() + u"/config.toml"_s, allTrusted("h-", "stop"));
    EXPECT_EQ(setup(AgentKind::codex, 5.0, everyoneInstalled), AgentSetup::of(K::codexHooksOff));
    writeFile(codexDir() + u"/config.toml"_s, allTrusted("h-"));
    EXPECT_EQ(setup(AgentKind::codex, 5.0, everyoneInstalled), AgentSetup::connected(5.0));
}

// The phrase follows the time since the agent was last seen, each unit from its first whole one.
TEST(AgentSetupSummary, TheLastSeenPhraseChangesUnitAtItsBoundaries) {
    const Timestamp now = 1'800'000'000.0;
    const std::pair<double, const char*> cases[] = {
        {59.9, "Working now."},
        {60, "Last seen 1 min. ago."},
        {2 * 3600, "Last seen 2 hr. ago."},
        {86400 * 1.5, "Last seen yesterday."},
        {86400 * 7, "Last seen last week."},
        {86400 * 400, "Last seen last year."},
    };
    for (const auto& [ago, phrase] : cases) {
        EXPECT_EQ(AgentSetup::connected(now - ago).summary(now, false),
                  u"Connected. "_s + QString::fromLatin1(phrase));
    }
    EXPECT_EQ(AgentSetup::of(AgentSetup::Kind::codexNeedsApproval).fix(), SetupFix::approveInCodex);
    EXPECT_EQ(AgentSetup::unreadableConfig(u"x"_s).fix(), SetupFix::fixSettingsFile);
    EXPECT_EQ(AgentSetup::connected(1.0).fix(), std::nullopt);
}

TEST(CodexApproval, TheDesktopAppsSettingsOpenOnlyWhenItIsThere) {
    EXPECT_EQ(AgentSetupCopy::codexNotice(CodexHookStatus::ready, true), std::nullopt);
    EXPECT_TRUE(AgentSetupCopy::codexNotice(CodexHookStatus::needsApproval, false));
    int opened = 0;
    QUrl asked;
    const CodexHookApproval::UrlOpener opener = [&](const QUrl& url) {
        ++opened;
        asked = url;
        return true;
    };
    EXPECT_FALSE(CodexHookApproval::isAppInstalled({}));
    const CodexHookApproval::Guidance none = CodexHookApproval::open({}, opener);
    EXPECT_FALSE(none.openedSettings);
    EXPECT_EQ(opened, 0);

    const CodexHookApproval::AppLookup lookup = [](const QString& id) { return id == u"com.openai.codex"_s; };
    const CodexHookApproval::Guidance app = CodexHookApproval::open(lookup, opener);
    EXPECT_TRUE(app.openedSettings);
    EXPECT_EQ(asked, QUrl(u"codex://settings"_s));
    EXPECT_NE(app.steps, none.steps);

    const CodexHookApproval::Guidance refused =
        CodexHookApproval::open(lookup, [](const QUrl&) { return false; });
    EXPECT_FALSE(refused.openedSettings);
    EXPECT_EQ(refused.steps, none.steps);
}
