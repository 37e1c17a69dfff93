#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <optional>

namespace mirrowisp::test {

// What the waiting hook tool would see: the other end of a connection's socket pair.
class ToolEnd {
public:
    explicit ToolEnd(int fd) : fd_(fd) {}
    ~ToolEnd();
    ToolEnd(const ToolEnd&) = delete;
    ToolEnd& operator=(const ToolEnd&) = delete;
    // True while the app has neither answered nor closed.
    bool stillWaiting() const;
    // The reply line, read to end of file; nothing if the app has not answered.
    std::optional<QByteArray> replyLine();
    // The reply line as an object; nothing while the app has not answered.
    std::optional<QJsonObject> reply();
    // The `stdout` text of the reply, or nothing for the empty reply.
    std::optional<QString> printed();

private:
    int fd_;
};

} // namespace mirrowisp::test
