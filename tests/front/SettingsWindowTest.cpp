// Every control of the settings window, changed as a person changes it: the defaults file holds the
// change, and a model started afresh from that file reads it back.
#include "front/SettingsWindow.h"

#include "FrontFixture.h"
#include "front/SettingsModel.h"

#include <QFileInfo>
#include <QJsonDocument>
#include <QMetaMethod>
#include <gtest/gtest.h>

using namespace mirrowisp;
using mirrowisp::test::text;

namespace {

// What the person does to the control, in the control's own terms.
enum class Act { toggle, setValue, choose, click };

struct ControlCase {
    const char* control; // the object name
    Act act;
    QVariant input;  // the value set, or the index chosen
    const char* key; // the preference as the model reads it; "map.entry" for one entry of a map
    QVariant expected;
};

void PrintTo(const ControlCase& c, std::ostream* os) {
    *os << c.control;
}

// Emits the control's signal as its own input handling does after a person changed it.
void emitSignal(QObject* control, const char* name, const QVariant& argument = {}) {
    const QMetaObject* meta = control->metaObject();
    for (int i = 0; i < meta->methodCount(); ++i) {
        const QMetaMethod method = meta->method(i);
        if (method.methodType() == QMetaMethod::Signal && method.name() == name) {
            if (method.parameterCount() == 1) {
                int index = argument.toInt();
                method.invoke(control, Qt::DirectConnection, Q_ARG(int, index));
            } else {
                method.invoke(control, Qt::DirectConnection);
            }
            return;
        }
    }
    ADD_FAILURE() << "no signal " << name << " on " << control->objectName().toStdString();
}

void operate(QObject* control, Act act, const QVariant& input) {
    switch (act) {
    case Act::toggle:
        control->setProperty("checked", !control->property("checked").toBool());
        emitSignal(control, "toggled");
        break;
    case Act::setValue: {
        control->setProperty("value", input);
        const bool slider = control->metaObject()->indexOfSignal("moved()") >= 0;
        emitSignal(control, slider ? "moved" : "valueModified");
        break;
    }
    case Act::choose:
        control->setProperty("currentIndex", input);
        emitSignal(control, "activated", input);
        break;
    case Act::click:
        emitSignal(control, "clicked");
        break;
    }
}

QVariant read(const Preferences& prefs, const QString& key) {
    const QStringList parts = key.split(u'.');
    const QVariant value = prefs.property(parts.first().toUtf8().constData());
    return parts.size() == 2 ? value.toMap().value(parts.at(1)) : value;
}

class SettingsControls : public testing::TestWithParam<ControlCase>, public test::FrontFixture {};

const ControlCase controlCases[] = {
    {"launchAtLogin", Act::toggle, {}, "launchAtLogin", true},
    {"openOnHover", Act::toggle, {}, "openOnHover", false},
    {"hoverDelay", Act::setValue, 400, "hoverDelay", 0.4},
    {"autoOpenOnAttention", Act::toggle, {}, "autoOpenOnAttention", false},
    {"approveFromNotch", Act::toggle, {}, "approveFromNotch", false},
    {"displayChoice", Act::choose, 2, "displayChoice", text("allDisplays")},
    {"fakeNotchWidth", Act::setValue, 200, "fakeNotchWidth", 200.0},
    {"islandStyle", Act::choose, 0, "islandStyle", text("black")},
    {"hideFinishedAfter", Act::setValue, 30, "hideFinishedAfter", 1800.0},
    {"agentEnabled.gemini", Act::toggle, {}, "agentsEnabled.gemini", false},
    {"usage.codex", Act::toggle, {}, "usageAgents", QStringList{text("codex")}},
    {"nowPlayingEnabled", Act::toggle, {}, "nowPlayingEnabled", false},
    {"hudEnabled", Act::toggle, {}, "hudEnabled", false},
    {"batteryEnabled", Act::toggle, {}, "batteryEnabled", false},
    {"bluetoothEnabled", Act::toggle, {}, "bluetoothEnabled", false},
    {"calendarEnabled", Act::toggle, {}, "calendarEnabled", false},
    {"shelfEnabled", Act::toggle, {}, "shelfEnabled", false},
    {"lockScreenEnabled", Act::toggle, {}, "lockScreenEnabled", true},
    {"hapticsEnabled", Act::toggle, {}, "hapticsEnabled", false},
    {"homeWidget.pullRequests",
     Act::toggle,
     {},
     "homeWidgets",
     QStringList{text("calendar"), text("reminders")}},
    {"homeWidgetUp.reminders",
     Act::click,
     {},
     "homeWidgets",
     QStringList{text("calendar"), text("reminders"), text("pullRequests")}},
    {"calendarFileRemove.0", Act::click, {}, "calendarFiles", QStringList{}},
    {"soundsEnabled", Act::toggle, {}, "soundsEnabled", false},
    {"soundVolume", Act::setValue, 0.8, "soundVolume", 0.8},
};

class SettingsPreview : public testing::Test, public test::FrontFixture {};

} // namespace

