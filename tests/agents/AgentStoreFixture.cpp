#include "AgentStoreFixture.h"

#include <sys/socket.h>

using namespace Qt::StringLiterals;

namespace mirrowisp::test {

AgentStoreFixture::AgentStoreFixture() : defaults(home.path() + u"/defaults.json"_s), store(defaults, clock) {
    store.setOnSignal(
        [this](AgentSignal signal, AgentSession& session) { raised.emplace_back(signal, session.id()); });
}

AgentStoreFixture::Sent AgentStoreFixture::sendRaw(AgentKind agent, const QByteArray& payload,
                                                   const ProcessContext& context, bool expectsReply) {
    BridgeRequest request;
    request.id = u"req-%1"_s.arg(nextID++);
    request.agent = agent;
    request.payload = payload;
    request.expectsReply = expectsReply;
    request.context = context;
    request.host = fromHost;
    int fds[2];
    ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds);
    Sent sent{BridgeConnection::make(request, fds[0]), std::make_unique<ToolEnd>(fds[1])};
    lastTool = sent.tool.get();
    store.handle(sent.connection);
    return sent;
}

AgentStoreFixture::Sent AgentStoreFixture::send(AgentKind agent, const QJsonObject& event,
                                                const ProcessContext& context, bool expectsReply) {
    return sendRaw(agent, QJsonDocument(event).toJson(QJsonDocument::Compact), context, expectsReply);
}

void AgentStoreFixture::sendAnswered(AgentKind agent, const QJsonObject& event,
                                     const ProcessContext& context) {
    Sent sent = send(agent, event, context);
    const auto line = sent.tool->replyLine();
    ASSERT_TRUE(line.has_value()) << "the event must be answered at once";
    EXPECT_FALSE(line->contains("stdout"));
}

AgentSession* AgentStoreFixture::session(AgentKind agent, const QString& sessionID) const {
    return store.findSession(AgentSession::makeID(agent, sessionID));
}

int AgentStoreFixture::signalCount(AgentSignal signal) const {
    return static_cast<int>(
        std::count_if(raised.begin(), raised.end(), [&](const auto& r) { return r.first == signal; }));
}

QJsonObject AgentStoreFixture::event(const char* name, const char* sessionID, QJsonObject extra) {
    extra.insert(u"hook_event_name"_s, QLatin1StringView(name));
    extra.insert(u"session_id"_s, QLatin1StringView(sessionID));
    return extra;
}

} // namespace mirrowisp::test
