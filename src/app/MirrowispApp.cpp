#include "app/MirrowispApp.h"

#include "agents/DecisionLog.h"
#include "app/AgentConnector.h"
#include "app/AppModel.h"
#include "app/BuildInfo.h"
#include "app/ConnectionPass.h"
#include "app/Preferences.h"
#include "base/Clock.h"
#include "base/Log.h"
#include "base/UserDefaults.h"
#include "bridge/BridgeProtocol.h"
#include "control/ControlService.h"
#include "control/CtlClient.h"
#include "front/FrontDoor.h"
#include "integration/AgentEnvironment.h"
#include "integration/HookInstaller.h"
#include "island/HomeWidgetsViewModel.h"
#include "island/HudLevelsModel.h"
#include "island/IslandShell.h"
#include "jump/linux/DesktopJump.h"
#include "media/ArtworkLookup.h"
#include "media/NowPlayingService.h"
#include "remote/RemoteHostStore.h"
#include "remote/RemoteJump.h"
#include "remote/RemoteLinks.h"
#include "remote/RemoteSetup.h"
#include "system/BluetoothMonitor.h"
#include "system/DevicesJson.h"
#include "system/LockStateObserver.h"
#include "system/SoundEngine.h"
#include "system/SystemControls.h"
#include "widgets/CalendarFiles.h"
#include "widgets/CalendarService.h"
#include "widgets/CombinedCalendars.h"
#include "widgets/EvolutionStore.h"
#include "widgets/PullRequestService.h"
#include "widgets/RemindersService.h"

#include <QApplication>
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDeadlineTimer>
#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QGuiApplication>
#include <QJsonDocument>
#include <QSocketNotifier>
#include <QThread>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>
#include <sys/signalfd.h>
#include <unistd.h>
#include <variant>

namespace mirrowisp {

namespace {

// The island is an X11 window (its input shape and global pointer have no Wayland counterpart):
// on a Wayland desktop it runs through XWayland.
bool hasDisplay() {
    return !qEnvironmentVariableIsEmpty("DISPLAY");
}

// Blocks the quit signals in every thread and delivers them through a descriptor the event loop
// watches, so quitting runs the same path as a normal exit (and the socket file is removed).
int quitSignalDescriptor() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return ::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
}

const char* const appUsage = R"(usage: mirrowisp [--replace]
       mirrowisp ctl COMMAND [ARGUMENTS]    (mirrowisp ctl --help lists the commands)

Runs the companion: the agent bridge, the island and the control interface on the session bus.
A second launch while a copy runs asks that copy to show itself and exits.

options:
  --replace      take over from the copy that is running (it quits)
  --version      print the version and exit
  -h, --help     print this help and exit
)";

// What the command line asks of the app itself.
struct LaunchOptions {
    bool replace = false;
};

// Reads the app's own options before anything starts; an exit status when the launch ends here
// (help, version, or an option it does not know, which touches nothing).
std::variant<LaunchOptions, int> parseArguments(int argc, char** argv) {
    LaunchOptions options;
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "--help" || argument == "-h") {
            std::fputs(appUsage, stdout);
            return 0;
        }
        if (argument == "--version") {
            std::printf("mirrowisp %s\n", MIRROWISP_VERSION);
            return 0;
        }
        if (argument == "--replace") {
            options.replace = true;
            continue;
        }
        std::fprintf(stderr, "mirrowisp: unknown option '%s' (mirrowisp --help lists the options)\n",
                     argv[i]);
        return 2;
    }
    return options;
}

int runCtlCommand(int argc, char** argv) {
    // The client speaks in one line of its own on failure; Qt's teardown chatter stays out of it.
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    QCoreApplication client(argc, argv);
    return runCtl(QCoreApplication::arguments().mid(2));
}

