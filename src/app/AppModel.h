#pragma once

#include "agents/AgentStore.h"
#include "app/TransientActivity.h"
#include "bridge/BridgeServer.h"
#include "media/NowPlayingTrack.h"
#include "remote/RemoteLinks.h"
#include "shelf/ShelfStore.h"
#include "system/BatteryMonitor.h"
#include "usage/UsageTracker.h"
#include "widgets/CalendarItem.h"

#include <QJsonObject>
#include <QObject>
#include <QTimer>
#include <functional>
#include <memory>
#include <optional>

namespace mirrowisp {

class CalendarService;
class Clock;
class NowPlayingService;
class PullRequestService;
class RemindersService;
class Preferences;
class UserDefaults;

// The short sounds the app plays; the sound engine plays them once it is there.
enum class SoundCue { sessionStart, attention, done, lowBattery, connected, charging };

// What the model needs of the islands; the island manager implements it.
class NotchPresenter {
public:
    virtual ~NotchPresenter() = default;
    virtual bool isShowingAgents() const = 0;
    virtual bool isAnyIslandOpen() const = 0;
    // Opens the primary island on the agents tab, marked as opened automatically.
    virtual void openAgentsAutomatically() = 0;
};

// The process-wide root: owns the bridge and the agent store, routes every request, and turns what
// the services report into sounds, an opened island and the closed island's short-lived contents.
class AppModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString bridgeError READ bridgeErrorText NOTIFY bridgeErrorChanged)
    Q_PROPERTY(qint64 transientID READ transientID NOTIFY transientChanged)
    // The battery ("battery": level, "charging") and the connected audio devices ("bluetooth": a list
    // of "name" and "battery"), for the home tab; empty until the monitors report.
    Q_PROPERTY(QVariantMap devices READ devices NOTIFY devicesChanged)
    Q_PROPERTY(bool isEditingText READ isEditingText WRITE setIsEditingText NOTIFY isEditingTextChanged)

public:
    AppModel(Preferences& prefs, UserDefaults& defaults, const Clock& clock,
             ClaudeProbeRunner claudeProbe = ClaudeProbeRunner::standard(), QObject* parent = nullptr);
    ~AppModel() override;

    void start();
    // At exit: stops the bridge, which removes its socket file.
    void stop();

    // Why the socket could not be opened; set once, never cleared.
    const std::optional<QString>& bridgeError() const { return bridgeError_; }
    QString bridgeErrorText() const { return bridgeError_.value_or(QString()); }
    BridgeServer* bridge() const { return bridge_.get(); }
    // The connections to remote hosts; their requests are routed like local ones. None until
    // `start`; the hosts come from whoever keeps the list (`setHosts`).
    RemoteLinks* remoteLinks() const { return remoteLinks_.get(); }
    AgentStore& agents() { return agents_; }
    Preferences& prefs() { return prefs_; }
    UserDefaults& defaults() { return defaults_; }
    UsageTracker& usage() { return usage_; }
    ShelfStore& shelf() { return *shelf_; }
    // Puts dropped or converted files on the shelf and shows how many arrived; answers that number.
    int addToShelf(const QList<QUrl>& urls, bool stacked);

    void route(const std::shared_ptr<BridgeConnection>& connection);
    void handle(AgentSignal signal, AgentSession& session);

    // Shows `activity` on the closed island for `seconds`; the last caller wins.
    void flash(const TransientActivity& activity, double seconds);
    const std::optional<TransientActivity>& transient() const { return transient_; }
    qint64 transientID() const { return transientID_; }
    // Ends the transient if its time is up, else waits for the rest (the flash timer calls this).
    void expireTransient(Timestamp now);
    // After how many seconds the flash timer looks at the deadline; nothing while it is idle.
    std::optional<double> transientCheckIn() const;

    // Greets a Bluetooth audio device that just connected; the audio output and the Bluetooth
    // monitor both report a connection, so a repeat within 6 s stays silent.
    void announce(const BluetoothAudioDevice& device);
    // Power connected or removed, full, or low: a moment on the island and, for some, a cue.
    void handle(const BatteryMonitor::Event& event);

    // What the calendar and the players report; nothing until those services feed them.
    const std::optional<CalendarItem>& liveEvent() const { return liveEvent_; }
    void setLiveEvent(const std::optional<CalendarItem>& event);
    const std::optional<NowPlayingTrack>& nowPlaying() const { return nowPlaying_; }
    void setNowPlaying(const std::optional<NowPlayingTrack>& track);
    // The players' service, which feeds nowPlaying() and follows the nowPlayingEnabled setting from
    // now on; it must outlive the model's use of it. Nothing until the app attaches one.
    void attachNowPlaying(NowPlayingService& service);
    NowPlayingService* nowPlayingService() const { return nowPlayingService_; }
    // The calendar, which feeds liveEvent(), announces what starts soon and follows the
    // calendarEnabled and calendarFiles settings; the app attaches it, it must outlive the model's use.
    void attachCalendar(CalendarService& service, std::function<void(const QStringList&)> usePaths);
    CalendarService* calendarService() const { return calendarService_; }
    void attachPullRequests(PullRequestService& service) { pullRequestService_ = &service; }
    PullRequestService* pullRequestService() const { return pullRequestService_; }
    // The tasks due today, which follow the remindersListID setting; it must outlive the model's use.
    void attachReminders(RemindersService& service);
    RemindersService* remindersService() const { return remindersService_; }

    // A text field on the island has the keyboard: typing holds the island open.
    bool isEditingText() const { return isEditingText_; }
    void setIsEditingText(bool editing) {
        if (editing != isEditingText_) {
            isEditingText_ = editing;
            Q_EMIT isEditingTextChanged();
        }
    }

    const QVariantMap& devices() const { return devices_; }
    void setDevices(const QVariantMap& devices) {
        if (devices != devices_) {
            devices_ = devices;
            Q_EMIT devicesChanged();
        }
    }

    // The session is locked: the island neither opens by itself nor takes keys.
    bool isLocked() const { return isLocked_; }
    void setLocked(bool locked) {
        if (locked != isLocked_) {
            isLocked_ = locked;
            Q_EMIT lockedChanged();
        }
    }

    void setNotch(NotchPresenter* notch) { notch_ = notch; }
    NotchPresenter* notch() const { return notch_; }
    void setCuePlayer(std::function<void(SoundCue)> player) { playCue_ = std::move(player); }
    // Plays a cue as the app would, for the settings' preview buttons; an index out of range is ignored.
    Q_INVOKABLE void previewCue(int cue) {
        if (cue >= 0 && cue <= static_cast<int>(SoundCue::charging)) {
            play(static_cast<SoundCue>(cue));
        }
    }
    // The hook connection pass, and how the agents' real locations are found before the first one;
    // the app wires both to the installer and the login-shell probe.
    // The pass may finish later, on the main thread, by calling the function it is given.
    void setConnectionPass(std::function<void(std::function<void()>)> pass) {
        connectionPass_ = std::move(pass);
    }
    void setEnvironmentResolver(std::function<void(std::function<void()>)> resolve) {
        resolve_ = std::move(resolve);
    }
    // Runs the hook connection pass now, as the app does when it becomes active.
    void runConnectionPass();

    // The ways back to the app's own windows from its views and remote controls (the island's menu,
    // a second launch, `mirrowisp ctl`); the front door shows them. An empty page is the last one.
    Q_INVOKABLE void requestSettings(const QString& page = QString()) { Q_EMIT settingsRequested(page); }
    Q_INVOKABLE void requestSetupGuide() { Q_EMIT setupGuideRequested(); }
    // Quits through the event loop, so the socket is removed as on any orderly exit.
    Q_INVOKABLE void requestQuit();

