#pragma once

#include "app/ControlCommands.h"

#include <QDBusConnection>
#include <QDBusContext>
#include <QObject>
#include <QString>
#include <functional>

namespace mirrowisp {

class AppModel;
class RemoteSetup;
class SystemHud;

// The app's control interface on the user's session bus, for scripts, tests and `mirrowisp ctl`.
// Every method does what the matching card or menu action does.
class ControlService : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "io.mirrowisp.Mirrowisp1")

public:
    static inline const QString serviceName = QStringLiteral("io.mirrowisp.Mirrowisp");
    static inline const QString objectPath = QStringLiteral("/io/mirrowisp/Mirrowisp");
    static inline const QString interfaceName = QStringLiteral("io.mirrowisp.Mirrowisp1");
    static inline const QString errorPrefix = QStringLiteral("io.mirrowisp.Mirrowisp1.Error.");

    // The agents' setup states and the connect/disconnect actions come from the installer.
    struct AgentActions {
        std::function<QString()> agentsJson;
        // Answers an error text, or nothing on success.
        std::function<std::optional<QString>(const QString& kind, bool connect)> setConnected;
        // Each island's state as JSON; absent, or a null text, when the app runs without a display.
        std::function<QString()> islandJson;
    };

    // Who holds the bus name after registerOn: the name decides which copy of the app runs.
    enum class Claim { owned, heldByAnotherCopy, failed, noBus };

    ControlService(AppModel& model, AgentActions agentActions, QObject* parent = nullptr);

    // Publishes the object and asks for the bus name, always allowing a later copy to take it over.
    // With `replace` the name is taken from the copy that holds it; without, a held name stays put.
    // nameLost() follows when another copy takes it.
    Claim registerOn(QDBusConnection bus, bool replace);
    // Asks the copy that holds the name to show itself; false when it did not answer.
    static bool askRunningCopyToShow(QDBusConnection bus);
    // The volume, brightness and keyboard light for Hud and SetHud; none: both answer NotSupported.
    void setHud(SystemHud* hud) { hud_ = hud; }
    // The battery, Bluetooth and lock state for Devices, and the cues for Sound; none: NotSupported.
    struct DeviceActions {
        std::function<QString()> devicesJson;
        // False for a name that is no cue.
        std::function<bool(const QString& cue)> playCue;
    };
    void setDevices(DeviceActions devices) { devices_ = std::move(devices); }
    // The remote hosts for RemoteList, RemoteAdd and RemoteRemove; none: they answer NotSupported.
    void setRemote(RemoteSetup* remote) { remote_ = remote; }

Q_SIGNALS:
    void nameLost();

public Q_SLOTS:
    QString Sessions();
    void Allow(const QString& decisionID, bool always);
    void Deny(const QString& decisionID);
    void Answer(const QString& decisionID, const QString& answersJson);
    void ApprovePlan(const QString& decisionID, bool autoEdit);
    void KeepPlanning(const QString& decisionID, const QString& feedback);
    void Terminal(const QString& decisionID);
    void Hide(const QString& sessionID);
    QString Agents();
    QString Usage();
    QString Island();
    // What plays, as JSON; MediaCommand takes playpause, next, previous, repeat, or seek with
    // `seconds`.
    QString Media();
    void MediaCommand(const QString& command, double seconds);
    // Brings the session's terminal tab, pane or editor to the front; answers which driver did it,
    // "activated" or "none".
    QString Jump(const QString& sessionID);
    void Connect(const QString& agent);
    void Disconnect(const QString& agent);
    // Brings the app forward on a settings page (empty: the first); a second launch asks for this.
    void ShowSettings(const QString& page);
    void ShowSetupGuide();
    // The three levels as JSON, each absent while its control is.
    QString Hud();
    // The next events and the live one, as JSON.
    QString Calendar();
    // The pull requests as JSON; with `refresh`, fetched anew first (the answer waits for gh).
    QString PullRequests(bool refresh);
    // Sets "volume", "brightness" or "keyboard" to a level from 0 to 1.
    void SetHud(const QString& control, double value);
    QString Devices();
    // Plays a cue by name, as the app would (silent while sounds are off).
    void Sound(const QString& cue);
    // The hook doctor's report as JSON; files are read off the main thread.
    QString Doctor();
    // The diff `Connect` would apply to the agent's file, changing nothing.
    QString ConnectPreview(const QString& agent);
    // The always-allow rules in the agents' settings as JSON; RemoveRule takes one out by its id.
    QString Rules();
    void RemoveRule(const QString& ruleID);
    // The shelf's entries as JSON; ShelfAdd puts files on it (absolute paths) and answers how many
    // arrived; ShelfRemove takes out an item, or a whole entry, by its id.
    QString Shelf();
    int ShelfAdd(const QStringList& paths);
    void ShelfRemove(const QString& id);
    // Converts an entry or item (FORMAT as `mirrowisp ctl shelf convert` takes it) and answers the new
    // files as a JSON array, once they have joined the shelf; ShelfSend types an entry's paths at an
    // agent session's prompt and answers "tmux" or "clipboard".
    QString ShelfConvert(const QString& id, const QString& format);
    QString ShelfSend(const QString& id, const QString& sessionID);
    // The remote hosts as JSON, each with its set-up state, last message and connection state.
    QString RemoteList();
    // Sets a host up ("[USER@]HOST"; port 0 and an empty identity for ssh's own choice) and answers
    // once it is done, with what it did; a host that cannot be set up answers RemoteFailed.
    QString RemoteAdd(const QString& destination, int port, const QString& identity);
    // Takes the hooks and the tool off the host and forgets it; with `forget`, without reaching it.
    QString RemoteRemove(const QString& destination, bool forget);

private:
    bool callerIsThisUser();
    void act(const std::function<ControlCommands::Result()>& action, const QString& subject);
    void setConnected(const QString& agent, bool connect);
    // Runs `work` off the main thread and sends its text as the answer to the call being served.
    void answerLater(std::function<QString()> work);
    QStringList sessionFolders() const;

    AppModel& model_;
    AgentActions agentActions_;
    SystemHud* hud_ = nullptr;
    DeviceActions devices_;
    RemoteSetup* remote_ = nullptr;
};

} // namespace mirrowisp
