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

enum class Answer { ok, refuses, refusesTheOption };

struct SendCase {
    const char* label;
    const char* tool;
    Answer answer;
    QMap<QString, QString> environment;
    QStringList arguments; // of the last call; empty: the tool must not run
    bool sent;
};

class SendText : public testing::TestWithParam<SendCase> {};

const QString typed = u"'/tmp/a b\\c.png' "_s;
// kitty reads escapes in the text: the path's backslash goes doubled.
const QString typedForKitty = u"'/tmp/a b\\\\c.png' "_s;

TEST_P(SendText, ReachesTheAgentsWindowOnly) {
    const SendCase& c = GetParam();
    StandIns standIns;
    const QString tool = QString::fromLatin1(c.tool);
    const QString path = standIns.add(tool, c.answer == Answer::refuses ? 1 : 0);
    if (c.answer == Answer::refusesTheOption) {
        // As an older release: records the call, then turns down an option it does not know.
        QString script = QString::fromUtf8(test::readFile(path));
        script.replace(u"exit 0"_s, u"for a; do [ \"$a\" = --bracketed-paste ] && exit 2; done\nexit 0"_s);
        test::writeFile(path, script.toUtf8(), true);
    }
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

const QMap<QString, QString> kittyWindow{{u"KITTY_WINDOW_ID"_s, u"7"_s}};

INSTANTIATE_TEST_SUITE_P(
    Terminals, SendText,
    testing::Values(
        SendCase{"KittyBySocket",
                 "kitty",
                 Answer::ok,
                 {{u"KITTY_WINDOW_ID"_s, u"7"_s}, {u"KITTY_LISTEN_ON"_s, u"unix:/tmp/kitty-1"_s}},
                 words(u"@ --to unix:/tmp/kitty-1 send-text --match id:7 --bracketed-paste auto")
                     << typedForKitty,
                 true},
        // Asked again without the option, which is the last call it recorded.
        SendCase{"OlderKitty", "kitty", Answer::refusesTheOption, kittyWindow,
                 words(u"@ send-text --match id:7") << typedForKitty, true},
        SendCase{"KittyRefuses", "kitty", Answer::refuses, kittyWindow,
                 words(u"@ send-text --match id:7") << typedForKitty, false},
        SendCase{
            "NotInKitty", "kitty", Answer::ok, {{u"KITTY_LISTEN_ON"_s, u"unix:/tmp/kitty-1"_s}}, {}, false},
        SendCase{"WezTermPane",
                 "wezterm",
                 Answer::ok,
                 {{u"WEZTERM_PANE"_s, u"3"_s}, {u"WEZTERM_UNIX_SOCKET"_s, u"/run/w sock"_s}},
                 words(u"cli send-text --pane-id 3") << typed,
                 true},
        SendCase{"WezTermRefuses",
                 "wezterm",
                 Answer::refuses,
                 {{u"WEZTERM_PANE"_s, u"3"_s}},
                 words(u"cli send-text --pane-id 3") << typed,
                 false},
        SendCase{"NotInWezTerm", "wezterm", Answer::ok, {{u"WEZTERM_PANE"_s, u""_s}}, {}, false}),
    [](const auto& param) { return std::string(param.param.label); });

} // namespace