std::unique_ptr<QCoreApplication> createApplication(int& argc, char** argv, bool gui) {
    // Qt's own event dispatcher hands bridge requests to the main thread about three times faster
    // than the GLib one under load; nothing here needs a GLib main loop. The user can still opt back.
    if (!qEnvironmentVariableIsSet("QT_NO_GLIB")) {
        qputenv("QT_NO_GLIB", "1");
    }
    if (gui && !qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "xcb");
    }
    std::unique_ptr<QCoreApplication> app;
    if (gui) {
        // A widgets application: the tray item's menu is a widget menu, exported over D-Bus.
        app = std::make_unique<QApplication>(argc, argv);
        QGuiApplication::setQuitOnLastWindowClosed(false);
    } else {
        app = std::make_unique<QCoreApplication>(argc, argv);
    }
    QCoreApplication::setApplicationName(QStringLiteral("mirrowisp"));
    QCoreApplication::setApplicationVersion(QStringLiteral(MIRROWISP_VERSION));
    if (!gui) {
        logLine(QStringLiteral("Mirrowisp: no display found; running the agent bridge only"));
    }
    return app;
}

std::unique_ptr<QSocketNotifier> watchQuitSignals(int signalFD) {
    if (signalFD < 0) {
        return nullptr;
    }
    auto notifier = std::make_unique<QSocketNotifier>(signalFD, QSocketNotifier::Read);
    QObject::connect(notifier.get(), &QSocketNotifier::activated, [signalFD] {
        signalfd_siginfo info{};
        while (::read(signalFD, &info, sizeof info) == sizeof info) {
        }
        QCoreApplication::quit();
    });
    return notifier;
}

// Quits once, with one line saying why.
void quitBecause(const QString& reason) {
    static bool quitting = false;
    if (!quitting) {
        quitting = true;
        logLine(QStringLiteral("Mirrowisp: ") + reason + QStringLiteral("; quitting"));
        QCoreApplication::quit();
    }
}

// The bus name decides which copy runs. Claimed before the socket or any agent's file is touched;
// an exit status when this copy is not the one.
std::optional<int> claimTheBusName(ControlService& control, bool replace) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    switch (control.registerOn(bus, replace)) {
    case ControlService::Claim::owned:
    case ControlService::Claim::noBus: // nobody to agree with: the socket alone is shared
        return std::nullopt;
    case ControlService::Claim::heldByAnotherCopy:
        if (replace) {
            logLine(QStringLiteral("Mirrowisp: the running copy does not let go of the bus name; quitting"));
            return 1;
        }
        logLine(ControlService::askRunningCopyToShow(bus)
                    ? QStringLiteral("Mirrowisp: already running; asked the running copy to show itself")
                    : QStringLiteral("Mirrowisp: already running, but the running copy did not answer"));
        return 0;
    case ControlService::Claim::failed:
        logLine(QStringLiteral("Mirrowisp: could not get the bus name; quitting"));
        return 1;
    }
    return 1;
}

// The volume, brightness and keyboard light with their keys; their changes show in the island.
std::unique_ptr<SystemControls> startSystemControls(AppModel& model) {
    auto controls = std::make_unique<SystemControls>(SystemControls::linuxBackends());
    controls->show = [&model](SystemHud::Control control, double level, bool muted) {
        using Case = TransientActivity::Case;
        const Case kind = control == SystemHud::Control::volume       ? Case::volume
                          : control == SystemHud::Control::brightness ? Case::brightness
                                                                      : Case::keyboardBrightness;
        model.flash(TransientActivity::levelChange(kind, level, muted), 1.6);
    };
    Preferences& prefs = model.prefs();
    controls->setEnabled(prefs.hudEnabled());
    QObject::connect(&prefs, &Preferences::hudEnabledChanged, &model,
                     [&prefs, raw = controls.get()] { raw->setEnabled(prefs.hudEnabled()); });
    controls->start();
    return controls;
}

// The cues, the battery and the Bluetooth audio devices, reporting to the model.
struct Monitors {
    SoundEngine sounds{SoundEngine::pulseOutput()};
    BatteryMonitor battery{QDBusConnection::systemBus()};
    BluetoothMonitor bluetooth{QDBusConnection::systemBus()};
    LockStateObserver lockState{QDBusConnection::systemBus(), QDBusConnection::sessionBus()};
};

