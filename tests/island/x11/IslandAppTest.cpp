// The real app's island under a private X server (window manager and compositor running), driven
// with xdotool as a person would drive it, and read back through `mirrowisp ctl island`.
#include "support/TestSupport.h"

#include <QFile>
#include <QGuiApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QScreen>
#include <gtest/gtest.h>
#include <xcb/xcb.h>

namespace {

using mirrowisp::test::text;

class IslandApp : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_FALSE(bus.address().isEmpty()) << "dbus-daemon did not start";
        env = mirrowisp::test::appEnvironment(bus.address());
        const QRect screen = QGuiApplication::primaryScreen()->geometry();
        centreX = screen.center().x();
    }

    void TearDown() override {
        if (app.state() != QProcess::NotRunning) {
            app.terminate();
            app.waitForFinished(5000);
        }
        if (beneath != 0 && connection != nullptr) {
            xcb_destroy_window(connection, beneath);
        }
        if (connection != nullptr) {
            xcb_disconnect(connection);
        }
    }

    // Settings as the user left them, written before the app reads them.
    void writeSettings(const QJsonObject& settings) {
        mirrowisp::test::writeFile(home.path() + text("/.config/mirrowisp/defaults.json"),
                                   QJsonDocument(settings).toJson());
    }

    void startApp() {
        app.setProcessEnvironment(env);
        app.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        app.start(text(MIRROWISP_APP_PATH), {});
        ASSERT_TRUE(mirrowisp::test::waitUntil([&] { return !island().isEmpty(); }, 15000))
            << "the app showed no island";
    }

    QByteArray ctl(const QStringList& arguments) {
        QProcess process;
        process.setProcessEnvironment(env);
        process.start(text(MIRROWISP_APP_PATH), QStringList{text("ctl")} + arguments);
        process.waitForFinished(10000);
        return process.readAllStandardOutput();
    }

    QJsonArray islands() { return QJsonDocument::fromJson(ctl({text("island")})).array(); }
    QJsonObject island() { return islands().first().toObject(); }

    // Splits the screen into monitors, or joins them again, as plugging a display in would.
    void xrandr(const QStringList& arguments) {
        QProcess process;
        process.setProcessEnvironment(env);
        process.start(text("xrandr"), arguments);
        ASSERT_TRUE(process.waitForFinished(5000));
        ASSERT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();
    }

    void xdotool(const QStringList& arguments) {
        QProcess process;
        process.setProcessEnvironment(env);
        process.start(text("xdotool"), arguments);
        ASSERT_TRUE(process.waitForFinished(5000));
        ASSERT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();
    }

    // Lands one pixel short and steps in, as a mouse would, so the global monitor hears it too.
    void pointerTo(int x, int y) {
        xdotool({text("mousemove"), QString::number(x - 1), QString::number(y), text("mousemove_relative"),
                 text("--"), text("1"), text("0")});
    }

    bool becomes(const char* key, bool value, int timeoutMs = 5000) {
        return mirrowisp::test::waitUntil([&] { return island()[text(key)].toBool() == value; }, timeoutMs);
    }

    std::unique_ptr<QProcess> hook(const QJsonObject& event) {
        auto process = std::make_unique<QProcess>();
        process->setProcessEnvironment(env);
        process->start(text(MIRROWISP_BRIDGE_TOOL_PATH), {text("--agent"), text("claude")});
        process->write(QJsonDocument(event).toJson(QJsonDocument::Compact));
        process->closeWriteChannel();
        return process;
    }

    std::optional<QRect> button(const char* name) {
        for (const QJsonValue& value : island()[text("buttons")].toArray()) {
            const QJsonObject b = value.toObject();
            if (b[text("name")].toString() == text(name)) {
                return QRect(qRound(b[text("x")].toDouble()), qRound(b[text("y")].toDouble()),
                             qRound(b[text("width")].toDouble()), qRound(b[text("height")].toDouble()));
            }
        }
        return std::nullopt;
    }

    // A plain window of another client under the island's transparent frame, that counts its clicks.
    void openWindowBeneath(QRect rect) {
        connection = xcb_connect(nullptr, nullptr);
        ASSERT_EQ(xcb_connection_has_error(connection), 0);
        xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
        beneath = xcb_generate_id(connection);
        const uint32_t values[] = {screen->white_pixel, 1, XCB_EVENT_MASK_BUTTON_PRESS};
        xcb_create_window(connection, XCB_COPY_FROM_PARENT, beneath, screen->root,
                          static_cast<int16_t>(rect.x()), static_cast<int16_t>(rect.y()),
                          static_cast<uint16_t>(rect.width()), static_cast<uint16_t>(rect.height()), 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual,
                          XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK, values);
        xcb_map_window(connection, beneath);
        // Beneath the island: the island's window keeps above everything else.
        const uint32_t below[] = {XCB_STACK_MODE_BELOW};
        xcb_configure_window(connection, beneath, XCB_CONFIG_WINDOW_STACK_MODE, below);
        xcb_flush(connection);
    }

    int pressesBeneath() {
        while (xcb_generic_event_t* event = xcb_poll_for_event(connection)) {
            if ((event->response_type & 0x7f) == XCB_BUTTON_PRESS) {
                ++presses;
            }
            free(event);
        }
        return presses;
    }

    mirrowisp::test::TemporaryHome home;
    mirrowisp::test::PrivateSessionBus bus;
    QProcess app;
    QProcessEnvironment env;
    int centreX = 0;
    xcb_connection_t* connection = nullptr;
    xcb_window_t beneath = 0;
    int presses = 0;
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
    const QJsonObject closed = island();
    EXPECT_FALSE(closed[text("isOpen")].toBool());
    EXPECT_EQ(closed[text("content")], text("none"));
    EXPECT_EQ(closed[text("tab")], text("home"));

    pointerTo(centreX - 300, 400);
    xdotool({text("mousemove_relative"), text("--"), text("300"), text("-394"), text("mousemove_relative"),
             text("--"), text("300"), text("394")});
    EXPECT_FALSE(becomes("isOpen", true, 1200)) << "a crossing opened the island";

    // Warped, as a window manager's key or a remote desktop moves it: no device motion at all.
    xdotool({text("mousemove"), QString::number(centreX), text("6")});
    ASSERT_TRUE(becomes("isOpen", true)) << "a pointer warped onto the island did not open it";
    EXPECT_FALSE(island()[text("openedAutomatically")].toBool());
    EXPECT_EQ(island()[text("targetSize")][text("width")], 668);

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
    ASSERT_TRUE(mirrowisp::test::waitUntil([&] { return content().startsWith(text("transient-")); }, 5000));
    EXPECT_TRUE(mirrowisp::test::waitUntil([&] { return !content().startsWith(text("transient-")); }, 6000))
        << "the 3-second flash stayed";

    auto tool = hook(permissionRequest);
    EXPECT_TRUE(mirrowisp::test::waitUntil([&] { return content().startsWith(text("attention-")); }, 10000));
}

