#pragma once

#include <functional>

namespace mirrowisp {

// Runs `work` on the main thread's event loop, after whatever is already queued there.
// State that views read lives on the main thread only; every other thread hands results back
// through here. Work posted before the application object exists, or after it is gone, is dropped.
void postToMain(std::function<void()> work);

} // namespace mirrowisp