SoundEngine::Cue engineCue(SoundCue cue) {
    switch (cue) {
    case SoundCue::sessionStart:
        return SoundEngine::Cue::sessionStart;
    case SoundCue::attention:
        return SoundEngine::Cue::attention;
    case SoundCue::done:
        return SoundEngine::Cue::done;
    case SoundCue::lowBattery:
        return SoundEngine::Cue::lowBattery;
    case SoundCue::connected:
        return SoundEngine::Cue::connected;
    case SoundCue::charging:
        return SoundEngine::Cue::charging;
    }
    return SoundEngine::Cue::done;
}

std::unique_ptr<Monitors> startMonitors(AppModel& model, SystemControls& controls) {
    auto monitors = std::make_unique<Monitors>();
    Preferences& prefs = model.prefs();
    SoundEngine& sounds = monitors->sounds;
    const auto follow = [&prefs, &sounds] {
        sounds.setEnabled(prefs.soundsEnabled());
        sounds.setVolume(prefs.soundVolume());
    };
    follow();
    QObject::connect(&prefs, &Preferences::soundsEnabledChanged, &model, follow);
    QObject::connect(&prefs, &Preferences::soundVolumeChanged, &model, follow);
    model.setCuePlayer([&sounds](SoundCue cue) { sounds.play(engineCue(cue)); });

    monitors->battery.onEvent = [&model](const BatteryMonitor::Event& event) { model.handle(event); };
    monitors->battery.start();
    BluetoothMonitor& bluetooth = monitors->bluetooth;
    bluetooth.onConnect = [&model](const BluetoothAudioDevice& device) { model.announce(device); };
    // The sound server and BlueZ both report a headset; the model greets it once.
    controls.onBluetoothOutput = [&model, &bluetooth](const QString& address) {
        if (const auto device = bluetooth.connectedDevice(address)) {
            model.announce(*device);
        }
    };
    bluetooth.start();
    const auto report = [&model, raw = monitors.get()] {
        const QJsonObject json = devicesJson(raw->battery, raw->bluetooth, raw->lockState);
        const QJsonObject battery = json.value(QStringLiteral("battery")).toObject();
        QVariantMap devices{
            {QStringLiteral("bluetooth"), json.value(QStringLiteral("bluetooth")).toVariant()}};
        if (battery.contains(QStringLiteral("level"))) {
            devices.insert(QStringLiteral("battery"), battery.value(QStringLiteral("level")).toInt());
            devices.insert(QStringLiteral("charging"), battery.value(QStringLiteral("charging")).toBool());
        }
        model.setDevices(devices);
    };
    QObject::connect(&monitors->battery, &BatteryMonitor::changed, &model, report);
    QObject::connect(&bluetooth, &BluetoothMonitor::connectedChanged, &model, report);
    monitors->lockState.onChange = [&model](bool locked) { model.setLocked(locked); };
    monitors->lockState.start();
    LockStateObserver::attach(prefs.lockScreenEnabled());
    return monitors;
}

// The copy this one replaces quits once it lost the name and removes its socket on the way out.
// Binding first would race that removal (it checks the file is its own, then removes it), so the
// new socket waits for the old one to go; a file a crash left behind is taken over after a while.
void waitForTheReplacedCopy() {
    const QString path = BridgeProtocol::socketPath();
    QDeadlineTimer deadline(2000);
    while (QFileInfo::exists(path) && !deadline.hasExpired()) {
        QThread::msleep(20);
    }
}

// A copy started with --replace takes the name, then binds its own socket at the path: either way
// this copy has nothing left to serve.
std::unique_ptr<QFileSystemWatcher> quitWhenTakenOver(ControlService& control, AppModel& model) {
    QObject::connect(&control, &ControlService::nameLost,
                     [] { quitBecause(QStringLiteral("another copy took the bus name over")); });
    BridgeServer* bridge = model.bridge();
    if (bridge == nullptr || !bridge->isListening()) {
        return nullptr;
    }
    auto watcher = std::make_unique<QFileSystemWatcher>(QStringList{BridgeProtocol::supportDirectory()});
    QObject::connect(watcher.get(), &QFileSystemWatcher::directoryChanged, [bridge] {
        if (bridge->socketTakenOver()) {
            quitBecause(QStringLiteral("another copy took the agent socket over"));
        }
    });
    return watcher;
}