Q_SIGNALS:
    void settingsRequested(const QString& page);
    void setupGuideRequested();
    void bridgeErrorChanged();
    void transientChanged();
    void liveEventChanged();
    void isEditingTextChanged();
    void lockedChanged();
    void devicesChanged();
    void nowPlayingChanged();
    // A hook connection pass run through runConnectionPass is done: a moment to look at the hooks.
    void connectionPassFinished();

private:
    // The settings the stores read reach them as values, again whenever the user changes one.
    void applyPreferences();
    void startBridge();
    void play(SoundCue cue);
    void armTransientTimer(double seconds);

    Preferences& prefs_;
    UserDefaults& defaults_;
    const Clock& clock_;
    AgentStore agents_;
    UsageTracker usage_;
    std::unique_ptr<ShelfStore> shelf_;
    std::unique_ptr<BridgeServer> bridge_;
    std::unique_ptr<RemoteLinks> remoteLinks_;
    std::optional<QString> bridgeError_;
    std::optional<TransientActivity> transient_;
    qint64 transientID_ = 0;
    Timestamp transientUntil_ = 0;
    QTimer transientTimer_;
    QTimer agentSetupTimer_;
    struct Announced {
        QString address;
        Timestamp at = 0;
    };
    std::optional<Announced> lastAnnounced_;
    std::optional<CalendarItem> liveEvent_;
    std::optional<NowPlayingTrack> nowPlaying_;
    NowPlayingService* nowPlayingService_ = nullptr;
    CalendarService* calendarService_ = nullptr;
    PullRequestService* pullRequestService_ = nullptr;
    RemindersService* remindersService_ = nullptr;
    bool isEditingText_ = false;
    bool isLocked_ = false;
    QVariantMap devices_;
    NotchPresenter* notch_ = nullptr;
    std::function<void(SoundCue)> playCue_;
    std::function<void(std::function<void()>)> connectionPass_;
    std::function<void(std::function<void()>)> resolve_;
};

} // namespace mirrowisp
