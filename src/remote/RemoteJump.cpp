#include "remote/RemoteJump.h"

#include "base/MainQueue.h"
#include "base/ProcessRunner.h"
#include "base/SerialQueue.h"
#include "jump/linux/KonsoleDBusFocus.h"
#include "jump/linux/X11WindowFocus.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace mirrowisp::RemoteJump {

namespace {

QByteArray readBounded(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.read(262'144) : QByteArray();
}

QStringList nulSeparated(const QByteArray& bytes) {
    QStringList words;
    for (const QByteArray& word : bytes.split('\0')) {
        if (!word.isEmpty()) {
            words << QString::fromLocal8Bit(word);
        }
    }
    return words;
}

qint32 parentOf(const QString& procDir) {
    // "pid (comm) state ppid …": comm may hold spaces and parentheses, so read after the last ")".
    const QByteArray stat = readBounded(procDir + QStringLiteral("/stat"));
    const qsizetype close = stat.lastIndexOf(')');
    const QList<QByteArray> fields = stat.mid(close + 1).simplified().split(' ');
    return close < 0 || fields.size() < 2 ? 0 : fields.at(1).toInt();
}

SerialQueue& remoteJumpQueue() {
    static SerialQueue queue("mirrowisp.rjump");
    return queue;
}

} // namespace

bool namesHost(const QStringList& argv, const RemoteHost& host) {
    if (argv.isEmpty() || QFileInfo(argv.first()).fileName() != QLatin1StringView("ssh")) {
        return false;
    }
    const QString name = host.hostName();
    for (qsizetype i = 1; i < argv.size(); ++i) {
        const QString& word = argv.at(i);
        if (word == host.destination || word == name || word.endsWith(QLatin1Char('@') + name)) {
            return true;
        }
    }
    return false;
}

std::optional<qint32> findClient(const RemoteHost& host, qint32 skipParent, const QString& procRoot) {
    std::optional<qint32> newest;
    const QStringList entries = QDir(procRoot).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& entry : entries) {
        bool isNumber = false;
        const qint32 pid = entry.toInt(&isNumber);
        if (!isNumber || (newest && pid < *newest)) {
            continue;
        }
        const QString dir = procRoot + QLatin1Char('/') + entry;
        if (namesHost(nulSeparated(readBounded(dir + QStringLiteral("/cmdline"))), host) &&
            parentOf(dir) != skipParent) {
            newest = pid;
        }
    }
    return newest;
}

TerminalJumper::Target clientTarget(qint32 pid, const TerminalJumper::Target& remote,
                                    const QString& procRoot) {
    const QString dir = procRoot + QLatin1Char('/') + QString::number(pid);
    ProcessContext context;
    context.agentPID = pid;
    QMap<QString, QString> environment;
    for (const QString& entry : nulSeparated(readBounded(dir + QStringLiteral("/environ")))) {
        const qsizetype equals = entry.indexOf(QLatin1Char('='));
        if (equals > 0) {
            environment.insert(entry.left(equals), entry.mid(equals + 1));
        }
    }
    if (const QString tty = QFileInfo(dir + QStringLiteral("/fd/0")).symLinkTarget();
        tty.startsWith(QLatin1StringView("/dev/pts/")) || tty.startsWith(QLatin1StringView("/dev/tty"))) {
        context.tty = tty;
    }
    if (const auto pane = environment.constFind(QStringLiteral("TMUX_PANE"));
        pane != environment.constEnd()) {
        context.tmuxPane = *pane;
    }
    if (const auto term = environment.constFind(QStringLiteral("TERM_PROGRAM"));
        term != environment.constEnd()) {
        context.termProgram = *term;
    }
    context.environment = std::move(environment);
    TerminalJumper::Target local{
        remote.agent, remote.sessionID, remote.cwd, context, TerminalJumper::appID(context), QString()};
    return local;
}

std::optional<QStringList> tmuxArguments(const RemoteHost& host, const ProcessContext& context) {
    std::optional<QString> pane = context.tmuxPane;
    if (!pane || pane->isEmpty()) {
        pane = context.value(QStringLiteral("TMUX_PANE"));
    }
    if (!pane || pane->isEmpty()) {
        return std::nullopt;
    }
    QString command = Ssh::quote(context.tmuxBinary.value_or(QStringLiteral("tmux")));
    if (const auto tmux = context.value(QStringLiteral("TMUX"))) {
        if (const auto socket = TerminalDrivers::tmuxSocket(*tmux)) {
            command += QStringLiteral(" -S ") + Ssh::quote(*socket);
        }
    }
    const QString target = Ssh::quote(*pane);
    command +=
        QStringLiteral(" select-window -t ") + target + QStringLiteral(" ';' select-pane -t ") + target;
    return Ssh::arguments(host, {QStringLiteral("-n"), QStringLiteral("-T")}) << command;
}

QString jumpAndWait(const TerminalJumper::Target& target, const RemoteHost& host,
                    const TerminalDrivers::Tools& tools, const TerminalJumper::Activate& activate) {
    std::optional<QString> local;
    if (const auto client =
            findClient(host, static_cast<qint32>(QCoreApplication::applicationPid()), tools.procRoot)) {
        const QString reached =
            TerminalJumper::jumpAndWait(clientTarget(*client, target, tools.procRoot), tools, activate);
        if (reached != QLatin1StringView("none")) {
            local = QStringLiteral("remote-") + reached;
        }
    }
    bool paneSelected = false;
    if (const auto arguments = tmuxArguments(host, target.context)) {
        const auto ssh = TerminalDrivers::findTool(QStringLiteral("ssh"), tools);
        paneSelected = ssh && ProcessRunner::run(*ssh, *arguments, tools.timeoutSeconds).exitStatus == 0;
    }
    if (local) {
        return *local;
    }
    if (paneSelected) {
        return QStringLiteral("remote-pane");
    }
    return activate && activate(target.appID, target) ? QStringLiteral("activated") : QStringLiteral("none");
}

void jump(const AgentSession& session, const RemoteHost& host, TerminalJumper::Done done) {
    TerminalDrivers::Tools tools = TerminalDrivers::Tools::system();
    tools.konsole = std::make_shared<KonsoleDBusFocus>();
    auto windows = std::make_shared<X11WindowFocus>();
    tools.windows = windows;
    // Activation touches the window system from the jump's own thread, as the local jump's drivers do.
    remoteJumpQueue().async([target = TerminalJumper::target(session), host, tools, done = std::move(done),
                             activate = TerminalJumper::windowActivation(windows)] {
        const QString outcome = jumpAndWait(target, host, tools, activate);
        postToMain([done, outcome] {
            if (done) {
                done(outcome);
            }
        });
    });
}

} // namespace mirrowisp::RemoteJump
