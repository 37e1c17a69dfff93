#include "app/Preferences.h"

#include "app/LaunchAtLogin.h"
#include "base/UserDefaults.h"
#include "support/TestSupport.h"

#include <QFile>
#include <QJsonArray>
#include <QMetaProperty>
#include <gtest/gtest.h>
#include <memory>

using namespace mirrowisp;
using namespace Qt::Literals::StringLiterals;
using mirrowisp::test::LogCapture;
using mirrowisp::test::TemporaryHome;

namespace {

class FakeLaunchAtLogin final : public LaunchAtLogin {
public:
    bool isEnabled() const override { return enabled; }
    std::optional<QString> setEnabled(bool on) override {
        ++calls;
        if (failure) {
            return failure;
        }
        enabled = on;
        return std::nullopt;
    }

    bool enabled = false;
    std::optional<QString> failure;
    int calls = 0;
};

// Counts the emissions of one signal.
template <typename Signal> std::shared_ptr<const int> countEmissions(Preferences& prefs, Signal signal) {
    auto count = std::make_shared<int>(0);
    QObject::connect(&prefs, signal, &prefs, [count] { ++*count; });
    return count;
}

class PreferencesTest : public ::testing::Test {
protected:
    std::unique_ptr<Preferences> start() { return std::make_unique<Preferences>(defaults, launch); }

    TemporaryHome home;
    QString path = home.path() + u"/.config/mirrowisp/defaults.json"_s;
    UserDefaults defaults{path};
    FakeLaunchAtLogin launch;
};

} // namespace

TEST_F(PreferencesTest, AFreshInstallReadsTheNineteenRegisteredDefaultsAndWritesNothing) {
    const auto prefs = start();
    const QJsonObject expected{
        {u"openOnHover"_s, true},
        {u"hoverDelay"_s, 0.05},
        {u"displayChoice"_s, u"automatic"_s},
        {u"fakeNotchWidth"_s, 140},
        {u"hapticsEnabled"_s, true},
        {u"nowPlayingEnabled"_s, true},
        {u"hudEnabled"_s, true},
        {u"batteryEnabled"_s, true},
        {u"bluetoothEnabled"_s, true},
        {u"calendarEnabled"_s, true},
        {u"shelfEnabled"_s, true},
        {u"homeWidgets"_s, QJsonArray{u"calendar"_s, u"pullRequests"_s, u"reminders"_s}},
        {u"homeWidgetSelection"_s, u"calendar"_s},
        {u"lockScreenEnabled"_s, false},
        {u"approveFromNotch"_s, true},
        {u"autoOpenOnAttention"_s, true},
        {u"hideFinishedAfter"_s, 600},
        {u"soundsEnabled"_s, true},
        {u"soundVolume"_s, 0.5},
    };
    EXPECT_EQ(defaults.registeredDefaults(), expected);
    for (auto it = expected.begin(); it != expected.end(); ++it) {
        EXPECT_EQ(QJsonValue::fromVariant(prefs->property(it.key().toUtf8().constData())), it.value())
            << it.key().toStdString();
    }
    EXPECT_EQ(prefs->homeWidgets(),
              (QList<HomeWidget>{HomeWidget::calendar, HomeWidget::pullRequests, HomeWidget::reminders}));
    // The settings without a registered default.
    EXPECT_EQ(prefs->remindersListID(), QString());
    EXPECT_EQ(prefs->islandStyle(), Preferences::IslandStyle::glass);
    EXPECT_TRUE(prefs->usageAgents().isEmpty());
    EXPECT_FALSE(prefs->launchAtLogin());
    EXPECT_EQ(prefs->agentsEnabled().size(), 8);
    for (const AgentKind kind : AgentKinds::all) {
        EXPECT_TRUE(prefs->isAgentEnabled(kind));
        EXPECT_TRUE(prefs->agentsEnabled().value(kind));
    }
    EXPECT_TRUE(defaults.keys().isEmpty());
    EXPECT_FALSE(QFile::exists(path));
}

