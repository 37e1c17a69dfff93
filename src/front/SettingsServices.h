#pragma once

#include "app/AgentConnector.h"

namespace mirrowisp {

class AppModel;
class Clock;
class ConnectionPass;
class RemoteSetup;

// What the settings window and the setup guide read and drive, owned by the app.
struct SettingsServices {
    AppModel& model;
    ConnectionPass& pass;
    AgentConnector::Presence isInstalled; // called off the main thread
    const Clock& clock;
    RemoteSetup* remote = nullptr; // the remote hosts; none in a window without them
};

} // namespace mirrowisp
