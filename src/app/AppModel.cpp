#include "app/AppModel.h"

#include "app/Preferences.h"
#include "base/Log.h"
#include "bridge/BridgeProtocol.h"
#include "media/NowPlayingService.h"
#include "widgets/CalendarService.h"
#include "widgets/RemindersService.h"

#include <QCoreApplication>
#include <QPointer>
#include <algorithm>
#include <cmath>

namespace mirrowisp {

AppModel::AppModel(Preferences& prefs, UserDefaults& defaults, const Clock& clock,
                   ClaudeProbeRunner claudeProbe, QObject* parent)
    : QObject(parent), prefs_(prefs), defaults_(defaults), clock_(clock), agents_(defaults, clock),
      usage_(defaults, clock, std::move(claudeProbe)),
      shelf_(std::make_unique<ShelfStore>(BridgeProtocol::supportDirectory(), clock)) {
    applyPreferences();
    for (auto changed : {&Preferences::agentsEnabledChanged, &Preferences::approveFromNotchChanged,
                         &Preferences::hideFinishedAfterChanged, &Preferences::usageAgentsChanged}) {
        connect(&prefs_, changed, this, &AppModel::applyPreferences);
    }
    transientTimer_.setSingleShot(true);
    // A coarse timer may wake up to 5 % early; the deadline below is what counts either way.
    transientTimer_.setTimerType(Qt::PreciseTimer);
    connect(&transientTimer_, &QTimer::timeout, this, [this] { expireTransient(clock_.now()); });
    // Hooks come back within a minute after an agent's own update removed them.
    agentSetupTimer_.setInterval(60'000);
    connect(&agentSetupTimer_, &QTimer::timeout, this, &AppModel::runConnectionPass);
}

AppModel::~AppModel() = default;

int AppModel::addToShelf(const QList<QUrl>& urls, bool stacked) {
    const int added = shelf_->add(urls, stacked);
    if (added > 0) {
        TransientActivity activity;
        activity.kind = TransientActivity::Case::shelfAdded;
        activity.count = added;
        flash(activity, 1.5);
    }
    return added;
}

void AppModel::applyPreferences() {
    AgentStoreSettings settings;
    for (AgentKind kind : AgentKinds::all) {
        if (!prefs_.isAgentEnabled(kind)) {
            settings.disabledAgents.insert(kind);
        }
    }
    settings.approveFromNotch = prefs_.approveFromNotch();
    settings.hideFinishedAfter = prefs_.hideFinishedAfter();
    agents_.setSettings(std::move(settings));
    usage_.setChosenAgents(prefs_.usageAgents());
}

void AppModel::start() {
    startBridge();
    QPointer<AppModel> weak(this);
    // Hooks go in once the agents' real locations are known, then every minute.
    if (resolve_) {
        resolve_([weak] {
            if (weak) {
                weak->runConnectionPass();
                // The usage readers now know where the agents really keep their files.
                weak->usage_.refreshClaude(false);
                weak->usage_.refreshOthers();
            }
        });
    } else {
        runConnectionPass();
    }
    agentSetupTimer_.start();
    agents_.setOnSignal([weak](AgentSignal signal, AgentSession& session) {
        if (weak) {
            weak->handle(signal, session);
        }
    });
    agents_.start();
    usage_.start();
}

void AppModel::stop() {
    if (remoteLinks_) {
        remoteLinks_->setHosts({}); // ends the ssh connections and removes their sockets
    }
    if (bridge_) {
        bridge_->stop();
    }
}

void AppModel::runConnectionPass() {
    if (!connectionPass_) {
        agents_.refreshCodexApproval();
        return;
    }
    QPointer<AppModel> weak(this);
    connectionPass_([weak] {
        if (weak) {
            weak->agents_.refreshCodexApproval();
            Q_EMIT weak->connectionPassFinished();
        }
    });
}

void AppModel::startBridge() {
    QPointer<AppModel> weak(this);
    bridge_ = std::make_unique<BridgeServer>([weak](const std::shared_ptr<BridgeConnection>& connection) {
        if (weak) {
            weak->route(connection);
        } else {
            connection->reply();
        }
    });
    remoteLinks_ = std::make_unique<RemoteLinks>(
        [weak](const std::shared_ptr<BridgeConnection>& connection) {
            if (weak) {
                weak->route(connection);
            } else {
                connection->reply();
            }
        },
        clock_);
    remoteLinks_->reportTo(agents_);
    if (auto error = bridge_->start()) {
        bridgeError_ = QStringLiteral("Could not open the agent socket: ") + error->description;
        logLine(QStringLiteral("Mirrowisp: ") + *bridgeError_);
        Q_EMIT bridgeErrorChanged();
        return;
    }
    logLine(QStringLiteral("Mirrowisp: bridge listening on ") + bridge_->socketPath());
}

void AppModel::route(const std::shared_ptr<BridgeConnection>& connection) {
    // Parsed once here, for the route and for the store.
    const std::optional<QJsonObject> event = AgentStore::parsePayload(connection->request().payload);
    if (event &&
        event->value(QLatin1StringView("hook_event_name")) == QJsonValue(QStringLiteral("StatusLine"))) {
        // Status lines feed the usage meters, not the sessions, whatever the agent filter says.
        usage_.ingestClaudeStatusLine(*event);
        connection->reply();
        return;
    }
    agents_.handle(connection, event);
}

void AppModel::play(SoundCue cue) {
    if (playCue_) {
        playCue_(cue);
    }
}

void AppModel::handle(AgentSignal signal, AgentSession& session) {
    switch (signal) {
    case AgentSignal::sessionStarted:
        play(SoundCue::sessionStart);
        break;
    case AgentSignal::needsAttention:
        play(SoundCue::attention);
        if (prefs_.autoOpenOnAttention() && notch_ != nullptr && !isLocked_) {
            notch_->openAgentsAutomatically();
        }
        break;
    case AgentSignal::finished:
        play(SoundCue::done);
        if (notch_ == nullptr || !notch_->isShowingAgents()) {
            agents_.setHasUnseenFinish(true);
        }
        if (notch_ == nullptr || !notch_->isAnyIslandOpen()) {
            flash(TransientActivity::agentDone(session.agent(), session.projectName()), 3.0);
        }
        // A finished turn is when the limits moved.
        switch (session.agent()) {
        case AgentKind::claude:
            usage_.refreshClaude(false);
            break;
        case AgentKind::codex:
            usage_.refreshCodex();
            break;
        case AgentKind::opencode:
        case AgentKind::amp:
            usage_.refreshOthers(session.agent());
            break;
        default:
            break;
        }
        break;
    case AgentSignal::promptSubmitted:
    case AgentSignal::ended:
        break;
    }
}

void AppModel::announce(const BluetoothAudioDevice& device) {
    if (!prefs_.bluetoothEnabled()) {
        return;
    }
    const Timestamp now = clock_.now();
    if (lastAnnounced_ && lastAnnounced_->address == device.address && now - lastAnnounced_->at < 6.0) {
        return;
    }
    lastAnnounced_ = Announced{device.address, now};
    flash(TransientActivity::bluetooth(device), 3.0);
    play(SoundCue::connected);
}

void AppModel::handle(const BatteryMonitor::Event& event) {
    if (!prefs_.batteryEnabled()) {
        return;
    }
    using Kind = BatteryMonitor::Event::Kind;
    const auto show = [&](const char* message, double seconds) {
        flash(TransientActivity::battery(event.level, event.charging, QString::fromLatin1(message)), seconds);
    };
    switch (event.kind) {
    case Kind::low:
        show("Low battery", 4.0);
        play(SoundCue::lowBattery);
        break;
    case Kind::pluggedIn:
        show("Charging", 2.5);
        play(SoundCue::charging);
        break;
    case Kind::unplugged:
        show("On battery", 2.0);
        break;
    case Kind::fullyCharged:
        show("Fully charged", 2.5);
        break;
    }
}

void AppModel::setLiveEvent(const std::optional<CalendarItem>& event) {
    if (event != liveEvent_) {
        liveEvent_ = event;
        Q_EMIT liveEventChanged();
    }
}

void AppModel::setNowPlaying(const std::optional<NowPlayingTrack>& track) {
    if (track != nowPlaying_) {
        nowPlaying_ = track;
        Q_EMIT nowPlayingChanged();
    }
}

void AppModel::attachNowPlaying(NowPlayingService& service) {
    nowPlayingService_ = &service;
    connect(&service, &NowPlayingService::trackChanged, this,
            [this, &service] { setNowPlaying(service.track()); });
    const auto follow = [this, &service] { service.setEnabled(prefs_.nowPlayingEnabled()); };
    connect(&prefs_, &Preferences::nowPlayingEnabledChanged, &service, follow);
    follow();
    setNowPlaying(service.track());
}

void AppModel::attachCalendar(CalendarService& service, std::function<void(const QStringList&)> usePaths) {
    calendarService_ = &service;
    connect(&service, &CalendarService::liveEventChanged, this,
            [this, &service] { setLiveEvent(service.liveEvent()); });
    const auto follow = [this, &service] { service.setEnabled(prefs_.calendarEnabled()); };
    connect(&prefs_, &Preferences::calendarEnabledChanged, &service, follow);
    follow();
    if (usePaths) {
        const auto paths = [this, usePaths] { usePaths(prefs_.calendarFiles()); };
        connect(&prefs_, &Preferences::calendarFilesChanged, &service, paths);
        paths();
    }
    service.onEventSoon = [this](const CalendarItem& item) {
        if (!prefs_.calendarEnabled()) {
            return;
        }
        TransientActivity soon;
        soon.kind = TransientActivity::Case::calendar;
        soon.text = item.title;
        soon.start = item.start;
        flash(soon, 6.0);
        play(SoundCue::attention);
    };
    setLiveEvent(service.liveEvent());
}

void AppModel::attachReminders(RemindersService& service) {
    remindersService_ = &service;
    const auto follow = [this, &service] { service.setListID(prefs_.remindersListID()); };
    connect(&prefs_, &Preferences::remindersListIDChanged, &service, follow);
    follow();
}

void AppModel::flash(const TransientActivity& activity, double seconds) {
    transientTimer_.stop();
    const bool sameLevel = transient_ && transient_->isLevel() && transient_->kind == activity.kind;
    if (!sameLevel) {
        ++transientID_; // the island animates a new content
    }
    transient_ = activity;
    transientUntil_ = clock_.now() + seconds;
    armTransientTimer(seconds);
    Q_EMIT transientChanged();
}

void AppModel::expireTransient(Timestamp now) {
    if (!transient_) {
        return;
    }
    if (now < transientUntil_) {
        // Woken before the deadline: look again then, or the display would stay until the next flash.
        armTransientTimer(transientUntil_ - now);
        return;
    }
    transientTimer_.stop();
    transient_.reset();
    Q_EMIT transientChanged();
}

std::optional<double> AppModel::transientCheckIn() const {
    if (!transientTimer_.isActive()) {
        return std::nullopt;
    }
    return transientTimer_.interval() / 1000.0;
}

void AppModel::armTransientTimer(double seconds) {
    transientTimer_.start(std::max(1, static_cast<int>(std::ceil(seconds * 1000))));
}

void AppModel::requestQuit() {
    logLine(QStringLiteral("Mirrowisp: quitting, as the user asked"));
    QCoreApplication::quit();
}

} // namespace mirrowisp
