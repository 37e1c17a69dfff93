#include "control/ControlService.h"

#include "app/AppModel.h"
#include "app/ControlCommands.h"
#include "app/HookDoctor.h"
#include "app/ShelfActions.h"
#include "base/Clock.h"
#include "base/Log.h"
#include "bridge/BridgeProtocol.h"
#include "integration/AlwaysAllowRules.h"
#include "jump/linux/DesktopJump.h"
#include "media/NowPlayingService.h"
#include "system/SystemHud.h"
#include "widgets/CalendarService.h"
#include "widgets/PullRequestService.h"
#include "widgets/RemindersService.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QUrl>
#include <unistd.h>

namespace mirrowisp {

namespace {

QString errorName(ControlCommands::Result result) {
    switch (result) {
    case ControlCommands::Result::unknownDecision:
        return ControlService::errorPrefix + QStringLiteral("UnknownDecision");
    case ControlCommands::Result::unknownSession:
        return ControlService::errorPrefix + QStringLiteral("UnknownSession");
    default:
        return ControlService::errorPrefix + QStringLiteral("BadArgument");
    }
}

} // namespace

ControlService::ControlService(AppModel& model, AgentActions agentActions, QObject* parent)
    : QObject(parent), model_(model), agentActions_(std::move(agentActions)) {}

ControlService::Claim ControlService::registerOn(QDBusConnection bus, bool replace) {
    if (!bus.isConnected()) {
        logLine(QStringLiteral("Mirrowisp: no session bus; the control interface is off"));
        return Claim::noBus;
    }
    if (!bus.registerObject(objectPath, this, QDBusConnection::ExportAllSlots)) {
        logLine(QStringLiteral("Mirrowisp: could not publish the control interface: ") +
                bus.lastError().message());
        return Claim::failed;
    }
    // Watched before asking, so a takeover right after the name is ours is not missed.
    connect(bus.interface(), &QDBusConnectionInterface::serviceUnregistered, this,
            [this](const QString& name) {
                if (name == serviceName) {
                    Q_EMIT nameLost();
                }
            });
    const auto reply =
        bus.interface()->registerService(serviceName,
                                         replace ? QDBusConnectionInterface::ReplaceExistingService
                                                 : QDBusConnectionInterface::DontQueueService,
                                         QDBusConnectionInterface::AllowReplacement);
    if (!reply.isValid()) {
        logLine(QStringLiteral("Mirrowisp: could not ask for the bus name ") + serviceName +
                QStringLiteral(": ") + reply.error().message());
        return Claim::failed;
    }
    if (reply.value() == QDBusConnectionInterface::ServiceRegistered) {
        return Claim::owned;
    }
    bus.unregisterObject(objectPath);
    return Claim::heldByAnotherCopy;
}

bool ControlService::askRunningCopyToShow(QDBusConnection bus) {
    QDBusMessage call = QDBusMessage::createMethodCall(serviceName, objectPath, interfaceName,
                                                       QStringLiteral("ShowSettings"));
    call.setArguments({QString()});
    return bus.call(call, QDBus::Block, 5000).type() == QDBusMessage::ReplyMessage;
}

bool ControlService::callerIsThisUser() {
    if (!calledFromDBus()) {
        return true;
    }
    // The session bus is the user's own already; a bus shared with other users must not reach us.
    const auto uid = connection().interface()->serviceUid(message().service());
    if (uid.isValid() && uid.value() == ::getuid()) {
        return true;
    }
    sendErrorReply(QDBusError::AccessDenied,
                   QStringLiteral("only the user who runs Mirrowisp may control it"));
    return false;
}

void ControlService::act(const std::function<ControlCommands::Result()>& action, const QString& subject) {
    if (!callerIsThisUser()) {
        return;
    }
    if (const auto result = action(); result != ControlCommands::Result::ok) {
        sendErrorReply(errorName(result), ControlCommands::message(result, subject));
    }
}

QString ControlService::Sessions() {
    if (!callerIsThisUser()) {
        return {};
    }
    return QString::fromUtf8(
        QJsonDocument(ControlCommands::sessionsJson(model_.agents())).toJson(QJsonDocument::Indented));
}

void ControlService::Allow(const QString& decisionID, bool always) {
    act([&] { return ControlCommands::allow(model_.agents(), decisionID, always); }, decisionID);
}

void ControlService::Deny(const QString& decisionID) {
    act([&] { return ControlCommands::deny(model_.agents(), decisionID); }, decisionID);
}

void ControlService::Answer(const QString& decisionID, const QString& answersJson) {
    act([&] { return ControlCommands::answer(model_.agents(), decisionID, answersJson); }, decisionID);
}

void ControlService::ApprovePlan(const QString& decisionID, bool autoEdit) {
    act([&] { return ControlCommands::approvePlan(model_.agents(), decisionID, autoEdit); }, decisionID);
}

void ControlService::KeepPlanning(const QString& decisionID, const QString& feedback) {
    act([&] { return ControlCommands::keepPlanning(model_.agents(), decisionID, feedback); }, decisionID);
}

void ControlService::Terminal(const QString& decisionID) {
    act([&] { return ControlCommands::terminal(model_.agents(), decisionID); }, decisionID);
}

void ControlService::Hide(const QString& sessionID) {
    act([&] { return ControlCommands::hide(model_.agents(), sessionID); }, sessionID);
}

QString ControlService::Agents() {
    if (!callerIsThisUser()) {
        return {};
    }
    return agentActions_.agentsJson ? agentActions_.agentsJson() : QStringLiteral("[]");
}

QString ControlService::Usage() {
    if (!callerIsThisUser()) {
        return {};
    }
    return QString::fromUtf8(QJsonDocument(model_.usage().toJson()).toJson(QJsonDocument::Indented));
}

QString ControlService::Island() {
    if (!callerIsThisUser()) {
        return {};
    }
    const QString json = agentActions_.islandJson ? agentActions_.islandJson() : QString();
    if (json.isNull()) {
        sendErrorReply(QDBusError::NotSupported, QStringLiteral("no island: the app runs without a display"));
    }
    return json;
}

QString ControlService::Media() {
    if (!callerIsThisUser()) {
        return {};
    }
    NowPlayingService* media = model_.nowPlayingService();
    if (media == nullptr) {
        sendErrorReply(QDBusError::NotSupported, QStringLiteral("now playing is not running"));
        return {};
    }
    return QString::fromUtf8(QJsonDocument(media->toJson()).toJson(QJsonDocument::Indented));
}

QString ControlService::Calendar() {
    if (!callerIsThisUser()) {
        return {};
    }
    CalendarService* calendar = model_.calendarService();
    if (calendar == nullptr) {
        sendErrorReply(QDBusError::NotSupported, QStringLiteral("the calendar is not running"));
        return {};
    }
    QJsonObject json = calendar->toJson();
    if (const RemindersService* reminders = model_.remindersService()) {
        json.insert(QStringLiteral("reminders"), reminders->toJson());
    }
    return QString::fromUtf8(QJsonDocument(json).toJson(QJsonDocument::Indented));
}

QString ControlService::PullRequests(bool refresh) {
    if (!callerIsThisUser()) {
        return {};
    }
    PullRequestService* prs = model_.pullRequestService();
    if (prs == nullptr) {
        sendErrorReply(QDBusError::NotSupported, QStringLiteral("pull requests are not running"));
        return {};
    }
    const auto json = [prs] {
        return QString::fromUtf8(QJsonDocument(prs->toJson()).toJson(QJsonDocument::Indented));
    };
    if (refresh) {
        prs->refresh(true);
    }
    if (!refresh || !prs->fetching()) {
        return json();
    }
    // Answered when gh is done; the service's own time-out bounds the wait.
    setDelayedReply(true);
    auto waiting = std::make_shared<QMetaObject::Connection>();
    *waiting = connect(prs, &PullRequestService::changed, this,
                       [prs, json, waiting, request = message(), bus = connection()]() mutable {
                           if (!prs->fetching()) {
                               QObject::disconnect(*waiting);
                               bus.send(request.createReply(json()));
                           }
                       });
    return {};
}

void ControlService::MediaCommand(const QString& command, double seconds) {
    if (!callerIsThisUser()) {
        return;
    }
    NowPlayingService* media = model_.nowPlayingService();
    if (media == nullptr || !media->hasPlayer()) {
        sendErrorReply(errorPrefix + QStringLiteral("NoPlayer"), QStringLiteral("no player is running"));
        return;
    }
    if (command == QLatin1StringView("playpause")) {
        media->send(QStringLiteral("playpause"));
    } else if (command == QLatin1StringView("next")) {
        media->send(QStringLiteral("next track"));
    } else if (command == QLatin1StringView("previous")) {
        media->send(QStringLiteral("previous track"));
    } else if (command == QLatin1StringView("seek") && media->track()) {
        media->seek(seconds);
    } else if (command == QLatin1StringView("repeat") && media->track() && media->track()->canRepeat) {
        media->cycleRepeat();
    } else {
        sendErrorReply(errorPrefix + QStringLiteral("BadArgument"),
                       QStringLiteral("the track on show cannot do that: ") + command);
    }
}

QString ControlService::Hud() {
    if (!callerIsThisUser()) {
        return {};
    }
    if (hud_ == nullptr) {
        sendErrorReply(QDBusError::NotSupported, QStringLiteral("no system controls"));
        return {};
    }
    return QString::fromUtf8(QJsonDocument(hud_->toJson()).toJson(QJsonDocument::Indented));
}

void ControlService::SetHud(const QString& control, double value) {
    if (!callerIsThisUser()) {
        return;
    }
    const auto which = SystemHud::controlNamed(control);
    if (!which || !(value >= 0 && value <= 1)) {
        sendErrorReply(errorPrefix + QStringLiteral("BadArgument"),
                       QStringLiteral("expected volume, brightness or keyboard and a level from 0 to 1"));
    } else if (hud_ == nullptr || !hud_->set(*which, value)) {
        sendErrorReply(QDBusError::NotSupported,
                       QStringLiteral("no ") + control + QStringLiteral(" control here"));
    }
}

QString ControlService::Devices() {
    if (!callerIsThisUser()) {
        return {};
    }
    if (!devices_.devicesJson) {
        sendErrorReply(QDBusError::NotSupported, QStringLiteral("no device monitors"));
        return {};
    }
    return devices_.devicesJson();
}

void ControlService::Sound(const QString& cue) {
    if (!callerIsThisUser()) {
        return;
    }
    if (!devices_.playCue) {
        sendErrorReply(QDBusError::NotSupported, QStringLiteral("no sound engine"));
    } else if (!devices_.playCue(cue)) {
        sendErrorReply(
            errorPrefix + QStringLiteral("BadArgument"),
            QStringLiteral("expected sessionStart, attention, done, lowBattery, connected or charging"));
    }
}

QString ControlService::Jump(const QString& sessionID) {
    if (!callerIsThisUser()) {
        return {};
    }
    for (const auto& session : model_.agents().sessions()) {
        if (session->id() != sessionID && session->sessionID() != sessionID) {
            continue;
        }
        // The drivers run off the main thread; the answer goes out when they are done.
        setDelayedReply(true);
        QDBusMessage request = message();
        QDBusConnection bus = connection();
        DesktopJump::jump(*session, [request, bus](const QString& outcome) mutable {
            bus.send(request.createReply(outcome));
        });
        return {};
    }
    sendErrorReply(errorPrefix + QStringLiteral("UnknownSession"),
                   QStringLiteral("no session with id ") + sessionID);
    return {};
}

void ControlService::Connect(const QString& agent) {
    setConnected(agent, true);
}

void ControlService::Disconnect(const QString& agent) {
    setConnected(agent, false);
}

void ControlService::ShowSettings(const QString& page) {
    if (!callerIsThisUser()) {
        return;
    }
    model_.requestSettings(page);
}

void ControlService::ShowSetupGuide() {
    if (callerIsThisUser()) {
        model_.requestSetupGuide();
    }
}

void ControlService::setConnected(const QString& agent, bool connect) {
    if (!callerIsThisUser()) {
        return;
    }
    if (!AgentKinds::fromRawValue(QStringView(agent))) {
        sendErrorReply(errorPrefix + QStringLiteral("UnknownAgent"),
                       QStringLiteral("no agent called ") + agent);
        return;
    }
    if (!agentActions_.setConnected) {
        sendErrorReply(QDBusError::NotSupported, QStringLiteral("hook installation is not available"));
        return;
    }
    if (const auto error = agentActions_.setConnected(agent, connect)) {
        sendErrorReply(errorPrefix + QStringLiteral("HookError"), *error);
    }
}

QStringList ControlService::sessionFolders() const {
    QStringList folders;
    for (const auto& session : model_.agents().sessions()) {
        folders.append(session->cwd());
    }
    return folders;
}

void ControlService::answerLater(std::function<QString()> work) {
    setDelayedReply(true);
    HookDoctor::runOffMainThread([request = message(), bus = connection(), work = std::move(work)]() mutable {
        bus.send(request.createReply(work()));
    });
}

QString ControlService::Doctor() {
    if (!callerIsThisUser()) {
        return {};
    }
    const HookDoctor::Inputs inputs =
        HookDoctor::gather(model_.agents(), model_.defaults(), SystemClock::shared().now());
    answerLater([inputs] {
        return QString::fromUtf8(QJsonDocument(HookDoctor::report(inputs)).toJson(QJsonDocument::Indented));
    });
    return {};
}

QString ControlService::ConnectPreview(const QString& agent) {
    if (!callerIsThisUser()) {
        return {};
    }
    const auto kind = AgentKinds::fromRawValue(QStringView(agent));
    if (!kind) {
        sendErrorReply(errorPrefix + QStringLiteral("UnknownAgent"),
                       QStringLiteral("no agent called ") + agent);
        return {};
    }
    answerLater([kind = *kind] { return HookDoctor::connectPreview(kind); });
    return {};
}

QString ControlService::Rules() {
    if (!callerIsThisUser()) {
        return {};
    }
    answerLater([folders = sessionFolders()] {
        const QStringList projects =
            AlwaysAllowRules::knownProjects(folders, BridgeProtocol::supportDirectory());
        return QString::fromUtf8(QJsonDocument(AlwaysAllowRules::toJson(AlwaysAllowRules::list(projects)))
                                     .toJson(QJsonDocument::Indented));
    });
    return {};
}

void ControlService::RemoveRule(const QString& ruleID) {
    if (!callerIsThisUser()) {
        return;
    }
    setDelayedReply(true);
    HookDoctor::runOffMainThread(
        [request = message(), bus = connection(), folders = sessionFolders(), ruleID]() mutable {
            const auto error = AlwaysAllowRules::remove(
                ruleID, AlwaysAllowRules::knownProjects(folders, BridgeProtocol::supportDirectory()));
            if (!error) {
                bus.send(request.createReply());
            } else if (error->kind == AlwaysAllowRules::Failure::Kind::unknownRule) {
                bus.send(request.createErrorReply(errorPrefix + QStringLiteral("UnknownRule"), error->text));
            } else {
                bus.send(request.createErrorReply(errorPrefix + QStringLiteral("HookError"), error->text));
            }
        });
}

QString ControlService::Shelf() {
    if (!callerIsThisUser()) {
        return {};
    }
    return QString::fromUtf8(QJsonDocument(model_.shelf().toJson()).toJson(QJsonDocument::Indented));
}

int ControlService::ShelfAdd(const QStringList& paths) {
    if (!callerIsThisUser()) {
        return 0;
    }
    QList<QUrl> urls;
    for (const QString& path : paths) {
        if (!QDir::isAbsolutePath(path)) {
            sendErrorReply(errorPrefix + QStringLiteral("BadArgument"),
                           QStringLiteral("not an absolute path: ") + path);
            return 0;
        }
        urls.append(QUrl::fromLocalFile(path));
    }
    return model_.addToShelf(urls, true);
}

void ControlService::ShelfRemove(const QString& id) {
    if (!callerIsThisUser()) {
        return;
    }
    const QUuid uuid = QUuid::fromString(id);
    ShelfStore& shelf = model_.shelf();
    if (!uuid.isNull() && shelf.item(uuid)) {
        shelf.remove(uuid);
    } else if (!uuid.isNull() && shelf.entry(uuid)) {
        shelf.removeEntry(uuid);
    } else {
        sendErrorReply(errorPrefix + QStringLiteral("UnknownItem"),
                       QStringLiteral("nothing on the shelf with id ") + id);
    }
}

QString ControlService::ShelfConvert(const QString& id, const QString& format) {
    if (!callerIsThisUser()) {
        return {};
    }
    const auto conversion = ShelfConverter::Conversion::fromKey(format);
    if (!conversion) {
        sendErrorReply(errorPrefix + QStringLiteral("BadArgument"),
                       QStringLiteral("no conversion called ") + format);
        return {};
    }
    QDBusMessage request = message();
    QDBusConnection bus = connection();
    const bool started =
        ShelfActions::convert(
            model_, QUuid::fromString(id), *conversion,
            [request, bus](const ShelfConverter::Report& report) mutable {
                if (report.files.isEmpty() && !report.failures.isEmpty()) {
                    bus.send(request.createErrorReply(errorPrefix + QStringLiteral("Failed"),
                                                      report.failures.join(QLatin1Char('\n'))));
                    return;
                }
                bus.send(request.createReply(
                    QString::fromUtf8(QJsonDocument(QJsonArray::fromStringList(report.files)).toJson())));
            }) != nullptr;
    if (!started) {
        sendErrorReply(errorPrefix + QStringLiteral("UnknownItem"),
                       QStringLiteral("nothing on the shelf with id ") + id);
        return {};
    }
    setDelayedReply(true);
    return {};
}

QString ControlService::ShelfSend(const QString& id, const QString& sessionID) {
    if (!callerIsThisUser()) {
        return {};
    }
    for (const auto& session : model_.agents().sessions()) {
        if (session->id() != sessionID && session->sessionID() != sessionID) {
            continue;
        }
        QDBusMessage request = message();
        QDBusConnection bus = connection();
        if (!ShelfActions::send(
                model_, QUuid::fromString(id), *session,
                [request, bus](const QString& how) mutable { bus.send(request.createReply(how)); })) {
            sendErrorReply(errorPrefix + QStringLiteral("UnknownItem"),
                           QStringLiteral("nothing on the shelf with id ") + id);
            return {};
        }
        setDelayedReply(true);
        return {};
    }
    sendErrorReply(errorPrefix + QStringLiteral("UnknownSession"),
                   QStringLiteral("no session with id ") + sessionID);
    return {};
}

} // namespace mirrowisp
