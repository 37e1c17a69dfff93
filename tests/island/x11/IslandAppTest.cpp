// The real app's island under a private X server (window manager and compositor running), driven
// with xdotool as a person would drive it, and read back through `mirrowisp ctl island`.
#include "X11Desktop.h"
#include "island/x11/RealIsland.h"
#include "support/RealApp.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QGuiApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QScreen>
#include <gtest/gtest.h>

namespace {

using mirrowisp::test::text;
using mirrowisp::test::waitUntil;

class IslandApp : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(real.busStarted()) << "dbus-daemon did not start";
        centreX = QGuiApplication::primaryScreen()->geometry().center().x();
    }

    // Settings as the user left them, written before the app reads them.
    void writeSettings(const QJsonObject& settings) {
        mirrowisp::test::writeFile(real.home().path() + text("/.config/mirrowisp/defaults.json"),
                                   QJsonDocument(settings).toJson());
    }

    void startApp() {
        ASSERT_TRUE(real.start());
        ASSERT_TRUE(waitUntil([&] { return !island().isEmpty(); }, 15000)) << "the app showed no island";
    }

    QByteArray ctl(const QStringList& arguments) { return real.ctl(arguments).out; }
    QJsonArray islands() { return QJsonDocument::fromJson(ctl({text("island")})).array(); }
    QJsonObject island() { return islands().first().toObject(); }

    // xdotool drives the pointer and keys; xrandr splits the screen into monitors as plugging one in would.
    void xdotool(const QStringList& arguments) { ASSERT_TRUE(mirrowisp::test::xdotool(arguments)); }
    void xrandr(const QStringList& arguments) { ASSERT_EQ(QProcess::execute(text("xrandr"), arguments), 0); }

    // In steps, as a mouse moves, so the global monitor hears it too.
    void pointerTo(int x, int y) { ASSERT_TRUE(mirrowisp::test::moveTo({x, y})); }

    bool becomes(const char* key, bool value, int timeoutMs = 5000) {
        return waitUntil([&] { return island()[text(key)].toBool() == value; }, timeoutMs);
    }

    std::optional<QRect> restingButton(const char* name) {
        return mirrowisp::test::restingRect([&] { return button(name); });
    }

    std::unique_ptr<QProcess> hook(const QJsonObject& event) { return real.hook(event); }

    std::optional<QRect> button(const char* name) { return mirrowisp::test::buttonIn(island(), name); }

    mirrowisp::test::RealApp real{true};
    mirrowisp::test::X11Desktop desktop;
    int centreX = 0;
};

const QJsonObject permissionRequest{
    {text("hook_event_name"), text("PermissionRequest")},
    {text("session_id"), text("island-1")},
    {text("cwd"), text("/home/dev/site")},
    {text("tool_name"), text("Bash")},
    {text("tool_input"), QJsonObject{{text("command"), text("make deploy")}}}};

const QByteArray allowReply =
    R"({"hookSpecificOutput":{"decision":{"behavior":"allow"},"hookEventName":"PermissionRequest"}})";

} // namespace

TEST_F(IslandApp, OpensOnHoverAfterTheDelayButNotWhenThePointerOnlyCrossesIt) {
    // A longer delay than the default, so a crossing is surely quicker than it.
    writeSettings({{text("hoverDelay"), 0.4}});
    startApp();
    pointerTo(centreX - 300, 400);
    xdotool({text("mousemove_relative"), text("--"), text("300"), text("-394"), text("mousemove_relative"),
             text("--"), text("300"), text("394")});
    EXPECT_FALSE(becomes("isOpen", true, 1200)) << "a crossing opened the island";

    // Warped, as a window manager's key or a remote desktop moves it: no device motion at all.
    xdotool({text("mousemove"), QString::number(centreX), text("6")});
    ASSERT_TRUE(becomes("isOpen", true)) << "a pointer warped onto the island did not open it";
    EXPECT_FALSE(island()[text("openedAutomatically")].toBool());

    xdotool({text("mousemove"), QString::number(centreX), text("900")});
    EXPECT_TRUE(becomes("isOpen", false)) << "a pointer warped away left the island open";
}

TEST_F(IslandApp, TheFinishedFlashEndsAfterItsTimeAndARequestShowsThen) {
    startApp();
    pointerTo(centreX, 900);
    // Another change of the closed island's content just before the agent finishes.
    auto prompt =
        hook({{text("hook_event_name"), text("UserPromptSubmit")}, {text("session_id"), text("other")}});
    ASSERT_TRUE(prompt->waitForFinished(10000));
    auto stop = hook({{text("hook_event_name"), text("Stop")}, {text("session_id"), text("island-2")}});
    ASSERT_TRUE(stop->waitForFinished(10000));
    auto content = [&] { return island()[text("content")].toString(); };
    ASSERT_TRUE(waitUntil([&] { return content().startsWith(text("transient-")); }, 5000));
    EXPECT_TRUE(waitUntil([&] { return !content().startsWith(text("transient-")); }, 6000))
        << "the 3-second flash stayed";

    auto tool = hook(permissionRequest);
    EXPECT_TRUE(waitUntil([&] { return content().startsWith(text("attention-")); }, 10000));
}