TEST_F(PreferencesTest, StartUpRemovesTheKeysOfRetiredSettings) {
    defaults.set(u"closeDelay"_s, 0.4);
    defaults.set(u"hoverDelay"_s, 0.2);
    defaults.set(u"claudeUsageFromKeychain"_s, true);

    const auto prefs = start();

    EXPECT_EQ(prefs->hoverDelay(), 0.2);
    const UserDefaults onDisk(path);
    EXPECT_EQ(onDisk.keys(), QStringList{u"hoverDelay"_s});
    EXPECT_FALSE(defaults.contains(u"closeDelay"_s));
}

TEST_F(PreferencesTest, AnUnknownIslandStyleReadsAsGlassAndIsKeptUntilTheNextAssignment) {
    defaults.set(u"islandStyle"_s, u"neon"_s);
    const auto prefs = start();
    const auto changes = countEmissions(*prefs, &Preferences::islandStyleChanged);

    EXPECT_EQ(prefs->islandStyle(), Preferences::IslandStyle::glass);
    EXPECT_EQ(defaults.stringValue(u"islandStyle"_s), u"neon"_s);

    prefs->setIslandStyle(Preferences::IslandStyle::glass);
    EXPECT_EQ(*changes, 0);
    EXPECT_EQ(defaults.stringValue(u"islandStyle"_s), u"glass"_s);

    prefs->setIslandStyle(Preferences::IslandStyle::black);
    EXPECT_EQ(*changes, 1);
    EXPECT_EQ(UserDefaults(path).stringValue(u"islandStyle"_s), u"black"_s);
}

TEST_F(PreferencesTest, StoredListsKeepTheirKnownStringsInOrder) {
    defaults.set(u"homeWidgets"_s, QJsonArray{u"calendar"_s, u"weather"_s, u"reminders"_s});
    defaults.set(u"usageAgents"_s, QJsonArray{u"amp"_s, u"Claude"_s, u"claude"_s});
    defaults.set(u"homeWidgetSelection"_s, u"weather"_s);
    const auto prefs = start();

    EXPECT_EQ(prefs->homeWidgets(), (QList<HomeWidget>{HomeWidget::calendar, HomeWidget::reminders}));
    EXPECT_EQ(prefs->homeWidgetsRaw(), (QStringList{u"calendar"_s, u"reminders"_s}));
    EXPECT_EQ(prefs->usageAgents(), (QList<AgentKind>{AgentKind::amp, AgentKind::claude}));
    EXPECT_EQ(prefs->homeWidgetSelection(), u"weather"_s); // a selection is not checked

    // Written back as arrays of the raw strings, unknown ones left out.
    prefs->setHomeWidgets({HomeWidget::reminders, HomeWidget::pullRequests});
    EXPECT_EQ(defaults.object(u"homeWidgets"_s), QJsonValue(QJsonArray{u"reminders"_s, u"pullRequests"_s}));
    prefs->setUsageAgentsRaw({u"amp"_s, u"nobody"_s, u"devin"_s});
    EXPECT_EQ(prefs->usageAgents(), (QList<AgentKind>{AgentKind::amp, AgentKind::devin}));
    EXPECT_EQ(defaults.object(u"usageAgents"_s), QJsonValue(QJsonArray{u"amp"_s, u"devin"_s}));
}

TEST_F(PreferencesTest, AnAgentIsEnabledUnlessItsKeyHoldsFalse) {
    defaults.set(u"codexEnabled"_s, u"false"_s);
    defaults.set(u"ampEnabled"_s, false);
    defaults.set(u"geminiEnabled"_s, 0);
    defaults.set(u"copilotEnabled"_s, true);
    const auto prefs = start();

    for (const AgentKind kind : AgentKinds::all) {
        EXPECT_EQ(prefs->isAgentEnabled(kind), kind != AgentKind::amp)
            << AgentKinds::rawValue(kind).toStdString();
    }
}

