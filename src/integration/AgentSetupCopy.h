#pragma once

#include "agents/CodexHookStatus.h"
#include "integration/AgentSetup.h"

#include <QString>
#include <QStringList>
#include <optional>

namespace mirrowisp::AgentSetupCopy {

// The island's and onboarding's notice when Codex does not run our hooks.
struct Notice {
    QString heading;
    QString body;
    bool operator==(const Notice&) const = default;
};

// Nothing for `ready`.
std::optional<Notice> codexNotice(CodexHookStatus status, bool codexAppInstalled);

// The guided steps for a fix, in order. Text between ** is shown in bold.
QStringList steps(SetupFix fix, bool codexAppInstalled);

} // namespace mirrowisp::AgentSetupCopy
