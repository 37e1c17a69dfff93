#include "integration/AgentSetupCopy.h"

namespace mirrowisp::AgentSetupCopy {

namespace {

QStringList lines(std::initializer_list<const char*> texts) {
    QStringList list;
    for (const char* text : texts) {
        list.append(QString::fromUtf8(text));
    }
    return list;
}

} // namespace

std::optional<Notice> codexNotice(CodexHookStatus status, bool codexAppInstalled) {
    switch (status) {
    case CodexHookStatus::ready:
        break;
    case CodexHookStatus::needsApproval:
        return Notice{
            QStringLiteral("Approve Mirrowisp in Codex"),
            codexAppInstalled
                ? QStringLiteral("Codex runs only trusted hooks. In Codex Settings, open Hooks and click "
                                 "Trust all.")
                : QStringLiteral("Codex runs only trusted hooks. Start codex in Terminal and choose Trust "
                                 "all and continue.")};
    case CodexHookStatus::disabled:
        return Notice{QStringLiteral("Mirrowisp is turned off in Codex"),
                      codexAppInstalled
                          ? QStringLiteral("Codex sessions do not show here. In Codex Settings, open "
                                           "Hooks and turn them on.")
                          : QStringLiteral("Codex sessions do not show here. In Codex, type /hooks and "
                                           "turn them on.")};
    }
    return std::nullopt;
}

QStringList steps(SetupFix fix, bool codexAppInstalled) {
    switch (fix) {
    case SetupFix::approveInCodex:
        if (codexAppInstalled) {
            return lines({"Click **Open Codex Settings**.", "Choose **Hooks** in the sidebar.",
                          "Click **Trust all** next to the hooks named **Mirrowisp**.",
                          "Or start Codex in Terminal and choose **Trust all and continue**."});
        }
        return lines(
            {"Start Codex in Terminal:", "At **Hooks need review**, choose **Trust all and continue**."});
    case SetupFix::turnOnInCodex:
        return lines(
            {"In a Codex session in Terminal, type **/hooks**.", "Turn the **Mirrowisp** hooks back on."});
    case SetupFix::fixSettingsFile:
        return lines({"Click **Show File** and fix the JSON error in it.", "Click **Try Again**."});
    }
    return {};
}

} // namespace mirrowisp::AgentSetupCopy
