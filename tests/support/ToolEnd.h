#pragma once

#include "support/SocketClient.h"

namespace mirrowisp::test {

// What the waiting hook tool would see: the other end of a connection's socket pair.
using ToolEnd = SocketClient;

} // namespace mirrowisp::test
