#pragma once

// Runs the real hook tool as a child process against a real Unix socket listener standing in for the
// app. Every wait has a deadline; nothing sleeps.

#include "support/SocketClient.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QTemporaryDir>
#include <map>
#include <memory>
#include <ostream>
#include <sys/types.h>

// Readable failure messages for Qt's strings.
inline void PrintTo(const QString& s, std::ostream* os) {
    *os << '"' << s.toStdString() << '"';
}
inline void PrintTo(const QByteArray& s, std::ostream* os) {
    *os << '"' << s.toStdString() << '"';
}

namespace mirrowisp::test {

// A null value leaves the variable out; an empty one sets it empty.
using Environment = std::map<QByteArray, QByteArray>;

struct Outcome {
    bool finished = false; // false: still running at the deadline, and killed
    int exitCode = -1;
    QByteArray out; // standard output and error together
    qint64 elapsedMs = 0;
};

// A child with pipes for its standard streams, as an agent starts a hook. `input` is written to its
// standard input, which is then closed.
class Child {
public:
    Child(const QList<QByteArray>& argv, const Environment& env, const QByteArray& input);
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    // Collects the output until the child exits, for at most `timeoutMs`.
    Outcome finish(int timeoutMs = 10000);

private:
    pid_t pid_ = -1;
    int out_ = -1;
    QElapsedTimer timer_;
};

// One request as the app reads it; the connection stays open until `reply` or destruction.
class Request {
public:
    explicit Request(int fd) : socket_(fd) {}

    QByteArray line;    // up to its newline
    QByteArray behind;  // what came after the newline
    QJsonObject json;   // empty when the line isn't a JSON object
    QByteArray payload; // `payload` decoded from Base64
    QJsonObject context() const { return json.value(u"context").toObject(); }
    QJsonObject event() const;
    bool expectsReply() const { return json.value(u"expectsReply").toBool(); }

    // Writes `text` and closes the connection, as the app answers.
    void reply(const QByteArray& text) {
        socket_.send(text);
        socket_.close();
    }
    // Whether the tool closed or half-closed its side within `ms`.
    bool peerClosedWithin(int ms) { return socket_.peerClosed(ms); }
    // Everything the tool sends after its line, up to its end of file; nothing when that never comes.
    std::optional<QByteArray> readToEnd() {
        const auto rest = socket_.readToEnd();
        return rest ? std::optional(behind + *rest) : std::nullopt;
    }

private:
    friend class FakeApp;
    SocketClient socket_;
};

class FakeApp {
public:
    explicit FakeApp(const QByteArray& socketPath);
    ~FakeApp();
    FakeApp(const FakeApp&) = delete;
    FakeApp& operator=(const FakeApp&) = delete;

    // Accepts the next connection and reads its first line; null when none came in time.
    std::unique_ptr<Request> next(int timeoutMs = 10000);
    // Accepts the next connection and stops reading it, so the tool's writes fail as they do when the
    // app quits in the middle of a request.
    std::unique_ptr<Request> refuseNext(int timeoutMs = 10000);
    // Whether a connection waits to be accepted right now.
    bool hasPending();

private:
    int fd_ = -1;
};

// A temporary home and support folder, and the plain environment a hook gets there.
class ToolSandbox {
public:
    ToolSandbox();
    QByteArray path() const { return dir_.path().toUtf8(); }
    QByteArray supportDir() const { return path() + "/support"; }
    QByteArray socketPath() const { return supportDir() + "/bridge.sock"; }

    Environment env;
    std::unique_ptr<Child> start(const QList<QByteArray>& args, const QByteArray& input,
                                 const Environment& extra = {}) const;
    Outcome run(const QList<QByteArray>& args, const QByteArray& input, const Environment& extra = {}) const;

private:
    QTemporaryDir dir_;
};

QByteArray toolPath();

// The tool's arguments in a Claude Code hook, and an event that waits for the app's answer.
inline const QList<QByteArray> claudeHook = {"--agent", "claude"};
inline const QByteArray permissionRequest =
    R"({"hook_event_name":"PermissionRequest","session_id":"s1","tool_name":"Bash"})";

// Checks that the run ended by itself with status 0, having printed exactly `out`.
void expectClean(const Outcome& run, const QByteArray& out = {});

} // namespace mirrowisp::test