TEST_P(SettingsControls, AChangeReachesTheFileAndSurvivesARestart) {
    const ControlCase& c = GetParam();
    start();
    auto settings = std::make_unique<SettingsWindow>(services(), engine);
    settings->show(text("general"));
    ASSERT_NE(settings->window(), nullptr);
    QObject* control = this->control(*settings->window(), text(c.control));
    ASSERT_NE(control, nullptr);
    const QVariant before = read(*prefs, text(c.key));

    operate(control, c.act, c.input);
    EXPECT_EQ(read(*prefs, text(c.key)), c.expected) << "the change did not apply at once";
    defaults->flush();
    if (text(c.key) != u"launchAtLogin") {
        EXPECT_TRUE(QFileInfo::exists(path)) << "nothing was written";
    }
    settings.reset();
    start(); // afresh, from the file
    EXPECT_EQ(read(*prefs, text(c.key)), c.expected) << "was " << before.toString().toStdString();
}

INSTANTIATE_TEST_SUITE_P(EveryControl, SettingsControls, testing::ValuesIn(controlCases));

class SettingsWindowTest : public testing::Test, public test::FrontFixture {};

TEST_F(SettingsWindowTest, ADefaultsFileOfWrongTypesShowsTheModelsValuesAndIsNotWritten) {
    const QByteArray garbage = R"({"openOnHover":"yes","hoverDelay":"slow","displayChoice":"left",
        "fakeNotchWidth":[1],"islandStyle":"purple","autoOpenOnAttention":3,"approveFromNotch":null,
        "hideFinishedAfter":{},"nowPlayingEnabled":"on","hudEnabled":1,"batteryEnabled":[],
        "bluetoothEnabled":"x","calendarEnabled":{},"shelfEnabled":"","lockScreenEnabled":"true",
        "hapticsEnabled":0,"homeWidgets":"calendar","usageAgents":[1,"vim"],"soundsEnabled":"no",
        "soundVolume":"loud","claudeEnabled":"no","geminiEnabled":7})";
    test::writeFile(path, garbage);
    start();
    SettingsWindow settings(services(), engine);
    for (const QString& page : SettingsModel::pages) {
        settings.show(page);
    }
    QQuickWindow& window = *settings.window();
    ASSERT_NE(control(window, text("agentEnabled.claude")), nullptr);
    test::drainMainQueue();

    for (const char* key : {"openOnHover", "autoOpenOnAttention", "approveFromNotch", "nowPlayingEnabled",
                            "hudEnabled", "batteryEnabled", "bluetoothEnabled", "calendarEnabled",
                            "shelfEnabled", "lockScreenEnabled", "hapticsEnabled", "soundsEnabled"}) {
        EXPECT_EQ(control(window, text(key))->property("checked"), prefs->property(key)) << key;
    }
    EXPECT_EQ(control(window, text("agentEnabled.claude"))->property("checked"), true);
    EXPECT_EQ(control(window, text("displayChoice"))->property("currentText"), text("Automatic"));
    EXPECT_EQ(control(window, text("islandStyle"))->property("currentText"), text("Glass"));
    EXPECT_EQ(control(window, text("hoverDelay"))->property("value"), qRound(prefs->hoverDelay() * 1000));
    EXPECT_EQ(control(window, text("soundVolume"))->property("value").toDouble(), prefs->soundVolume());
    EXPECT_EQ(control(window, text("usage.claude"))->property("checked"), false);
    defaults->flush();
    EXPECT_EQ(test::readFile(path), garbage) << "showing the window wrote the file";
}

TEST_F(SettingsWindowTest, ASecondShowRaisesTheSameWindowOnTheAskedPage) {
    start();
    SettingsWindow settings(services(), engine);
    settings.show(text("usage"));
    QQuickWindow* first = settings.window();
    ASSERT_NE(first, nullptr);
    first->close();
    EXPECT_FALSE(first->isVisible());
    settings.show(text("about"));
    EXPECT_EQ(settings.window(), first);
    EXPECT_TRUE(first->isVisible());
    EXPECT_EQ(settings.model().page(), text("about"));
    settings.show(text("nonsense"));
    EXPECT_EQ(settings.model().page(), text("about"));
}

TEST_F(SettingsWindowTest, AFreshInstallGetsNoDefaultsFileFromShowingEveryPage) {
    start();
    SettingsWindow settings(services(), engine);
    for (const QString& page : SettingsModel::pages) {
        settings.show(page);
    }
    ASSERT_NE(control(*settings.window(), text("agentEnabled.copilot")), nullptr);
    test::drainMainQueue();
    defaults->flush();
    EXPECT_FALSE(QFileInfo::exists(path));
}

TEST_F(SettingsPreview, EachButtonPlaysItsCue) {
    start();
    std::vector<SoundCue> cues;
    model->setCuePlayer([&](SoundCue cue) { cues.push_back(cue); });
    SettingsWindow settings(services(), engine);
    settings.show(text("island"));
    ASSERT_NE(settings.window(), nullptr);
    for (const char* button : {"previewCue.1", "previewCue.5"}) {
        QObject* control = this->control(*settings.window(), text(button));
        ASSERT_NE(control, nullptr) << button;
        operate(control, Act::click, {});
    }
    EXPECT_EQ(cues, (std::vector<SoundCue>{SoundCue::attention, SoundCue::charging}));
}
