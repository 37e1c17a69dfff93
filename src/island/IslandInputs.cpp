#include "island/IslandInputs.h"

#include "app/AppModel.h"

namespace mirrowisp {

IslandInputs IslandInputs::from(AppModel& app) {
    IslandInputs inputs;
    inputs.transient = app.transient();
    inputs.transientID = app.transientID();
    const AgentStore& store = app.agents();
    inputs.attention = store.attentionSession();
    for (const AgentSession* session : store.orderedSessions()) {
        inputs.orderedSessions.push_back(session);
    }
    inputs.liveEvent = app.liveEvent();
    inputs.nowPlaying = app.nowPlaying();
    return inputs;
}

} // namespace mirrowisp
