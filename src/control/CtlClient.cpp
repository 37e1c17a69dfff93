#include "control/CtlClient.h"

#include "control/ControlService.h"
#include "control/CtlDoctor.h"
#include "control/CtlLog.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusInterface>
#include <QDBusReply>
#include <QFileInfo>
#include <QTextStream>
#include <cmath>
#include <cstdio>

namespace mirrowisp {

namespace {

constexpr int exitOK = 0;
constexpr int exitUnknown = 1;
constexpr int exitNotRunning = 2;
constexpr int exitNotAnswering = 3;
constexpr int exitUsage = 64;

const char* const usage = R"(usage: mirrowisp ctl [--timeout SECONDS] COMMAND
  sessions                              the sessions as JSON, in the island's order
  allow ID [--always]                   allow a waiting permission (always: with the suggested rule)
  deny ID                               deny it
  answer ID --json '{"question":"answer"}'
  approve-plan ID [--auto-edit]
  keep-planning ID [--feedback TEXT]
  terminal ID                           leave the decision to the agent's own prompt
  hide SESSION-ID
  jump SESSION-ID                       bring the session's terminal to the front; prints the driver
  usage                                 the agents' usage meters and the Claude usage state
  island                                each island's state as JSON
  media                                 what plays, as JSON (position as of now, colours as hex)
  media playpause|next|previous|repeat  drive the player on show
  media seek SECONDS
  hud                                   the volume, brightness and keyboard light as JSON
  hud volume|brightness|keyboard VALUE  set one: 0 to 1, or a percent such as 40%
  calendar                              the next events and the live one, as JSON
  prs [--refresh]                       your pull requests and review requests as JSON
  devices                               battery, connected Bluetooth audio devices and lock state as JSON
  sound CUE                             play a cue: sessionStart, attention, done, lowBattery, connected, charging
  agents                                each agent's setup state
  connect KIND | disconnect KIND        install or remove the hooks of an agent
  connect KIND --dry-run                print the change connect would make, changing nothing
  doctor [--json]                       each agent's hooks, the bridge tool, hook round trips, stuck decisions
  rules [--json] | rules remove ID      the agents' always-allow rules; remove one (with a backup)
  shelf                                 the shelf's entries and their files as JSON
  shelf add PATH...                     put files on the shelf (several: as one stack); prints how many
  shelf remove ID                       take an item, or a whole stack, off the shelf
  shelf convert ID FORMAT               jpeg, png, webp, heic, pdf, smaller, mp4, smaller-mp4, zip or
                                        combine-pdf; prints the new files once they are on the shelf
  shelf send ID SESSION-ID              type the files' paths at the session's prompt (no Enter)
  remote add [USER@]HOST [--port N] [--identity FILE]
                                        set a host up over ssh: the hook tool and its agents' hooks there
  remote list                           the remote hosts as JSON, with their state and last message
  remote remove HOST [--forget]         take the hooks and the tool off the host and forget it
                                        (--forget: without reaching it)
  settings [PAGE]                       show the settings window (general, agents, decisions, usage, island, about)
  setup-guide                           show the setup guide
  log [--since 2h] [--agent KIND] [--json]   the decisions of the log, oldest first

--timeout: how long to wait for the app's answer (10 s by default; 300 s for remote add and remove).
Exit status: 0 done, 1 unknown decision, session or agent, 2 not running, 3 not answering in time,
64 a wrong command line.
)";

void printError(const QString& text) {
    std::fprintf(stderr, "mirrowisp ctl: %s\n", qPrintable(text));
}

int exitFor(const QDBusError& error, QDBusConnection& bus) {
    const QString name = error.name();
    if (name.endsWith(QLatin1StringView(".UnknownDecision")) ||
        name.endsWith(QLatin1StringView(".UnknownSession")) ||
        name.endsWith(QLatin1StringView(".UnknownAgent")) ||
        name.endsWith(QLatin1StringView(".UnknownRule")) ||
        name.endsWith(QLatin1StringView(".UnknownItem"))) {
        printError(error.message());
        return exitUnknown;
    }
    const bool noAnswer = error.type() == QDBusError::NoReply || error.type() == QDBusError::Timeout ||
                          error.type() == QDBusError::TimedOut;
    // No answer from a copy that still holds the name is a busy app, not a missing one.
    if (noAnswer && bus.interface()->isServiceRegistered(ControlService::serviceName).value()) {
        printError(QStringLiteral("Mirrowisp is not answering (timed out)"));
        return exitNotAnswering;
    }
    if (noAnswer || error.type() == QDBusError::ServiceUnknown || error.type() == QDBusError::Disconnected ||
        error.type() == QDBusError::UnknownObject) {
        printError(QStringLiteral("Mirrowisp is not running"));
        return exitNotRunning;
    }
    printError(error.message());
    return exitUnknown;
}

// Takes "--flag VALUE" out of `args`; nothing when the flag is absent.
std::optional<QString> takeOption(QStringList& args, const QString& flag, bool& missingValue) {
    const qsizetype index = args.indexOf(flag);
    if (index < 0) {
        return std::nullopt;
    }
    if (index + 1 >= args.size()) {
        missingValue = true;
        return std::nullopt;
    }
    const QString value = args.at(index + 1);
    args.remove(index, 2);
    return value;
}

bool takeFlag(QStringList& args, const QString& flag) {
    return args.removeAll(flag) > 0;
}

} // namespace

