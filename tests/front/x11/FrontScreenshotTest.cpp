// The settings pages and the setup guide as PNG files for the README, drawn by the real views under
// Xvfb; scripts/screenshots.sh points MIRROWISP_SCREENSHOT_DIR at docs/screenshots.
#include "../FrontFixture.h"
#include "agents/DecisionLog.h"
#include "front/SettingsWindow.h"
#include "front/SetupGuideModel.h"
#include "front/SetupGuideWindow.h"

#include <QDir>
#include <QElapsedTimer>
#include <QImage>
#include <QJsonArray>
#include <QSet>
#include <gtest/gtest.h>

using namespace mirrowisp;
using mirrowisp::test::text;

namespace {

class FrontScreenshots : public testing::Test, public test::FrontFixture {
protected:
    // Two agents on this machine and a Claude limit, so the pages show what a user sees.
    SettingsServices shownServices() {
        SettingsServices services = this->services();
        services.isInstalled = [](AgentKind kind) {
            return kind == AgentKind::claude || kind == AgentKind::codex;
        };
        return services;
    }

    // Lets the view settle, grabs it and checks it is a drawn window, not an empty one.
    static void save(QQuickWindow& window, const char* name) {
        QElapsedTimer quiet;
        quiet.start();
        test::waitUntil([&] { return quiet.elapsed() > 800; }, 2000);
        const QImage image = window.grabWindow();
        ASSERT_EQ(image.size(), window.size() * window.devicePixelRatio()) << name;
        QSet<QRgb> colours;
        for (int y = 0; y < image.height(); y += 7) {
            for (int x = 0; x < image.width(); x += 7) {
                colours.insert(image.pixel(x, y));
            }
        }
        EXPECT_GT(colours.size(), 20) << name << " is blank";
        const QString dir = qEnvironmentVariable("MIRROWISP_SCREENSHOT_DIR", text(MIRROWISP_SCREENSHOT_DIR));
        QDir().mkpath(dir);
        EXPECT_TRUE(image.save(dir + u'/' + text(name) + text(".png"))) << name;
    }
};

} // namespace

TEST_F(FrontScreenshots, EverySettingsPageAndTheSetupGuide) {
    start();
    model->usage().ingestClaudeStatusLine(QJsonObject{
        {text("rate_limits"),
         QJsonObject{{text("limits"),
                      QJsonArray{QJsonObject{{text("kind"), text("session")}, {text("percent"), 42}},
                                 QJsonObject{{text("kind"), text("weekly")}, {text("percent"), 17}}}}}}});
    // A few decisions and an always-allow rule for the Decisions page.
    QByteArray log;
    const char* commands[] = {"npm test", "git push origin main", "rm -rf dist", "make"};
    const DecisionOutcome outcomes[] = {DecisionOutcome::allowed, DecisionOutcome::denied,
                                        DecisionOutcome::alwaysAllowed, DecisionOutcome::allowed};
    for (int i = 0; i < 4; ++i) {
        DecisionRecord record;
        record.askedAt = record.endedAt = 1.7e9 + i * 60;
        record.agent = i == 1 ? AgentKind::codex : AgentKind::claude;
        record.cwd = text("/home/dev/mirrowisp");
        record.kind = text("permission");
        record.tool = text("Bash");
        record.summary = text(commands[i]);
        record.outcome = outcomes[i];
        log += record.toJsonLine();
    }
    test::writeFile(DecisionLog::path(home.supportDir()), log);
    test::writeFile(home.path() + text("/.claude/settings.json"),
                    R"json({"permissions":{"allow":["Bash(rm -rf dist)","Bash(npm test:*)"]}})json");
    ASSERT_EQ(pass->setConnected(text("claude"), true), std::nullopt);
    SettingsWindow settings(shownServices(), engine);
    for (const char* page : {"general", "agents", "decisions", "usage", "island", "calendar", "about"}) {
        settings.show(text(page));
        ASSERT_NE(settings.window(), nullptr);
        save(*settings.window(), (std::string("settings-") + page).c_str());
    }
    settings.window()->hide();

    SetupGuideWindow guide(shownServices(), engine);
    guide.show();
    ASSERT_NE(guide.window(), nullptr);
    save(*guide.window(), "setup-guide");
    guide.window()->setProperty("step", 1);
    save(*guide.window(), "setup-guide-agents");
}
