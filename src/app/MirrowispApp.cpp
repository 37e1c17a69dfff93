#include "app/MirrowispApp.h"

#include "app/AgentConnector.h"
#include "app/AppModel.h"
#include "app/ConnectionPass.h"
#include "app/Preferences.h"
#include "base/Clock.h"
#include "base/Log.h"
#include "base/UserDefaults.h"
#include "control/ControlService.h"
#include "control/CtlClient.h"
#include "control/KonsoleDBusFocus.h"
#include "control/X11WindowFocus.h"
#include "integration/AgentEnvironment.h"
#include "integration/HookInstaller.h"
#include "island/IslandShell.h"
#include "jump/TerminalJumper.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QJsonDocument>
#include <QSocketNotifier>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <sys/signalfd.h>
#include <unistd.h>

namespace mirrowisp {

namespace {

// The island is an X11 window (its input shape and global pointer have no Wayland counterpart):
// on a Wayland desktop it runs through XWayland.
bool hasDisplay() {
    return !qEnvironmentVariableIsEmpty("DISPLAY");
}

// A click on a session row: the drivers, then the terminal's window.
void jumpTo(const AgentSession& session) {
    TerminalDrivers::Tools tools = TerminalDrivers::Tools::system();
    tools.konsole = std::make_shared<KonsoleDBusFocus>();
    auto windows = std::make_shared<X11WindowFocus>();
    tools.windows = windows;
    TerminalJumper::jump(session, TerminalJumper::windowActivation(windows), {}, tools);
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

bool wantsVersion(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--version") == 0) {
            return true;
        }
    }
    return false;
}

} // namespace

int runMirrowisp(int argc, char** argv) {
    if (argc > 1 && std::strcmp(argv[1], "ctl") == 0) {
        // The client speaks in one line of its own on failure; Qt's teardown chatter stays out of it.
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
        QCoreApplication client(argc, argv);
        return runCtl(QCoreApplication::arguments().mid(2));
    }
    if (wantsVersion(argc, argv)) {
        std::printf("mirrowisp %s\n", MIRROWISP_VERSION);
        return 0;
    }
    // A dead peer on any socket must never kill the app.
    std::signal(SIGPIPE, SIG_IGN);
    const int signalFD = quitSignalDescriptor();

    // Qt's own event dispatcher hands bridge requests to the main thread about three times faster
    // than the GLib one under load; nothing here needs a GLib main loop. The user can still opt back.
    if (!qEnvironmentVariableIsSet("QT_NO_GLIB")) {
        qputenv("QT_NO_GLIB", "1");
    }
    const bool gui = hasDisplay();
    if (gui && !qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "xcb");
    }
    std::unique_ptr<QCoreApplication> app;
    if (gui) {
        app = std::make_unique<QGuiApplication>(argc, argv);
    } else {
        app = std::make_unique<QCoreApplication>(argc, argv);
    }
    QCoreApplication::setApplicationName(QStringLiteral("mirrowisp"));
    QCoreApplication::setApplicationVersion(QStringLiteral(MIRROWISP_VERSION));
    if (!gui) {
        logLine(QStringLiteral("Mirrowisp: no display found; running the agent bridge only"));
    }

    std::unique_ptr<QSocketNotifier> signalNotifier;
    if (signalFD >= 0) {
        signalNotifier = std::make_unique<QSocketNotifier>(signalFD, QSocketNotifier::Read);
        QObject::connect(signalNotifier.get(), &QSocketNotifier::activated, [signalFD] {
            signalfd_siginfo info{};
            while (::read(signalFD, &info, sizeof info) == sizeof info) {
            }
            QCoreApplication::quit();
        });
    }

    UserDefaults& defaults = UserDefaults::standard();
    // Frequent small changes (a prompt counted per hook) reach the disk once a second, off this thread.
    defaults.coalesceWrites(SystemClock::shared());
    AppModel model(Preferences::shared(), defaults, SystemClock::shared());
    // The hook command points at a stable link in the support directory, kept on this build's tool.
    HookInstaller::refreshBridgeLink();
    const AgentConnector::Presence isInstalled = [](AgentKind kind) {
        return AgentEnvironment::isInstalled(kind);
    };
    model.setEnvironmentResolver(
        [](std::function<void()> then) { AgentEnvironment::resolve(std::move(then)); });
    ConnectionPass connectionPass(defaults, isInstalled);
    model.setConnectionPass(
        [&connectionPass](std::function<void()> done) { connectionPass.run(std::move(done)); });
    // Codex's files are read on the pass's thread; the store asks often and gets the last reading.
    model.agents().setCodexStatusSource([&connectionPass] { return connectionPass.codexHookStatus(); });
    connectionPass.setCodexReadingChanged([&model] { model.agents().refreshCodexApproval(); });
    model.agents().refreshCodexApproval();
    QObject::connect(app.get(), &QCoreApplication::aboutToQuit, &model, &AppModel::stop);
    model.start();
    std::unique_ptr<IslandShell> island;
    if (gui) {
        island = std::make_unique<IslandShell>(model, jumpTo);
        island->start();
    }
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
                island ? std::function<QString()>([&island] {
                    return QString::fromUtf8(QJsonDocument(island->toJson()).toJson(QJsonDocument::Indented));
                })
                       : std::function<QString()>()});
    control.registerOn(QDBusConnection::sessionBus());
    if (gui) {
        // Coming back to the app is a good moment to put back hooks an agent's update removed.
        QObject::connect(qGuiApp, &QGuiApplication::applicationStateChanged, &model,
                         [&model](Qt::ApplicationState state) {
                             if (state == Qt::ApplicationActive) {
                                 model.runConnectionPass();
                             }
                         });
    }

    const int status = QCoreApplication::exec();
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