TEST_F(IslandApp, AClickBesideTheIslandClosesItAndReachesTheWindowBeneath) {
    startApp();
    // Inside the island's transparent frame (820 x 560 at the top centre) but away from the island.
    const QRect rect(centreX + 340, 300, 60, 60);
    openWindowBeneath(rect);
    pointerTo(rect.center().x(), rect.center().y());
    // Opened by itself for a request, the island stays open while the pointer is elsewhere…
    auto tool = hook(permissionRequest);
    ASSERT_TRUE(becomes("isOpen", true, 10000));
    pointerTo(rect.center().x() + 1, rect.center().y());
    EXPECT_FALSE(becomes("isOpen", false, 600));

    // …until a click elsewhere, which also reaches the window it was meant for.
    xdotool({text("click"), text("1")});
    EXPECT_TRUE(mirrowisp::test::waitUntil([&] { return pressesBeneath() == 1; }, 5000))
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

    std::optional<QRect> allow;
    ASSERT_TRUE(mirrowisp::test::waitUntil([&] { return (allow = button("allowButton")).has_value(); }, 5000))
        << "no Allow button on the island";
    pointerTo(allow->center().x(), allow->center().y());
    xdotool({text("click"), text("1")});
    ASSERT_TRUE(tool->waitForFinished(10000));
    EXPECT_EQ(tool->readAllStandardOutput(), allowReply);

    // The pointer rests on the island: "y" answers the next request without leaving the keyboard.
    auto second = hook(permissionRequest);
    ASSERT_TRUE(mirrowisp::test::waitUntil([&] { return button("allowButton").has_value(); }, 10000));
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
    EXPECT_TRUE(mirrowisp::test::waitUntil([&] { return islands().size() == 2; }, 10000))
        << QJsonDocument(islands()).toJson().toStdString();

    // It goes again: one island is left, and the waiting request is still answered.
    xrandr({text("--delmonitor"), text("right")});
    xrandr({text("--delmonitor"), text("left")});
    EXPECT_TRUE(mirrowisp::test::waitUntil([&] { return islands().size() == 1; }, 10000));
    const QJsonObject sessions = QJsonDocument::fromJson(ctl({text("sessions")})).array().first().toObject();
    const QString id = sessions[text("pending")][0][text("id")].toString();
    ASSERT_FALSE(id.isEmpty());
    ctl({text("allow"), id});
    ASSERT_TRUE(tool->waitForFinished(10000));
    EXPECT_EQ(tool->readAllStandardOutput(), allowReply);
}
