// Frames the island draws while it opens, under a private X server with a compositor: the open
// spring's duration, the frames swapped in it and the rate, beside the 50 frames a second target.
// Runs the open five times and prints each with the median.
#include "app/AppModel.h"
#include "app/LaunchAtLogin.h"
#include "app/Preferences.h"
#include "base/UserDefaults.h"
#include "island/IslandShell.h"
#include "island/NotchAnimation.h"
#include "island/NotchManager.h"
#include "island/NotchWindowController.h"
#include "island/x11/IslandWindow.h"
#include "support/XvfbServer.h"

#include <QElapsedTimer>
#include <QGuiApplication>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>
#include <vector>

using namespace mirrowisp;

namespace {

class Never final : public LaunchAtLogin {
public:
    bool isEnabled() const override { return false; }
    std::optional<QString> setEnabled(bool) override { return std::nullopt; }
};

void runFor(int ms) {
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < ms) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    }
}

} // namespace

int main(int argc, char** argv) {
    test::XvfbServer server;
    if (!server.start(true, true)) {
        std::fprintf(stderr, "bench_island_open: %s\n", qPrintable(server.error()));
        return 1;
    }
    QTemporaryDir home;
    qputenv("DISPLAY", server.display().toLocal8Bit());
    qputenv("QT_QPA_PLATFORM", "xcb");
    qputenv("HOME", home.path().toLocal8Bit());
    qputenv("XDG_CONFIG_HOME", (home.path() + QStringLiteral("/.config")).toLocal8Bit());
    qputenv("MIRROWISP_SUPPORT_DIR", (home.path() + QStringLiteral("/support")).toLocal8Bit());
    QGuiApplication app(argc, argv);

    UserDefaults defaults(home.path() + QStringLiteral("/defaults.json"));
    Never login;
    Preferences prefs(defaults, login);
    AppModel model(prefs, defaults, SystemClock::shared(),
                   {[] { return std::optional<QString>(); },
                    [](const QString&) { return ClaudeUsageProbe::FetchResult{}; }});
    IslandShell shell(model, {});
    shell.start();
    NotchWindowController* controller = shell.manager().primaryController();
    auto* window = controller ? dynamic_cast<IslandWindow*>(controller->panel()) : nullptr;
    if (window == nullptr) {
        std::fprintf(stderr, "bench_island_open: no island window\n");
        return 1;
    }
    int frames = 0;
    QObject::connect(window, &QQuickWindow::frameSwapped, [&frames] { ++frames; });
    runFor(1500);

    const int duration = NotchAnimation::durationOf(u"open").value_or(0);
    std::vector<double> rates;
    std::printf("%-8s %12s %8s %10s\n", "run", "duration ms", "frames", "frames/s");
    for (int run = 1; run <= 5; ++run) {
        frames = 0;
        controller->open(NotchTab::home, false);
        runFor(duration);
        const double rate = 1000.0 * frames / std::max(duration, 1);
        rates.push_back(rate);
        std::printf("%-8d %12d %8d %10.1f\n", run, duration, frames, rate);
        controller->closeIsland();
        runFor(1200);
    }
    std::sort(rates.begin(), rates.end());
    std::printf("%-8s %12s %8s %10.1f\n", "median", "", "", rates[rates.size() / 2]);
    std::printf("%-8s %12s %8s %10.1f\n", "target", "", "", 50.0);
    return 0;
}
