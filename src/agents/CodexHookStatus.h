#pragma once

#include <QString>

namespace mirrowisp {

// Whether Codex runs the hooks we installed: it asks the user to trust changed hooks first.
enum class CodexHookStatus { ready, needsApproval, disabled };

inline QString rawValue(CodexHookStatus status) {
    switch (status) {
    case CodexHookStatus::ready:
        return QStringLiteral("ready");
    case CodexHookStatus::needsApproval:
        return QStringLiteral("needsApproval");
    case CodexHookStatus::disabled:
        return QStringLiteral("disabled");
    }
    return {};
}

} // namespace mirrowisp
