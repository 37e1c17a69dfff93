#pragma once

#include <QString>
#include <functional>

namespace mirrowisp::DesktopActions {

// Gathers the machine's details off the main thread and opens a feedback draft with the desktop's
// mail handler; `opened` (main thread) tells whether a handler took it.
void sendFeedback(std::function<void(bool opened)> opened = {});

// Opens the changelog at `version`'s heading with the desktop's handler for it.
bool openChangelog(const QString& version);

} // namespace mirrowisp::DesktopActions