TEST_F(IslandApp, AClickBesideTheIslandClosesItAndReachesTheWindowBeneath) {
    startApp();
    // Inside the island's transparent frame (820 x 560 at the top centre) but away from the island.
    const QRect rect(centreX + 340, 300, 60, 60);
    const auto beneath = desktop.openWindow(rect);
    ASSERT_TRUE(beneath.has_value());
    pointerTo(rect.center().x(), rect.center().y());
    // Opened by itself for a request, the island stays open while the pointer is elsewhere…
    auto tool = hook(permissionRequest);
    ASSERT_TRUE(becomes("isOpen", true, 10000));
    pointerTo(rect.center().x() + 1, rect.center().y());
    EXPECT_FALSE(becomes("isOpen", false, 600));

    // …until a click elsewhere, which also reaches the window it was meant for.
    xdotool({text("click"), text("1")});
    EXPECT_TRUE(waitUntil([&] { return desktop.takePresses(*beneath).size() == 1; }, 5000))
        << "the click did not reach the window beneath the island's frame";
    EXPECT_TRUE(becomes("isOpen", false));
}

TEST_F(IslandApp, APermissionRequestOpensTheIslandByItselfAndIsAnsweredWithTheMouseOrTheKeyboard) {
    startApp();
    pointerTo(centreX, 900);
    auto tool = hook(permissionRequest);
    ASSERT_TRUE(becomes("isOpen", true, 10000)) << "the request did not open the island";
    const QJsonObject opened = island();
    EXPECT_EQ(opened[text("tab")], text("agents"));
    EXPECT_TRUE(opened[text("openedAutomatically")].toBool());
    EXPECT_TRUE(opened[text("content")].toString().startsWith(text("attention-")));

    const std::optional<QRect> allow = restingButton("allowButton");
    ASSERT_TRUE(allow.has_value()) << "no Allow button resting on the island";
    pointerTo(allow->center().x(), allow->center().y());
    xdotool({text("click"), text("1")});
    ASSERT_TRUE(tool->waitForFinished(10000));
    EXPECT_EQ(tool->readAllStandardOutput(), allowReply);

    // The pointer rests on the island: "y" answers the next request without leaving the keyboard.
    auto second = hook(permissionRequest);
    ASSERT_TRUE(waitUntil([&] { return button("allowButton").has_value(); }, 10000));
    xdotool({text("key"), text("y")});
    ASSERT_TRUE(second->waitForFinished(10000));
    EXPECT_EQ(second->readAllStandardOutput(), allowReply);
}

TEST_F(IslandApp, ScreensComingAndGoingWhileTheIslandIsOpenKeepItWorking) {
    writeSettings({{text("displayChoice"), text("allDisplays")}});
    startApp();
    ASSERT_EQ(islands().size(), 1);
    auto tool = hook(permissionRequest);
    ASSERT_TRUE(becomes("isOpen", true, 10000));

    // A second display arrives: every display gets an island.
    xrandr({text("--setmonitor"), text("left"), text("960/254x1080/286+0+0"), text("screen")});
    xrandr({text("--setmonitor"), text("right"), text("960/254x1080/286+960+0"), text("none")});
    EXPECT_TRUE(waitUntil([&] { return islands().size() == 2; }, 10000))
        << QJsonDocument(islands()).toJson().toStdString();

    // It goes again: one island is left, and the waiting request is still answered.
    xrandr({text("--delmonitor"), text("right")});
    xrandr({text("--delmonitor"), text("left")});
    EXPECT_TRUE(waitUntil([&] { return islands().size() == 1; }, 10000));
    const QString id = real.waitForDecision();
    ASSERT_FALSE(id.isEmpty());
    ctl({text("allow"), id});
    ASSERT_TRUE(tool->waitForFinished(10000));
    EXPECT_EQ(tool->readAllStandardOutput(), allowReply);
}

TEST_F(IslandApp, TheIslandsOwnMenuReachesTheSettingsAndQuitsWhereNoTrayIs) {
    writeSettings({{text("didCompleteOnboarding"), true}});
    startApp();
    QByteArray log;
    EXPECT_TRUE(waitUntil([&] {
        return (log += real.process().readAllStandardError()).contains("has no tray");
    })) << log.toStdString();
    pointerTo(centreX, 6);
    ASSERT_TRUE(becomes("isOpen", true)) << "hovering did not open the island";
    const auto choose = [&](const char* name) {
        const std::optional<QRect> at = restingButton(name);
        ASSERT_TRUE(at.has_value()) << name << " is not on the island";
        pointerTo(at->center().x(), at->center().y());
        xdotool({text("click"), text("1")});
    };
    choose("appMenuButton");
    choose("menuEntry2Button"); // "Quit Mirrowisp"
    ASSERT_TRUE(real.process().waitForFinished(10000)) << "the menu did not quit the app";
    EXPECT_EQ(real.process().exitCode(), 0);
    EXPECT_FALSE(QFileInfo::exists(real.home().supportDir() + text("/bridge.sock")));
}
