// A tmux jump end to end against a private server with one attached client, beside a bare
// `tmux display-message -p` round trip: the jump makes three such calls and one switch.
#include "base/ProcessRunner.h"
#include "jump/TerminalJumper.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>
#include <vector>

using namespace mirrowisp;

namespace {

ProcessRunner::RunResult tmux(const QString& socket, const QStringList& arguments) {
    return ProcessRunner::run(
        QStringLiteral("tmux"),
        QStringList{QStringLiteral("-S"), socket, QStringLiteral("-f"), QStringLiteral("/dev/null")} +
            arguments,
        10.0);
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QTemporaryDir dir;
    const QString agentSocket = dir.filePath(QStringLiteral("agent.sock"));
    const QString hostSocket = dir.filePath(QStringLiteral("host.sock"));
    tmux(agentSocket, {QStringLiteral("new-session"), QStringLiteral("-d"), QStringLiteral("-s"),
                       QStringLiteral("work"), QStringLiteral("cat")});
    const QString pane =
        tmux(agentSocket, {QStringLiteral("new-window"), QStringLiteral("-d"), QStringLiteral("-P"),
                           QStringLiteral("-F"), QStringLiteral("#{pane_id}"), QStringLiteral("cat")})
            .output.trimmed();
    // The client needs a terminal: a pane of a second server gives it one.
    tmux(hostSocket, {QStringLiteral("new-session"), QStringLiteral("-d"), QStringLiteral("-s"),
                      QStringLiteral("c"), QStringLiteral("env"), QStringLiteral("-u"),
                      QStringLiteral("TMUX"), QStringLiteral("tmux"), QStringLiteral("-S"), agentSocket,
                      QStringLiteral("attach"), QStringLiteral("-t"), QStringLiteral("work")});
    QElapsedTimer wait;
    wait.start();
    while (tmux(agentSocket, {QStringLiteral("list-clients")}).output.trimmed().isEmpty()) {
        if (wait.elapsed() > 10000) {
            std::fprintf(stderr, "no tmux client attached\n");
            return 1;
        }
    }

    TerminalJumper::Target target;
    target.context.tmuxPane = pane;
    target.context.environment =
        QMap<QString, QString>{{QStringLiteral("TMUX"), agentSocket + QStringLiteral(",1,0")}};
    TerminalDrivers::Tools tools = TerminalDrivers::Tools::system();

    constexpr int rounds = 30;
    std::vector<double> jumps;
    std::vector<double> trips;
    bool allReached = true;
    for (int i = 0; i < rounds; ++i) {
        QElapsedTimer timer;
        timer.start();
        allReached = TerminalJumper::jumpAndWait(target, tools, {}) == QStringLiteral("tmux") && allReached;
        jumps.push_back(static_cast<double>(timer.nsecsElapsed()) / 1e6);
        timer.restart();
        tmux(agentSocket,
             {QStringLiteral("display-message"), QStringLiteral("-p"), QStringLiteral("#{pid}")});
        trips.push_back(static_cast<double>(timer.nsecsElapsed()) / 1e6);
    }
    tmux(agentSocket, {QStringLiteral("kill-server")});
    tmux(hostSocket, {QStringLiteral("kill-server")});

    std::printf("tmux jump, median of %d:            %8.2f ms (target under 100 ms)%s\n", rounds,
                median(jumps), allReached ? "" : "  [some jumps failed]");
    std::printf("reference: display-message -p trip: %8.2f ms\n", median(trips));
    return allReached ? 0 : 1;
}
