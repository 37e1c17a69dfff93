// The island's looks in the states a person meets most, rendered by the real window under Xvfb with
// a compositor and written as PNG files for the README; each picture is checked: the island is drawn,
// the desktop shows through everywhere else, and the open panel grows to what it holds.
#include "../CardStoreFixture.h"
#include "InProcessIsland.h"
#include "island/NotchViewModel.h"

#include <QDir>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPixmap>
#include <QScreen>
#include <QUrl>
#include <cstdlib>
#include <gtest/gtest.h>

using namespace mirrowisp;

namespace {

class IslandScreenshots : public test::InProcessIsland {
protected:
    void SetUp() override {
        InProcessIsland::SetUp();
        frame = controller->screen().frame;
    }

    // An agent's hook event as the bridge hands it over; decisions keep their tool waiting.
    void send(const QJsonObject& event) {
        calls.push_back(test::hookCall(QStringLiteral("r%1").arg(calls.size()), AgentKind::claude, event));
        model.route(calls.back().connection);
    }

    static QJsonObject event(const char* name, const char* session, QJsonObject extra = {}) {
        extra.insert(text("hook_event_name"), text(name));
        extra.insert(text("session_id"), text(session));
        if (!extra.contains(text("cwd"))) {
            extra.insert(text("cwd"), text("/home/dev/mirrowisp"));
        }
        return extra;
    }

    // Waits for the outline to settle at the model's target size, then grabs the island's frame.
    QImage settle(const char* name) {
        const NotchViewModel& island = controller->model();
        EXPECT_TRUE(test::waitUntil([&] { return island.targetSize().width() > 0; }, 3000));
        // The springs settle within a second; rendering is asynchronous, so let it finish.
        QElapsedTimer quiet;
        quiet.start();
        test::waitUntil([&] { return quiet.elapsed() > 1200; }, 3000);
        const QRect area(frame.center().x() - 410, frame.top(), 820, 560);
        QImage image = QGuiApplication::primaryScreen()
                           ->grabWindow(0, area.x(), area.y(), area.width(), area.height())
                           .toImage();
        const QString dir = qEnvironmentVariable("MIRROWISP_SCREENSHOT_DIR", text(MIRROWISP_SCREENSHOT_DIR));
        QDir().mkpath(dir);
        EXPECT_TRUE(image.save(dir + QLatin1Char('/') + text(name) + text(".png"))) << name;
        return image;
    }

    // The compositor's plain grey desktop, as it shows through the window's transparent parts.
    static bool isDesktop(QRgb pixel) {
        return std::abs(qRed(pixel) - 128) < 12 && std::abs(qGreen(pixel) - 128) < 12 &&
               std::abs(qBlue(pixel) - 128) < 12;
    }
    static bool desktopShowsAt(const QImage& image, int x, int y) { return isDesktop(image.pixel(x, y)); }

    // How far down the island reaches at the centre line: the lowest row that is not desktop.
    static int drawnHeight(const QImage& image) {
        int y = image.height() - 1;
        while (y >= 0 && isDesktop(image.pixel(image.width() / 2, y))) {
            --y;
        }
        return y + 1;
    }

    QRect frame;
    std::vector<test::HookCall> calls;
};

} // namespace

TEST_F(IslandScreenshots, ClosedIdleAndWorkingIslands) {
    const QImage idle = settle("closed-idle");
    const int notchHeight = static_cast<int>(controller->model().notchSize().height());
    EXPECT_NEAR(drawnHeight(idle), notchHeight, 2) << "the idle island is the notch";
    EXPECT_TRUE(desktopShowsAt(idle, 20, 20)) << "the window's transparent area is not see-through";
    EXPECT_TRUE(desktopShowsAt(idle, 410, 300));

    send(event("UserPromptSubmit", "work-1", {{text("prompt"), text("Tidy the island's layout code")}}));
    send(event("PreToolUse", "work-1",
               {{text("tool_name"), text("Bash")},
                {text("tool_input"), QJsonObject{{text("command"), text("make")}}}}));
    ASSERT_TRUE(test::waitUntil([&] { return controller->model().closedSize().width() > 200; }, 5000))
        << "a working session did not grow the wings";
    const QImage working = settle("closed-working");
    // Wings stand out left and right of the notch.
    const int row = notchHeight / 2;
    EXPECT_FALSE(desktopShowsAt(working, 410 - 100, row));
    EXPECT_FALSE(desktopShowsAt(working, 410 + 100, row));
    EXPECT_TRUE(desktopShowsAt(working, 410 + 150, row));
}