TEST_F(PreferencesTest, WrongTypesReadAsTheTypesZeroValueAndUnknownCasesAsTheDefault) {
    struct Case {
        const char* key;
        QJsonValue stored;
        QVariant read;
    };
    const Case cases[] = {
        {"openOnHover", u"yes"_s, false}, // not the registered true
        {"hoverDelay", u"0.3"_s, 0.0},
        {"fakeNotchWidth", QJsonArray{200}, 0.0},
        {"homeWidgets", QJsonArray{u"calendar"_s, 1}, QStringList()},
        {"homeWidgetSelection", 5, u"calendar"_s},
        {"remindersListID", QJsonObject{}, QString()},
        {"usageAgents", u"claude"_s, QStringList()},
        {"soundVolume", true, 0.0},
        {"displayChoice", u"main"_s, u"main"_s},
        {"displayChoice", u"allDisplays"_s, u"allDisplays"_s},
        {"displayChoice", u"Main"_s, u"automatic"_s},
        {"displayChoice", 2, u"automatic"_s},
        {"displayChoice", QJsonValue::Null, u"automatic"_s},
        {"islandStyle", u"black"_s, u"black"_s},
        {"islandStyle", u"Black"_s, u"glass"_s},
        {"islandStyle", true, u"glass"_s},
    };
    for (const Case& c : cases) {
        defaults.set(QString::fromLatin1(c.key), c.stored);
        const auto prefs = start();
        EXPECT_EQ(prefs->property(c.key), c.read)
            << c.key << " " << c.stored.toVariant().toString().toStdString();
        EXPECT_TRUE(prefs->soundsEnabled()); // a key left alone keeps its default
    }
}

TEST_F(PreferencesTest, AnAssignmentWritesItsKeyAtOnceAndNotifiesOnlyOnAChange) {
    const auto prefs = start();
    std::vector<std::optional<double>> storedWhenNotified;
    QObject::connect(prefs.get(), &Preferences::hoverDelayChanged,
                     [&] { storedWhenNotified.push_back(defaults.doubleValue(u"hoverDelay"_s)); });

    prefs->setHoverDelay(0.05); // the default: written, but nothing changed
    EXPECT_TRUE(defaults.contains(u"hoverDelay"_s));
    EXPECT_TRUE(storedWhenNotified.empty());

    prefs->setHoverDelay(0.3);
    prefs->setHoverDelay(0.3);
    ASSERT_EQ(storedWhenNotified.size(), 1U);
    EXPECT_EQ(storedWhenNotified.front(), 0.3); // observers already see the stored value

    prefs->setRemindersListID(u"list-1"_s);
    prefs->setDisplayChoice(DisplayChoice::allDisplays);
    prefs->setLockScreenEnabled(true);
    prefs->setSoundVolume(0.9);

    UserDefaults restarted(path);
    const Preferences again(restarted, launch);
    EXPECT_EQ(again.hoverDelay(), 0.3);
    EXPECT_EQ(again.remindersListID(), u"list-1"_s);
    EXPECT_EQ(again.displayChoice(), DisplayChoice::allDisplays);
    EXPECT_TRUE(again.lockScreenEnabled());
    EXPECT_EQ(again.soundVolume(), 0.9);
}

