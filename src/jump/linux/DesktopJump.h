#pragma once

#include "jump/TerminalJumper.h"

namespace mirrowisp::DesktopJump {

// The jump with this desktop's own backends: the terminal drivers, Konsole over D-Bus and the X11
// window of the terminal. Called on the main thread; returns at once (see TerminalJumper::jump).
void jump(const AgentSession& session, TerminalJumper::Done done = {});

} // namespace mirrowisp::DesktopJump
