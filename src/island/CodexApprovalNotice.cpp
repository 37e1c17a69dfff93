#include "island/CodexApprovalNotice.h"

#include "agents/AgentStore.h"

namespace mirrowisp {

std::optional<CodexApprovalNotice::Texts> CodexApprovalNotice::texts(CodexHookStatus status, bool hasApp) {
    switch (status) {
    case CodexHookStatus::ready:
        return std::nullopt;
    case CodexHookStatus::disabled:
        return Texts{
            QStringLiteral("Mirrowisp is turned off in Codex"),
            hasApp
                ? QStringLiteral(
                      "Codex sessions do not show here. In Codex Settings, open Hooks and turn them on.")
                : QStringLiteral("Codex sessions do not show here. In Codex, type /hooks and turn them on.")};
    case CodexHookStatus::needsApproval:
        return Texts{
            QStringLiteral("Approve Mirrowisp in Codex"),
            hasApp ? QStringLiteral(
                         "Codex runs only trusted hooks. In Codex Settings, open Hooks and click Trust all.")
                   : QStringLiteral("Codex runs only trusted hooks. Start codex in Terminal and choose Trust "
                                    "all and continue.")};
    }
    return std::nullopt;
}

CodexApprovalNotice::CodexApprovalNotice(AgentStore& store, CodexHookApproval::AppLookup lookup,
                                         QObject* parent)
    : QObject(parent), store_(store), lookup_(std::move(lookup)) {
    connect(&store_, &AgentStore::codexHookStatusChanged, this, &CodexApprovalNotice::changed);
}

std::optional<CodexApprovalNotice::Texts> CodexApprovalNotice::current() const {
    return texts(store_.codexHookStatus(), CodexHookApproval::isAppInstalled(lookup_));
}

void CodexApprovalNotice::refresh() {
    store_.refreshCodexApproval();
}

} // namespace mirrowisp
