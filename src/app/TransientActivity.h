#pragma once

#include "base/AgentKind.h"
#include "base/Clock.h"
#include "system/BluetoothAudioDevice.h"

#include <QString>

namespace mirrowisp {

// What the closed island shows for a moment. One case at a time; a later flash replaces it.
struct TransientActivity {
    enum class Case {
        volume,
        brightness,
        keyboardBrightness,
        battery,
        bluetooth,
        calendar,
        agentDone,
        shelfAdded,
        trialEnding,
        updated
    };

    Case kind = Case::agentDone;
    double level = 0;  // volume, brightness, keyboardBrightness; battery level
    bool flag = false; // volume: muted; battery: charging
    QString text;      // battery message, device name, calendar title, project, version
    AgentKind agent = AgentKind::claude;
    Timestamp start = 0;         // calendar
    qint64 count = 0;            // shelfAdded count, trialEnding days left
    BluetoothAudioDevice device; // bluetooth

    static TransientActivity agentDone(AgentKind agent, QString project) {
        TransientActivity activity;
        activity.kind = Case::agentDone;
        activity.agent = agent;
        activity.text = std::move(project);
        return activity;
    }
    static TransientActivity bluetooth(BluetoothAudioDevice device) {
        TransientActivity activity;
        activity.kind = Case::bluetooth;
        activity.text = device.name;
        activity.device = std::move(device);
        return activity;
    }
    static TransientActivity battery(int level, bool charging, QString message) {
        TransientActivity activity;
        activity.kind = Case::battery;
        activity.level = level;
        activity.flag = charging;
        activity.text = std::move(message);
        return activity;
    }
    static TransientActivity levelChange(Case kind, double level, bool muted = false) {
        TransientActivity activity;
        activity.kind = kind;
        activity.level = level;
        activity.flag = muted;
        return activity;
    }
    // Level changes of one kind update in place instead of animating a new content.
    bool isLevel() const {
        return kind == Case::volume || kind == Case::brightness || kind == Case::keyboardBrightness;
    }

    bool operator==(const TransientActivity&) const = default;
};

} // namespace mirrowisp
