#include "front/SetupGuideModel.h"

#include "app/AppModel.h"
#include "base/UserDefaults.h"
#include "front/SettingsAgentList.h"

namespace mirrowisp {

SetupGuideModel::SetupGuideModel(SettingsServices services, SettingsAgentList& agents, QObject* parent)
    : QObject(parent), services_(std::move(services)), agents_(agents) {
    connect(&services_.model.agents(), &AgentStore::sampleRequestAnswered, this, [this](const QString& id) {
        if (id == sampleID_) {
            sampleState_ = QStringLiteral("answered");
            Q_EMIT sampleStateChanged();
        }
    });
}

QString SetupGuideModel::ctlUsage() const {
    return QStringLiteral("mirrowisp ctl sessions            # every session, with waiting requests\n"
                          "mirrowisp ctl allow ID | deny ID  # answer a request\n"
                          "mirrowisp ctl agents              # which agents are connected\n"
                          "mirrowisp ctl connect KIND        # or disconnect KIND\n"
                          "mirrowisp ctl usage               # usage limits\n"
                          "mirrowisp ctl settings [PAGE]     # this app's settings\n"
                          "mirrowisp ctl --help              # all of it");
}

void SetupGuideModel::tryIt() {
    if (sampleState_ == u"waiting") {
        return;
    }
    sampleID_ = services_.model.agents().addSampleRequest();
    sampleState_ = QStringLiteral("waiting");
    Q_EMIT sampleStateChanged();
}

void SetupGuideModel::finish() {
    services_.model.defaults().set(completedKey, true);
    Q_EMIT finished();
}

} // namespace mirrowisp