// Each stored host gets its forwarding connection; the list and the settings show its state.
void connectRemoteHosts(AppModel& model, RemoteHostStore& hosts, RemoteSetup& setup) {
    RemoteLinks* links = model.remoteLinks();
    if (links == nullptr) {
        return;
    }
    links->setHosts(hosts.hosts());
    QObject::connect(&hosts, &RemoteHostStore::changed, links,
                     [links, &hosts] { links->setHosts(hosts.hosts()); });
    setup.setConnectionState(
        [links](const RemoteHost& host) -> QJsonValue { return links->state(host.destination); });
    QObject::connect(links, &RemoteLinks::stateChanged, &setup, &RemoteSetup::changed);
}

} // namespace

int runMirrowisp(int argc, char** argv) {
    if (argc > 1 && std::strcmp(argv[1], "ctl") == 0) {
        return runCtlCommand(argc, argv);
    }
    const auto parsed = parseArguments(argc, argv);
    if (const int* status = std::get_if<int>(&parsed)) {
        return *status;
    }
    const LaunchOptions options = std::get<LaunchOptions>(parsed);

    // A dead peer on any socket must never kill the app.
    std::signal(SIGPIPE, SIG_IGN);
    const int signalFD = quitSignalDescriptor();
    const bool gui = hasDisplay();
    const auto app = createApplication(argc, argv, gui);
    auto signalNotifier = watchQuitSignals(signalFD);

    UserDefaults& defaults = UserDefaults::standard();
    // Frequent small changes (a prompt counted per hook) reach the disk once a second, off this thread.
    defaults.coalesceWrites(SystemClock::shared());
    // Declared before the model, so the store never outlives the log it writes to.
    DecisionLog decisionLog(BridgeProtocol::supportDirectory());
    AppModel model(Preferences::shared(), defaults, SystemClock::shared());
    model.agents().setDecisionLog(&decisionLog);
    for (AgentKind kind : AgentKinds::all) {
        if (const auto timeout = HookInstaller::decisionTimeout(kind)) {
            model.agents().setHookTimeout(kind, *timeout);
        }
    }
    const AgentConnector::Presence isInstalled = [](AgentKind kind) {
        return AgentEnvironment::isInstalled(kind);
    };
    ConnectionPass connectionPass(defaults, isInstalled);
    // The remote hosts the user added over ssh, and their set-up there.
    RemoteHostStore remoteHosts(BridgeProtocol::supportDirectory());
    RemoteSetup remoteSetup(remoteHosts, HookInstaller::bundledBridgeTool());
    std::unique_ptr<IslandShell> island;
    std::unique_ptr<FrontDoor> front;
    ControlService control(
        model, {[&model, &defaults, isInstalled] {
                    return QString::fromUtf8(
                        QJsonDocument(AgentConnector::agentsJson(defaults, model.agents().lastSeen(),
                                                                 isInstalled, SystemClock::shared().now()))
                            .toJson(QJsonDocument::Indented));
                },
                [&model, &connectionPass](const QString& agent, bool connect) {
                    auto error = connectionPass.setConnected(agent, connect);
                    model.agents().refreshCodexApproval();
                    return error;
                },
                [&island] {
                    return island ? QString::fromUtf8(
                                        QJsonDocument(island->toJson()).toJson(QJsonDocument::Indented))
                                  : QString();
                }});
    control.setRemote(&remoteSetup);
    // Calls on the bus are served from the event loop, so by the first one the socket is open.
    if (const auto status = claimTheBusName(control, options.replace)) {
        return *status;
    }
    if (options.replace) {
        waitForTheReplacedCopy();
    }

    // The hook command points at a stable link in the support directory, kept on this build's tool.
    HookInstaller::refreshBridgeLink();
    // What waits for the login shell's answer beside the model (set below, run on the main thread).
    std::function<void()> afterEnvironment;
    model.setEnvironmentResolver([&afterEnvironment](std::function<void()> then) {
        AgentEnvironment::resolve([then = std::move(then), &afterEnvironment] {
            then();
            if (afterEnvironment) {
                afterEnvironment();
            }
        });
    });
    model.setConnectionPass(
        [&connectionPass](std::function<void()> done) { connectionPass.run(std::move(done)); });
    // Codex's files are read on the pass's thread; the store asks often and gets the last reading.
    model.agents().setCodexStatusSource([&connectionPass] { return connectionPass.codexHookStatus(); });
    connectionPass.setCodexReadingChanged([&model] { model.agents().refreshCodexApproval(); });
    model.agents().refreshCodexApproval();
    QObject::connect(app.get(), &QCoreApplication::aboutToQuit, &model, &AppModel::stop);
    model.start();
    connectRemoteHosts(model, remoteHosts, remoteSetup);
    // What plays on the desktop; covers the players lack are looked up in a public catalogue.
    NowPlayingService nowPlaying(QDBusConnection::sessionBus(), SystemClock::shared());
    // Its origin is the "artworkCatalogue" setting; the environment overrides it (tests: a stand-in).
    nowPlaying.setCatalogue(qEnvironmentVariable(
        "MIRROWISP_ARTWORK_CATALOGUE",
        defaults.stringValue(QStringLiteral("artworkCatalogue")).value_or(ArtworkLookup::defaultCatalogue)));
    model.attachNowPlaying(nowPlaying);
    nowPlaying.start();
    // The next events, from the calendar server and the calendar files the settings name; the tasks
    // due today from the server's task lists; pull requests through gh.
    CalendarFiles calendarFiles;
    EvolutionStore calendarServer;
    CombinedCalendars calendars({&calendarServer, &calendarFiles});
    CalendarService calendar(calendars, SystemClock::shared());
    model.attachCalendar(calendar,
                         [&calendarFiles](const QStringList& paths) { calendarFiles.setPaths(paths); });
    calendarServer.start();
    calendar.start();
    RemindersService reminders(calendarServer, SystemClock::shared());
    model.attachReminders(reminders);
    reminders.start();
    PullRequestService::Options ghOptions = PullRequestService::Options::standard();
    ghOptions.loginPath = [] { return AgentEnvironment::current().path; };
    PullRequestService pullRequests(SystemClock::shared(), std::move(ghOptions));
    model.attachPullRequests(pullRequests);
    // gh is looked up on the login shell's PATH: the first fetch waits for the shell's answer.
    afterEnvironment = [&pullRequests] { pullRequests.start(); };
    const auto takeoverWatch = quitWhenTakenOver(control, model);
    const auto systemControls = startSystemControls(model);
    control.setHud(&systemControls->hud());
    const auto monitors = startMonitors(model, *systemControls);
    control.setDevices(
        {[&monitors] {
             return QString::fromUtf8(
                 QJsonDocument(devicesJson(monitors->battery, monitors->bluetooth, monitors->lockState))
                     .toJson(QJsonDocument::Indented));
         },
         [&monitors](const QString& name) {
             const auto cue = CueSynth::cueNamed(name);
             if (cue) {
                 monitors->sounds.play(*cue);
             }
             return cue.has_value();
         }});

    if (gui) {
        HudLevelsModel::setShared(&systemControls->hud());
        HomeWidgetsViewModel::setShared(&model);
        island = std::make_unique<IslandShell>(model, [&model](const AgentSession& session) {
            // A remote agent's process and panes are on its host: that jump goes through ssh.
            if (const auto host = model.remoteLinks() != nullptr && session.isRemote()
                                      ? model.remoteLinks()->host(session.host())
                                      : std::nullopt) {
                RemoteJump::jump(session, *host);
            } else {
                DesktopJump::jump(session);
            }
        });
        island->start();
        front = std::make_unique<FrontDoor>(
            SettingsServices{model, connectionPass, isInstalled, SystemClock::shared(), &remoteSetup});
        front->launch(BuildInfo::version());
        // Coming back to the app is a good moment to put back hooks an agent's update removed.
        QObject::connect(qGuiApp, &QGuiApplication::applicationStateChanged, &model,
                         [&model](Qt::ApplicationState state) {
                             if (state == Qt::ApplicationActive) {
                                 model.runConnectionPass();
                             }
                         });
    }

    const int status = QCoreApplication::exec();
    front.reset();
    island.reset();
    model.stop();
    defaults.flush();
    if (signalFD >= 0) {
        signalNotifier.reset();
        ::close(signalFD);
    }
    return status;
}

} // namespace mirrowisp
