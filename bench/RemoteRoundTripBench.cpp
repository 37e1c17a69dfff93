// A hook's round trip through a remote host's SSH forward (an OpenSSH server on loopback standing in
// for the host) beside the same round trip on the local socket, both answered by the same handler.
#include "BenchSocket.h"
#include "BenchSupport.h"
#include "bridge/BridgeProtocol.h"
#include "bridge/BridgeServer.h"
#include "remote/RemoteLinks.h"
#include "support/SshServer.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTimer>
#include <cstdio>
#include <thread>

using namespace mirrowisp;
using namespace mirrowisp::bench;

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QTemporaryDir support;
    qputenv("MIRROWISP_SUPPORT_DIR", QFile::encodeName(support.path()));
    test::SshServer server;
    if (!server.start()) {
        std::fprintf(stderr, "no ssh server: %s\n", qPrintable(server.error()));
        return 1;
    }
    qputenv("PATH", server.path());
    QDir().mkpath(server.remoteHome() + QStringLiteral("/.mirrowisp"));

    const auto answer = [](const std::shared_ptr<BridgeConnection>& connection) { connection->reply(); };
    BridgeServer local(answer);
    if (local.start()) {
        std::fprintf(stderr, "the local socket did not open\n");
        return 1;
    }
    RemoteLinks links(answer);
    links.setHosts({RemoteHost{test::SshServer::host(), std::nullopt, {}, server.remoteHome(), {}}});

    BridgeRequest request;
    request.id = QStringLiteral("bench");
    request.payload = R"({"hook_event_name":"PreToolUse","session_id":"b","tool_name":"Bash"})";
    request.expectsReply = true;
    const QByteArray line = BridgeProtocol::encodeRequest(request) + '\n';
    const QByteArray localPath = QFile::encodeName(local.socketPath());
    const QByteArray remotePath =
        QFile::encodeName(server.remoteHome() + QStringLiteral("/.mirrowisp/bridge.sock"));

    int status = 0;
    std::thread measure;
    QObject::connect(&links, &RemoteLinks::stateChanged, &app, [&] {
        if (measure.joinable() ||
            links.link(test::SshServer::host())->state() != RemoteLinkState::connected) {
            return;
        }
        // The handler runs on this thread's event loop, so the clients run beside it.
        measure = std::thread([&] {
            const int runs = 300;
            bool ok = true;
            const double near = medianMs(runs, [&] { ok = roundTrip(localPath, line) && ok; });
            const double far = medianMs(runs, [&] { ok = roundTrip(remotePath, line) && ok; });
            std::printf("Hook round trip, median of %d (ms)\n", runs);
            std::printf("  local socket          %8.3f\n", near);
            std::printf("  through the forward   %8.3f\n", far);
            std::printf("  added by the forward  %8.3f   target: under 2 ms%s\n", far - near,
                        ok ? "" : "   (some round trips failed)");
            status = ok ? 0 : 1;
            QMetaObject::invokeMethod(&app, &QCoreApplication::quit, Qt::QueuedConnection);
        });
    });
    QTimer::singleShot(30000, &app, [&] {
        if (!measure.joinable()) {
            std::fprintf(
                stderr, "the forward did not come up: %s\n",
                qPrintable(links.state(test::SshServer::host())[QStringLiteral("reason")].toString()));
            status = 1;
            QCoreApplication::quit();
        }
    });
    app.exec();
    if (measure.joinable()) {
        measure.join();
    }
    return status;
}
