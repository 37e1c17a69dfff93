#include "integration/CodexHookApproval.h"

#include "integration/AgentSetupCopy.h"

namespace mirrowisp::CodexHookApproval {

bool isAppInstalled(const AppLookup& lookup) {
    return lookup && lookup(QString(appIdentifier));
}

Guidance open(const AppLookup& lookup, const UrlOpener& openUrl) {
    const bool app = isAppInstalled(lookup);
    Guidance guidance;
    if (app && openUrl) {
        guidance.openedSettings = openUrl(QUrl(QString(settingsURL)));
    }
    // When the settings did not open, the desktop app's steps would send the user nowhere.
    guidance.steps = AgentSetupCopy::steps(SetupFix::approveInCodex, guidance.openedSettings);
    return guidance;
}

} // namespace mirrowisp::CodexHookApproval