int runCtl(const QStringList& arguments) {
    QStringList args = arguments;
    if (args.isEmpty()) {
        std::fputs(usage, stderr);
        return exitUsage;
    }
    // Help anywhere, as in "ctl allow --help", is an answer of its own: nothing is sent.
    if (args.contains(QLatin1StringView("--help")) || args.contains(QLatin1StringView("-h"))) {
        std::fputs(usage, stdout);
        return exitOK;
    }
    bool missingValue = false;
    const auto timeoutText = takeOption(args, QStringLiteral("--timeout"), missingValue);
    bool timeoutValid = true;
    const double timeoutSeconds = timeoutText ? timeoutText->toDouble(&timeoutValid) : 10.0;
    if (!timeoutValid || timeoutSeconds <= 0 || timeoutSeconds > 3600 || args.isEmpty()) {
        std::fputs(usage, stderr);
        return exitUsage;
    }
    const QString command = args.takeFirst();
    if (command == QLatin1StringView("log")) {
        return runCtlLog(args);
    }
    const bool always = takeFlag(args, QStringLiteral("--always"));
    const bool autoEdit = takeFlag(args, QStringLiteral("--auto-edit"));
    const bool dryRun = takeFlag(args, QStringLiteral("--dry-run"));
    const bool refresh = command == QLatin1StringView("prs") && takeFlag(args, QStringLiteral("--refresh"));
    // doctor and rules print text unless asked for JSON; other commands take --json with a value.
    const bool readableCommand =
        command == QLatin1StringView("doctor") || command == QLatin1StringView("rules");
    const bool asJson = readableCommand && takeFlag(args, QStringLiteral("--json"));
    const auto json = takeOption(args, QStringLiteral("--json"), missingValue);
    const auto feedback = takeOption(args, QStringLiteral("--feedback"), missingValue);
    const bool remote = command == QLatin1StringView("remote");
    const auto port = remote ? takeOption(args, QStringLiteral("--port"), missingValue) : std::nullopt;
    const auto identity =
        remote ? takeOption(args, QStringLiteral("--identity"), missingValue) : std::nullopt;
    const bool forget = remote && takeFlag(args, QStringLiteral("--forget"));
    bool portValid = true;
    const int portNumber = port ? port->toInt(&portValid) : 0;
    portValid = portValid && portNumber >= (port ? 1 : 0) && portNumber <= 65535;

    struct Call {
        QString method;
        QVariantList arguments;
        bool printsResult = false;
        QString (*format)(const QByteArray&) = nullptr;
    };
    std::optional<Call> call;
    const QString subject = args.value(0);
    const bool oneSubject = args.size() == 1 && !missingValue;
    if (command == QLatin1StringView("sessions") && args.isEmpty()) {
        call = Call{QStringLiteral("Sessions"), {}, true};
    } else if (command == QLatin1StringView("usage") && args.isEmpty()) {
        call = Call{QStringLiteral("Usage"), {}, true};
    } else if (command == QLatin1StringView("island") && args.isEmpty()) {
        call = Call{QStringLiteral("Island"), {}, true};
    } else if (command == QLatin1StringView("media") && args.isEmpty()) {
        call = Call{QStringLiteral("Media"), {}, true};
    } else if (command == QLatin1StringView("media") && oneSubject &&
               QStringList{QStringLiteral("playpause"), QStringLiteral("next"), QStringLiteral("previous"),
                           QStringLiteral("repeat")}
                   .contains(subject)) {
        call = Call{QStringLiteral("MediaCommand"), {subject, 0.0}};
    } else if (command == QLatin1StringView("media") && args.size() == 2 &&
               args[0] == QLatin1StringView("seek")) {
        bool number = false;
        const double seconds = args[1].toDouble(&number);
        if (number && std::isfinite(seconds) && seconds >= 0) {
            call = Call{QStringLiteral("MediaCommand"), {args[0], seconds}};
        }
    } else if (command == QLatin1StringView("hud") && args.isEmpty()) {
        call = Call{QStringLiteral("Hud"), {}, true};
    } else if (command == QLatin1StringView("hud") && args.size() == 2 && !missingValue) {
        const QString text = args.value(1);
        const bool percent = text.endsWith(QLatin1Char('%'));
        bool valid = false;
        const double value = (percent ? text.chopped(1) : text).toDouble(&valid) / (percent ? 100 : 1);
        if (valid) {
            call = Call{QStringLiteral("SetHud"), {subject, value}};
        }
    } else if (command == QLatin1StringView("calendar") && args.isEmpty()) {
        call = Call{QStringLiteral("Calendar"), {}, true};
    } else if (command == QLatin1StringView("prs") && args.isEmpty()) {
        call = Call{QStringLiteral("PullRequests"), {refresh}, true};
    } else if (command == QLatin1StringView("devices") && args.isEmpty()) {
        call = Call{QStringLiteral("Devices"), {}, true};
    } else if (command == QLatin1StringView("sound") && oneSubject) {
        call = Call{QStringLiteral("Sound"), {subject}};
    } else if (command == QLatin1StringView("agents") && args.isEmpty()) {
        call = Call{QStringLiteral("Agents"), {}, true};
    } else if (command == QLatin1StringView("allow") && oneSubject) {
        call = Call{QStringLiteral("Allow"), {subject, always}};
    } else if (command == QLatin1StringView("deny") && oneSubject) {
        call = Call{QStringLiteral("Deny"), {subject}};
    } else if (command == QLatin1StringView("answer") && oneSubject && json) {
        call = Call{QStringLiteral("Answer"), {subject, *json}};
    } else if (command == QLatin1StringView("approve-plan") && oneSubject) {
        call = Call{QStringLiteral("ApprovePlan"), {subject, autoEdit}};
    } else if (command == QLatin1StringView("keep-planning") && oneSubject) {
        call = Call{QStringLiteral("KeepPlanning"), {subject, feedback.value_or(QString())}};
    } else if (command == QLatin1StringView("terminal") && oneSubject) {
        call = Call{QStringLiteral("Terminal"), {subject}};
    } else if (command == QLatin1StringView("hide") && oneSubject) {
        call = Call{QStringLiteral("Hide"), {subject}};
    } else if (command == QLatin1StringView("jump") && oneSubject) {
        call = Call{QStringLiteral("Jump"), {subject}, true};
    } else if (command == QLatin1StringView("connect") && oneSubject && dryRun) {
        call = Call{QStringLiteral("ConnectPreview"), {subject}, true};
    } else if (command == QLatin1StringView("connect") && oneSubject) {
        call = Call{QStringLiteral("Connect"), {subject}};
    } else if (command == QLatin1StringView("doctor") && args.isEmpty()) {
        call = Call{QStringLiteral("Doctor"), {}, true, asJson ? nullptr : formatDoctorReport};
    } else if (command == QLatin1StringView("rules") && args.isEmpty()) {
        call = Call{QStringLiteral("Rules"), {}, true, asJson ? nullptr : formatRules};
    } else if (command == QLatin1StringView("rules") && args.size() == 2 &&
               args.first() == QLatin1StringView("remove")) {
        call = Call{QStringLiteral("RemoveRule"), {args.at(1)}};
    } else if (command == QLatin1StringView("shelf") && args.isEmpty()) {
        call = Call{QStringLiteral("Shelf"), {}, true};
    } else if (command == QLatin1StringView("shelf") && args.size() >= 2 &&
               subject == QLatin1StringView("add") && !missingValue) {
        QStringList paths;
        for (const QString& path : args.mid(1)) {
            paths.append(QFileInfo(path).absoluteFilePath());
        }
        call = Call{QStringLiteral("ShelfAdd"), {paths}, true};
    } else if (command == QLatin1StringView("shelf") && args.size() == 2 &&
               subject == QLatin1StringView("remove")) {
        call = Call{QStringLiteral("ShelfRemove"), {args.at(1)}};
    } else if (command == QLatin1StringView("shelf") && args.size() == 3 &&
               subject == QLatin1StringView("convert")) {
        call = Call{QStringLiteral("ShelfConvert"), {args.at(1), args.at(2)}, true};
    } else if (command == QLatin1StringView("shelf") && args.size() == 3 &&
               subject == QLatin1StringView("send")) {
        call = Call{QStringLiteral("ShelfSend"), {args.at(1), args.at(2)}, true};
    } else if (command == QLatin1StringView("disconnect") && oneSubject) {
        call = Call{QStringLiteral("Disconnect"), {subject}};
    } else if (remote && args.size() == 1 && subject == QLatin1StringView("list") && !forget) {
        call = Call{QStringLiteral("RemoteList"), {}, true};
    } else if (remote && args.size() == 2 && subject == QLatin1StringView("add") && !missingValue &&
               portValid && !forget) {
        // The app runs elsewhere: a key file named from here must reach it as an absolute path.
        const QString key = identity ? QFileInfo(*identity).absoluteFilePath() : QString();
        call = Call{QStringLiteral("RemoteAdd"), {args.at(1), portNumber, key}, true};
    } else if (remote && args.size() == 2 && subject == QLatin1StringView("remove") && !port && !identity) {
        call = Call{QStringLiteral("RemoteRemove"), {args.at(1), forget}, true};
    } else if (command == QLatin1StringView("settings") && args.size() <= 1 && !missingValue) {
        call = Call{QStringLiteral("ShowSettings"), {subject}};
    } else if (command == QLatin1StringView("setup-guide") && args.isEmpty()) {
        call = Call{QStringLiteral("ShowSetupGuide"), {}};
    }
    // A dry run that would act for real is the worst way to read a command line wrongly.
    if (dryRun && call && call->method != QLatin1StringView("ConnectPreview")) {
        call.reset();
    }
    if (!call) {
        std::fputs(usage, stderr);
        return exitUsage;
    }

    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        printError(QStringLiteral("Mirrowisp is not running (no session bus)"));
        return exitNotRunning;
    }
    QDBusMessage message = QDBusMessage::createMethodCall(
        ControlService::serviceName, ControlService::objectPath, ControlService::interfaceName, call->method);
    message.setArguments(call->arguments);
    // Setting a host up copies the tool and waits on ssh several times over.
    const bool slow =
        call->method == QLatin1StringView("RemoteAdd") || call->method == QLatin1StringView("RemoteRemove");
    const double waitSeconds = slow && !timeoutText ? 300.0 : timeoutSeconds;
    const QDBusMessage reply = bus.call(message, QDBus::Block, static_cast<int>(waitSeconds * 1000));
    if (reply.type() == QDBusMessage::ErrorMessage) {
        return exitFor(QDBusError(reply), bus);
    }
    if (call->printsResult && !reply.arguments().isEmpty()) {
        QTextStream out(stdout);
        QString text = reply.arguments().constFirst().toString();
        if (call->format != nullptr) {
            text = call->format(text.toUtf8());
        }
        if (!text.endsWith(QLatin1Char('\n'))) {
            text += QLatin1Char('\n');
        }
        out << text;
    }
    return exitOK;
}

} // namespace mirrowisp
