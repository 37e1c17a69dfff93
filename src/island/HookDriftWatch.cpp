#include "island/HookDriftWatch.h"

#include "app/AppModel.h"
#include "app/HookDoctor.h"
#include "base/MainQueue.h"
#include "integration/AgentEnvironment.h"
#include "integration/HookInstaller.h"

#include <QPointer>
#include <QSet>

namespace mirrowisp {

HookDriftWatch::HookDriftWatch(AppModel& app, QObject* parent) : QObject(parent), app_(app) {
    connect(&app_, &AppModel::connectionPassFinished, this, &HookDriftWatch::check);
}

void HookDriftWatch::check() {
    QSet<AgentKind> disconnected;
    for (const AgentKind kind : AgentKinds::all) {
        if (HookInstaller::isDisconnectedByUser(kind, app_.defaults())) {
            disconnected.insert(kind);
        }
    }
    QPointer<HookDriftWatch> self(this);
    HookDoctor::runOffMainThread([self, disconnected] {
        QStringList drifted;
        for (const AgentKind kind : AgentKinds::all) {
            if (!disconnected.contains(kind) && AgentEnvironment::isInstalled(kind) &&
                HookDoctor::hookState(kind, false) == u"drifted") {
                drifted.append(AgentKinds::displayName(kind));
            }
        }
        postToMain([self, drifted] {
            if (!self) {
                return;
            }
            if (drifted != self->drifted_) {
                self->drifted_ = drifted;
                Q_EMIT self->driftedChanged();
            }
            Q_EMIT self->checked();
        });
    });
}

} // namespace mirrowisp
