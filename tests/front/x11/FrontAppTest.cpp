// The real app's settings window and setup guide under a private X server, opened with `mirrowisp
// ctl` and driven from the keyboard with xdotool as a person would.
#include "../../island/x11/X11Desktop.h"
#include "support/RealApp.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <gtest/gtest.h>

namespace {

using mirrowisp::test::text;
using mirrowisp::test::waitUntil;

class FrontApp : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(real.busStarted()) << "dbus-daemon did not start"; }

    QString defaultsPath() const { return real.home().path() + text("/.config/mirrowisp/defaults.json"); }
    // The guide is done, so it never takes the keyboard from the window under test.
    void startApp(QJsonObject settings = {}) {
        settings.insert(text("didCompleteOnboarding"), true);
        mirrowisp::test::writeFile(defaultsPath(), QJsonDocument(settings).toJson());
        ASSERT_TRUE(real.start());
    }
    QJsonObject storedSettings() const {
        return QJsonDocument::fromJson(mirrowisp::test::readFile(defaultsPath())).object();
    }

    // The visible windows with this title, as the window manager's neighbours find them.
    static QStringList windowsTitled(const QString& title) {
        QProcess search;
        search.start(text("xdotool"),
                     {text("search"), text("--onlyvisible"), text("--name"), text("^") + title + text("$")});
        search.waitForFinished(10000);
        return QString::fromUtf8(search.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
    }
    // Waits for the one window with this title and gives it the keyboard.
    QString focusWindow(const QString& title) {
        QStringList found;
        if (!waitUntil([&] { return (found = windowsTitled(title)).size() == 1; }, 15000)) {
            return {};
        }
        keys({text("windowactivate"), text("--sync"), found.first()});
        return found.first();
    }
    void keys(const QStringList& arguments) { ASSERT_TRUE(mirrowisp::test::xdotool(arguments)); }
    // Lets the window draw and its rows arrive before keys walk through it.
    static void settle() {
        waitUntil([] { return false; }, 1500);
    }

    QJsonArray sessions() { return real.sessions(); }

    mirrowisp::test::RealApp real{true};
};

} // namespace

TEST_F(FrontApp, SettingsOpensOnceAndASwitchChangesTheDefaultsFile) {
    startApp();
    EXPECT_EQ(real.ctl({text("settings"), text("general")}).exitCode, 0);
    EXPECT_EQ(real.ctl({text("settings"), text("general")}).exitCode, 0);
    ASSERT_FALSE(focusWindow(text("Mirrowisp Settings")).isEmpty()) << "not exactly one settings window";
    settle();
    // Launch at login, then open on hover.
    keys({text("key"), text("Tab"), text("Tab"), text("space")});
    EXPECT_TRUE(waitUntil([&] { return storedSettings().value(text("openOnHover")) == false; }, 5000))
        << QJsonDocument(storedSettings()).toJson().toStdString();
    EXPECT_EQ(windowsTitled(text("Mirrowisp Settings")).size(), 1);
}

TEST_F(FrontApp, ConnectOnTheAgentsPageInstallsTheHooksOfAnAgentFoundHere) {
    // A file Claude Code leaves behind is enough to find it; disconnected, so only the button connects.
    mirrowisp::test::writeFile(real.home().path() + text("/.claude.json"), "{}");
    startApp({{text("disconnected.claude"), true}});
    EXPECT_EQ(real.ctl({text("settings"), text("agents")}).exitCode, 0);
    ASSERT_FALSE(focusWindow(text("Mirrowisp Settings")).isEmpty());
    settle();
    keys({text("key"), text("Tab"), text("space")}); // the first row's Connect
    const QString settings = real.home().path() + text("/.claude/settings.json");
    EXPECT_TRUE(
        waitUntil([&] { return mirrowisp::test::readFile(settings).contains("mirrowisp-bridge"); }, 10000));
    const QJsonArray agents = QJsonDocument::fromJson(real.ctl({text("agents")}).out).array();
    EXPECT_EQ(agents.first()[text("setup")], text("connected"));
}

TEST_F(FrontApp, TheGuidesSampleRequestShowsInTheListAndLeavesOnceAllowed) {
    startApp();
    EXPECT_EQ(real.ctl({text("setup-guide")}).exitCode, 0);
    ASSERT_FALSE(focusWindow(text("Mirrowisp Setup Guide")).isEmpty());
    settle();
    // Next twice (welcome, agents), then round to the first control of the page: Try It.
    keys({text("key"), text("Tab"), text("space")});
    settle();
    keys({text("key"), text("space"), text("Tab"), text("space")});
    const QString id = real.waitForDecision();
    ASSERT_FALSE(id.isEmpty()) << "no sample request in the list";
    EXPECT_TRUE(id.startsWith(text("sample-")));
    EXPECT_EQ(real.ctl({text("allow"), id}).exitCode, 0);
    EXPECT_TRUE(waitUntil([&] { return sessions().isEmpty(); }, 5000))
        << QJsonDocument(sessions()).toJson().toStdString();
    // The log tells the guide's sample apart from an agent's request answered by ctl.
    EXPECT_TRUE(waitUntil(
        [&] {
            return real.ctl({text("log"), text("--json")}).out.contains(R"("route":"setupGuide")");
        },
        5000));
}
