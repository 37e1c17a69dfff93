// Typing a shelf path at an agent's prompt in kitty and WezTerm, through stand-ins that record what
// the real tools would have been asked.
#include "jump/JumpTestSupport.h"
#include "jump/TerminalDrivers.h"

#include <gtest/gtest.h>

using namespace mirrowisp;
using namespace Qt::StringLiterals;
using mirrowisp::test::StandIns;
using mirrowisp::test::words;

namespace {

struct SendCase {
    const char* label;
    const char* tool;
    int exitStatus;
    QMap<QString, QString> environment;
    QStringList arguments; // empty: the tool must not run
    bool sent;
};

class SendText : public testing::TestWithParam<SendCase> {};

const QString typed = u"'/tmp/a b\\c.png' "_s;

TEST_P(SendText, ReachesTheAgentsWindowOnly) {
    const SendCase& c = GetParam();
    StandIns standIns;
    const QString tool = QString::fromLatin1(c.tool);
    standIns.add(tool, c.exitStatus);
    TerminalDrivers::Tools tools;
    tools.path = standIns.path();
    ProcessContext context;
    context.environment = c.environment;

    const bool sent = tool == u"kitty"_s ? TerminalDrivers::sendTextKitty(typed, context, tools)
                                         : TerminalDrivers::sendTextWezTerm(typed, context, tools);
    EXPECT_EQ(sent, c.sent);
    EXPECT_EQ(standIns.ran(tool), !c.arguments.isEmpty());
    EXPECT_EQ(standIns.arguments(tool), c.arguments);
    if (c.environment.contains(u"WEZTERM_UNIX_SOCKET"_s)) {
        EXPECT_EQ(standIns.environment(tool).value(u"WEZTERM_UNIX_SOCKET"_s), u"/run/w sock"_s);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Terminals, SendText,
    testing::Values(
        // kitty reads escapes in the text: the path's backslash goes doubled.
        SendCase{"KittyBySocket",
                 "kitty",
                 0,
                 {{u"KITTY_WINDOW_ID"_s, u"7"_s}, {u"KITTY_LISTEN_ON"_s, u"unix:/tmp/kitty-1"_s}},
                 words(u"@ --to unix:/tmp/kitty-1 send-text --match id:7 --bracketed-paste auto")
                     << u"'/tmp/a b\\\\c.png' "_s,
                 true},
        SendCase{"KittyWithoutSocket",
                 "kitty",
                 0,
                 {{u"KITTY_WINDOW_ID"_s, u"7"_s}},
                 words(u"@ send-text --match id:7 --bracketed-paste auto") << u"'/tmp/a b\\\\c.png' "_s,
                 true},
        SendCase{"KittyRefuses",
                 "kitty",
                 1,
                 {{u"KITTY_WINDOW_ID"_s, u"7"_s}},
                 words(u"@ send-text --match id:7 --bracketed-paste auto") << u"'/tmp/a b\\\\c.png' "_s,
                 false},
        SendCase{"NotInKitty", "kitty", 0, {{u"KITTY_LISTEN_ON"_s, u"unix:/tmp/kitty-1"_s}}, {}, false},
        SendCase{"WezTermPane",
                 "wezterm",
                 0,
                 {{u"WEZTERM_PANE"_s, u"3"_s}, {u"WEZTERM_UNIX_SOCKET"_s, u"/run/w sock"_s}},
                 words(u"cli send-text --pane-id 3") << typed,
                 true},
        SendCase{"WezTermRefuses",
                 "wezterm",
                 1,
                 {{u"WEZTERM_PANE"_s, u"3"_s}},
                 words(u"cli send-text --pane-id 3") << typed,
                 false},
        SendCase{"NotInWezTerm", "wezterm", 0, {{u"WEZTERM_PANE"_s, u""_s}}, {}, false}),
    [](const auto& param) { return std::string(param.param.label); });

} // namespace
