// Handing a shelf file to an agent: its path typed into a real tmux pane, read back from the screen.
#include "app/ShelfActions.h"
#include "bridge/BridgeProtocol.h"
#include "jump/JumpTestSupport.h"
#include "support/ScopedEnvironment.h"
#include "support/TestSupport.h"

#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace mirrowisp {
namespace {

using test::text;

class TmuxServer {
public:
    TmuxServer() : socket_(dir_.filePath(text("tmux.sock"))) {
        ok_ = tmux({text("new-session"), text("-d"), text("-x"), text("120"), text("-y"), text("10"),
                    text("cat")}) &&
              tmux({text("display-message"), text("-p"), text("#{pane_id}")}, &pane_);
        pane_ = pane_.trimmed();
    }
    ~TmuxServer() { tmux({text("kill-server")}); }
    bool ok() const { return ok_; }
    ProcessContext context() const {
        ProcessContext context;
        context.tmuxPane = pane_;
        context.environment = QMap<QString, QString>{{text("TMUX"), socket_ + text(",1,0")}};
        return context;
    }
    QString screen() {
        QString out;
        tmux({text("capture-pane"), text("-p"), text("-t"), pane_}, &out);
        return out.trimmed();
    }

private:
    bool tmux(const QStringList& arguments, QString* out = nullptr) {
        QProcess process;
        process.start(text("tmux"), QStringList{text("-S"), socket_} + arguments);
        const bool done = process.waitForFinished(5000) && process.exitCode() == 0;
        if (out != nullptr) {
            *out = QString::fromUtf8(process.readAllStandardOutput());
        }
        return done;
    }
    QTemporaryDir dir_;
    QString socket_;
    QString pane_;
    bool ok_ = false;
};

TEST(ShelfSend, TypesThePathAtThePromptWithoutEnter) {
    TmuxServer server;
    ASSERT_TRUE(server.ok());
    const QString path = text("/tmp/My Shots/it's.png");
    ASSERT_TRUE(ShelfActions::pasteIntoTmux(ShelfActions::pastedPath(path), server.context()));
    EXPECT_TRUE(test::waitUntil([&] { return !server.screen().isEmpty(); }));
    // One line, unanswered by cat: no Enter was pressed.
    EXPECT_EQ(server.screen(), text("'/tmp/My Shots/it'\\''s.png'"));
}

TEST(ShelfSend, NoPaneNoPaste) {
    ProcessContext context;
    context.environment = QMap<QString, QString>{{text("TMUX"), text("/nowhere/sock,1,0")}};
    EXPECT_FALSE(ShelfActions::pasteIntoTmux(text("x"), context));
    context.tmuxPane = text("%0");
    EXPECT_FALSE(ShelfActions::pasteIntoTmux(text("x"), context));
}

// The pane the agent runs in wins over the terminal around it; without either, nothing is typed.
TEST(ShelfSend, TakesTheFirstWayThatReachesTheAgent) {
    TmuxServer server;
    ASSERT_TRUE(server.ok());
    test::StandIns standIns;
    standIns.add(text("kitty"));
    standIns.add(text("wezterm"));
    test::ScopedEnvironment environment;
    environment.set("PATH", (standIns.path() + text(":/usr/bin:/bin")).toUtf8());
    const QMap<QString, QString> kitty{{text("KITTY_WINDOW_ID"), text("4")}};
    const QMap<QString, QString> wezterm{{text("WEZTERM_PANE"), text("2")}};
    ProcessContext inTmux = server.context();
    inTmux.environment->insert(kitty);
    ProcessContext inKitty;
    inKitty.environment = kitty;
    inKitty.environment->insert(wezterm);
    ProcessContext inWezTerm;
    inWezTerm.environment = wezterm;
    const struct {
        ProcessContext context;
        std::optional<QString> way;
    } cases[] = {{inTmux, text("tmux")}, {inKitty, text("kitty")}, {inWezTerm, text("wezterm")}, {{}, {}}};
    for (const auto& c : cases) {
        EXPECT_EQ(ShelfActions::typeIntoTerminal(text("/tmp/x "), c.context), c.way);
    }
    EXPECT_EQ(server.screen(), text("/tmp/x"));
}

} // namespace
} // namespace mirrowisp
