#include "jump/linux/DesktopJump.h"

#include "jump/linux/KonsoleDBusFocus.h"
#include "jump/linux/X11WindowFocus.h"

namespace mirrowisp::DesktopJump {

void jump(const AgentSession& session, TerminalJumper::Done done) {
    TerminalDrivers::Tools tools = TerminalDrivers::Tools::system();
    tools.konsole = std::make_shared<KonsoleDBusFocus>();
    auto windows = std::make_shared<X11WindowFocus>();
    tools.windows = windows;
    TerminalJumper::jump(session, TerminalJumper::windowActivation(windows), std::move(done), tools);
}

} // namespace mirrowisp::DesktopJump
