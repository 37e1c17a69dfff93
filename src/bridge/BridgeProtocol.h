#pragma once

#include "base/AgentKind.h"

#include <QByteArray>
#include <QMap>
#include <QString>
#include <chrono>
#include <optional>

namespace mirrowisp {

// What the hook tool knows of the agent's process and terminal. Every member is optional.
struct ProcessContext {
    std::optional<QString> tty;
    std::optional<qint32> agentPID;
    std::optional<QString> termProgram;
    std::optional<QString> terminalBundleID;
    std::optional<QString> tmuxPane;
    std::optional<QString> ghosttyResourcesDir;
    std::optional<QString> hostSessionID;
    std::optional<QString> entrypoint;
    std::optional<QMap<QString, QString>> environment;
    std::optional<QString> tmuxBinary;

    // The value of an environment variable the tool passed along, if any.
    std::optional<QString> value(const QString& name) const;

    bool operator==(const ProcessContext&) const = default;
};

size_t qHash(const ProcessContext& context, size_t seed = 0);

// One request from the hook tool: one JSON line on one connection.
struct BridgeRequest {
    QString id;
    AgentKind agent = AgentKind::claude;
    QByteArray payload; // the agent's event, as the bytes it wrote
    bool expectsReply = false;
    ProcessContext context;
    // When the tool started, in seconds since the epoch by its clock; older tools leave it out.
    std::optional<double> startedAt = std::nullopt;
    // The remote host whose forwarded socket carried the request; empty for this machine. The
    // server stamps it from the socket that accepted the client: nothing the client sends sets it.
    QString host = {};

    bool operator==(const BridgeRequest&) const = default;
};

// The app's answer. Without `stdoutText` it is the empty reply: "no decision, carry on".
struct BridgeResponse {
    QString id;
    std::optional<QString> stdoutText;
};

// How long a client may take: silent while its request line arrives, for the whole line, and to take
// its whole reply from the moment the app answers. Each client has its own deadlines.
struct BridgeTimeouts {
    std::chrono::milliseconds read{2000};
    std::chrono::milliseconds wholeLine{30000};
    std::chrono::milliseconds reply{5000};
};

namespace BridgeProtocol {

inline constexpr qsizetype chunkBytes = 65'536;
inline constexpr qsizetype maxLineBytes = 33'554'432;
// Bytes the clients still being read may hold together; past it the client that reads on is dropped.
inline constexpr qsizetype maxPendingBytes = 2 * maxLineBytes;
// Clients read at once; past it new ones wait in the listen backlog.
inline constexpr int maxReaders = 512;

// MIRROWISP_SUPPORT_DIR when set and not empty, else ~/.mirrowisp. Read afresh at every use.
QString supportDirectory();
QString socketPath();

// Decodes one request line (without its newline). Anything malformed, any missing member, an
// unknown agent or a payload that is not Base64 gives nothing.
std::optional<BridgeRequest> decodeRequest(QByteArrayView line);
// Compact JSON without the newline, as the hook tool writes it.
QByteArray encodeRequest(const BridgeRequest& request);
// Compact JSON without the newline; the "stdout" key is left out when there is no text.
std::optional<QByteArray> encodeResponse(const BridgeResponse& response);

} // namespace BridgeProtocol
} // namespace mirrowisp