TEST_F(IslandScreenshots, VolumeTransientWidensTheIsland) {
    model.flash(TransientActivity::levelChange(TransientActivity::Case::volume, 0.6), 60);
    // The notch widened by two 118-wide wings and the gap between them.
    const double notch = controller->model().notchSize().width();
    ASSERT_TRUE(test::waitUntil(
        [&] { return controller->model().closedSize().width() == notch + 2 * 118 + 8; }, 5000));
    const QImage volume = settle("transient-volume");
    EXPECT_FALSE(desktopShowsAt(volume, 410 - static_cast<int>(notch / 2) - 100, 10))
        << "the volume wing is not drawn";
    EXPECT_TRUE(desktopShowsAt(volume, 410 - static_cast<int>(notch / 2) - 140, 10));
}

TEST_F(IslandScreenshots, CardsForAPermissionTwoQuestionsAndAPlan) {
    send(event("PermissionRequest", "perm-1",
               {{text("tool_name"), text("Bash")},
                {text("tool_input"), QJsonObject{{text("command"), text("rm -rf build && cmake --preset ci")},
                                                 {text("description"), text("Rebuild from scratch")}}}}));
    ASSERT_TRUE(test::waitUntil([&] { return controller->model().isOpen(); }, 10000));
    const QImage permission = settle("card-permission");
    EXPECT_GT(drawnHeight(permission), 150) << "the panel did not grow around the card";
    EXPECT_TRUE(desktopShowsAt(permission, 10, 540));

    const QJsonArray questions{
        QJsonObject{{text("question"), text("Which database should the cache use?")},
                    {text("header"), text("Storage")},
                    {text("multiSelect"), false},
                    {text("options"), QJsonArray{QJsonObject{{text("label"), text("SQLite")}},
                                                 QJsonObject{{text("label"), text("Redis")}}}}},
        QJsonObject{{text("question"), text("Which platforms must it support?")},
                    {text("header"), text("Targets")},
                    {text("multiSelect"), true},
                    {text("options"), QJsonArray{QJsonObject{{text("label"), text("Linux")}},
                                                 QJsonObject{{text("label"), text("BSD")}},
                                                 QJsonObject{{text("label"), text("WSL")}}}}}};
    send(event("PermissionRequest", "ask-1",
               {{text("tool_name"), text("AskUserQuestion")},
                {text("tool_input"), QJsonObject{{text("questions"), questions}}}}));
    // Hide the permission session so the question's card leads the list.
    ASSERT_TRUE(
        test::waitUntil([&] { return model.agents().findSession(text("claude:ask-1")) != nullptr; }, 10000));
    model.agents().dismiss(text("claude:perm-1"));
    const QImage question = settle("card-question");
    EXPECT_GT(drawnHeight(question), 200);

    const QString plan = text(
        "# Cache the island's layout\n\nMeasure once, then reuse the sizes.\n\n## Steps\n\n"
        "1. Add a `LayoutCache` keyed by tab\n2. Invalidate on **font** changes\n   - and on screen scale\n\n"
        "```cpp\nauto size = cache.value(tab);\n```\n\n> Keep the dead band at half a point.\n");
    send(event("PermissionRequest", "plan-1",
               {{text("tool_name"), text("ExitPlanMode")},
                {text("tool_input"), QJsonObject{{text("plan"), plan}}}}));
    ASSERT_TRUE(
        test::waitUntil([&] { return model.agents().findSession(text("claude:plan-1")) != nullptr; }, 10000));
    model.agents().dismiss(text("claude:ask-1"));
    const QImage planned = settle("card-plan");
    EXPECT_GT(drawnHeight(planned), 200);
}