TEST_F(PreferencesTest, AssigningAgentsEnabledWritesOneBoolForEveryEntry) {
    const auto prefs = start();
    const auto changes = countEmissions(*prefs, &Preferences::agentsEnabledChanged);

    prefs->setAgentEnabled(AgentKind::codex, false);
    EXPECT_EQ(*changes, 1);
    for (const AgentKind kind : AgentKinds::all) {
        EXPECT_EQ(defaults.boolValue(Preferences::agentEnabledKey(kind)), kind != AgentKind::codex)
            << AgentKinds::rawValue(kind).toStdString();
    }
    EXPECT_EQ(defaults.keys().size(), 8);

    prefs->setAgentEnabled(AgentKind::codex, false);
    EXPECT_EQ(*changes, 1);

    // Only the map's own entries are written; a missing kind counts as enabled.
    defaults.remove(u"cursorEnabled"_s);
    prefs->setAgentsEnabled({{AgentKind::claude, false}});
    EXPECT_EQ(*changes, 2);
    EXPECT_EQ(defaults.boolValue(u"claudeEnabled"_s), false);
    EXPECT_FALSE(defaults.contains(u"cursorEnabled"_s));
    EXPECT_EQ(defaults.boolValue(u"codexEnabled"_s), false);
    EXPECT_TRUE(prefs->isAgentEnabled(AgentKind::codex));
    EXPECT_EQ(defaults.keys().size(), 7);
}

TEST_F(PreferencesTest, EveryPropertyIsObservableAndWritableByName) {
    auto prefs = start();
    const QMetaObject* meta = prefs->metaObject();
    for (int i = meta->propertyOffset(); i < meta->propertyCount(); ++i) {
        const QMetaProperty property = meta->property(i);
        EXPECT_TRUE(property.hasNotifySignal()) << property.name();
        EXPECT_TRUE(property.isWritable()) << property.name();
    }

    EXPECT_TRUE(prefs->setProperty("displayChoice", u"main"_s));
    EXPECT_EQ(prefs->displayChoice(), DisplayChoice::main);
    EXPECT_TRUE(prefs->setProperty("displayChoice", u"everywhere"_s));
    EXPECT_EQ(prefs->displayChoice(), DisplayChoice::automatic);
    EXPECT_TRUE(prefs->setProperty("islandStyle", u"black"_s));
    EXPECT_EQ(prefs->property("islandStyle").toString(), u"black"_s);
    EXPECT_TRUE(prefs->setProperty("homeWidgets", QStringList{u"pullRequests"_s, u"weather"_s}));
    EXPECT_EQ(prefs->homeWidgets(), QList<HomeWidget>{HomeWidget::pullRequests});
    EXPECT_TRUE(prefs->setProperty(
        "agentsEnabled", QVariantMap{{u"gemini"_s, false}, {u"nobody"_s, false}, {u"amp"_s, u"no"_s}}));
    EXPECT_EQ(prefs->agentsEnabled(), (QMap<AgentKind, bool>{{AgentKind::gemini, false}}));
    EXPECT_EQ(prefs->property("agentsEnabled").toMap(), (QVariantMap{{u"gemini"_s, false}}));
    EXPECT_TRUE(prefs->setProperty("hideFinishedAfter", 0.0));
    EXPECT_EQ(defaults.doubleValue(u"hideFinishedAfter"_s), 0.0);
}

TEST_F(PreferencesTest, LaunchAtLoginRegistersOnEveryAssignmentAndLogsOnlyFailures) {
    const auto prefs = start();
    const auto changes = countEmissions(*prefs, &Preferences::launchAtLoginChanged);
    const LogCapture log;

    prefs->setLaunchAtLogin(true);
    prefs->setLaunchAtLogin(true);
    EXPECT_EQ(launch.calls, 2);
    EXPECT_TRUE(prefs->launchAtLogin());
    EXPECT_EQ(*changes, 1);
    EXPECT_TRUE(LogCapture::lines().isEmpty());

    launch.failure = u"the session manager said no"_s;
    prefs->setLaunchAtLogin(false);
    EXPECT_TRUE(prefs->launchAtLogin()); // the getter tells the true state
    EXPECT_EQ(*changes, 1);
    EXPECT_EQ(LogCapture::lines(),
              QStringList{u"Mirrowisp: launch at login change failed: the session manager said no"_s});
    EXPECT_TRUE(defaults.keys().isEmpty()); // stored by the system only
}