TEST_F(IslandScreenshots, BatteryAndHeadsetMomentsAndTheHomeTabsDevices) {
    model.flash(TransientActivity::battery(64, true, text("Charging")), 60);
    const double notch = controller->model().notchSize().width();
    ASSERT_TRUE(test::waitUntil([&] { return controller->model().closedSize().width() > notch; }, 5000))
        << "the battery moment did not widen the island";
    settle("transient-battery");

    BluetoothAudioDevice buds;
    buds.name = text("Buds");
    buds.address = text("AA:BB:CC:DD:EE:FF");
    buds.batterySingle = 80;
    buds.icon = text("audio-headphones");
    model.flash(TransientActivity::bluetooth(buds), 60);
    settle("transient-bluetooth");

    model.setDevices(
        {{text("battery"), 64},
         {text("charging"), true},
         {text("bluetooth"), QVariantList{QVariantMap{{text("name"), text("Buds")},
                                                      {text("battery"), 80},
                                                      {text("icon"), text("audio-headphones")}}}}});
    controller->open(NotchTab::home, true);
    ASSERT_TRUE(test::waitUntil([&] { return controller->model().isOpen(); }, 3000));
    const QImage opened = settle("home-devices");
    EXPECT_GT(drawnHeight(opened), 100) << "the home tab did not open";
}

TEST_F(IslandScreenshots, ShelfTabWithPicturesIconsAndAStack) {
    prefs.setShelfEnabled(true);
    const QString dir = home.path() + text("/Pictures");
    QDir().mkpath(dir);
    // Sky over a sea in a colour nothing else on the island has, so the picture's tile is easy to find.
    const QColor teal(0, 150, 136);
    QImage photo(400, 300, QImage::Format_RGB32);
    photo.fill(teal);
    for (int y = 0; y < 150; ++y) {
        for (int x = 0; x < 400; ++x) {
            photo.setPixelColor(x, y, QColor(135 - y / 2, 206 - y / 3, 235 - y / 5));
        }
    }
    // A name that an address must carry intact: spaces, a per cent sign, letters beyond ASCII.
    ASSERT_TRUE(photo.save(dir + QStringLiteral("/Straße 5%.png")));
    QImage sketch(300, 300, QImage::Format_RGB32);
    sketch.fill(QColor(230, 120, 40));
    ASSERT_TRUE(sketch.save(dir + text("/sketch.png")));
    ASSERT_TRUE(sketch.save(dir + text("/sketch-2.png")));
    test::writeFile(dir + text("/notes.txt"), "Milestones for the release");
    test::writeFile(dir + text("/report.pdf"), "%PDF-1.4");
    const auto url = [&](const char* name) {
        return QUrl::fromLocalFile(dir + QLatin1Char('/') + text(name));
    };
    ASSERT_EQ(model.addToShelf({url("report.pdf"), url("notes.txt")}, false), 2);
    ASSERT_EQ(model.addToShelf({url("sketch.png"), url("sketch-2.png")}, true), 2);
    ASSERT_EQ(model.addToShelf({QUrl::fromLocalFile(dir + QStringLiteral("/Straße 5%.png"))}, false), 1);

    controller->open(NotchTab::shelf, true);
    ASSERT_TRUE(test::waitUntil([&] { return controller->model().isOpen(); }, 3000));
    const QImage shelf = settle("shelf");
    EXPECT_GT(drawnHeight(shelf), 100) << "the shelf tab did not open";
    int tealPixels = 0;
    for (int y = 0; y < shelf.height(); ++y) {
        for (int x = 0; x < shelf.width(); ++x) {
            tealPixels += QColor(shelf.pixel(x, y)) == teal ? 1 : 0;
        }
    }
    EXPECT_GT(tealPixels, 20 * 40) << "the picture's thumbnail is not on its tile";
}
