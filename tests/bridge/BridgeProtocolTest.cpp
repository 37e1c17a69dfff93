#include "bridge/BridgeProtocol.h"

#include "support/TestSupport.h"

#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <gtest/gtest.h>

using namespace mirrowisp;
using namespace Qt::StringLiterals;

namespace {

// A well-formed request with the payload {"a":1}, to be varied by each case.
const char* const validLine =
    R"({"id":"r1","agent":"codex","payload":"eyJhIjoxfQ==","expectsReply":true,"context":{}})";

BridgeRequest fullRequest() {
    BridgeRequest request;
    request.id = u"7f3a-1"_s;
    request.agent = AgentKind::copilot;
    request.payload =
        QByteArray("{\"hook_event_name\":\"PermissionRequest\",\"text\":\"line\\nnext \xc3\xa9\"}\n");
    request.expectsReply = true;
    request.context.tty = u"/dev/pts/4"_s;
    request.context.agentPID = 2147483647;
    request.context.termProgram = u"kitty"_s;
    request.context.tmuxPane = u"%3"_s;
    request.context.hostSessionID = u"host 1"_s;
    request.context.entrypoint = u"cli"_s;
    request.context.environment =
        QMap<QString, QString>{{u"TMUX"_s, u"/tmp/t,1,0"_s}, {u"KITTY_WINDOW_ID"_s, u"2"_s}};
    request.context.tmuxBinary = u"/usr/bin/tmux"_s;
    return request;
}

} // namespace

TEST(BridgeRequestDecoding, RoundTripsEveryMember) {
    const BridgeRequest request = fullRequest();
    const auto decoded = BridgeProtocol::decodeRequest(BridgeProtocol::encodeRequest(request));
    ASSERT_TRUE(decoded.has_value());
    EXPECT_EQ(*decoded, request);
    EXPECT_EQ(decoded->context.value(u"TMUX"_s), u"/tmp/t,1,0"_s);
    EXPECT_FALSE(decoded->context.value(u"WEZTERM_PANE"_s).has_value());
    EXPECT_EQ(qHash(decoded->context), qHash(request.context));
}

TEST(BridgeRequestDecoding, AcceptsEmptyContextUnknownKeysAndEscapedSlashes) {
    const auto minimal = BridgeProtocol::decodeRequest(validLine);
    ASSERT_TRUE(minimal.has_value());
    EXPECT_EQ(minimal->agent, AgentKind::codex);
    EXPECT_EQ(minimal->payload, QByteArray(R"({"a":1})"));
    EXPECT_EQ(minimal->context, ProcessContext{});
    EXPECT_FALSE(minimal->context.value(u"TMUX"_s).has_value());

    const auto extra = BridgeProtocol::decodeRequest(
        R"( {"future":[1,{"x":null}],"id":"r","agent":"amp","payload":"Pz8\/","expectsReply":false,)"
        R"("context":{"tty":null,"newKey":{"deep":[true,false]},"agentPID":42.0}} )");
    ASSERT_TRUE(extra.has_value());
    EXPECT_EQ(extra->payload, QByteArray("???"));
    EXPECT_FALSE(extra->context.tty.has_value());
    EXPECT_EQ(extra->context.agentPID, 42);
}

TEST(BridgeRequestDecoding, DropsMalformedLines) {
    const char* const bad[] = {
        "",
        " ",
        "null",
        "[]",
        R"(["id"])",
        "{",
        R"({"id":"r1","agent":"codex","payload":"eyJhIjoxfQ==","expectsReply":true})",    // no context
        R"({"agent":"codex","payload":"eyJhIjoxfQ==","expectsReply":true,"context":{}})", // no id
        R"({"id":"r1","payload":"eyJhIjoxfQ==","expectsReply":true,"context":{}})",       // no agent
        R"({"id":"r1","agent":"codex","expectsReply":true,"context":{}})",                // no payload
        R"({"id":"r1","agent":"codex","payload":"eyJhIjoxfQ==","context":{}})",           // no expectsReply
        R"({"id":"r1","agent":"vim","payload":"eyJhIjoxfQ==","expectsReply":true,"context":{}})",
        R"({"id":"r1","agent":"Codex","payload":"eyJhIjoxfQ==","expectsReply":true,"context":{}})",
        R"({"id":1,"agent":"codex","payload":"eyJhIjoxfQ==","expectsReply":true,"context":{}})",
        R"({"id":null,"agent":"codex","payload":"eyJhIjoxfQ==","expectsReply":true,"context":{}})",
        R"({"id":"r1","agent":"codex","payload":"eyJhIjoxfQ==","expectsReply":"yes","context":{}})",
        R"({"id":"r1","agent":"codex","payload":"eyJhIjoxfQ==","expectsReply":true,"context":[]})",
        R"({"id":"r1","agent":"codex","payload":"eyJhIjoxfQ==","expectsReply":true,"context":null})",
        R"({"id":"r1","agent":"codex","payload":"eyJhIjoxfQ==","expectsReply":true,"context":{}} x)",
        R"({"id":"r1","agent":"codex","payload":"eyJhIjoxfQ==","expectsReply":true,"context":{},})",
        R"({"id":"r1" "agent":"codex","payload":"eyJhIjoxfQ==","expectsReply":true,"context":{}})",
        R"({'id':'r1'})",
    };
    for (const char* text : bad) {
        EXPECT_FALSE(BridgeProtocol::decodeRequest(text).has_value()) << text;
    }
}

TEST(BridgeRequestDecoding, RejectsBadPayloadsContextsAndText) {
    // A request for Claude with the given raw JSON members.
    const auto request = [](const QByteArray& id, const QByteArray& payload, const QByteArray& context) {
        return R"({"id":)" + id + R"(,"agent":"claude","payload":)" + payload +
               R"(,"expectsReply":true,"context":)" + context + "}";
    };
    QList<QByteArray> bad;
    // Payloads that are not strict Base64.
    for (const char* payload :
         {"eyJhIjoxfQ", "eyJh Ijox", "eyJhIjox\\nfQ==", "eyJh*jox", "eyJhIj=x", "e===", "{}"}) {
        bad << request(R"("r")", '"' + QByteArray(payload) + '"', "{}");
    }
    // Context members of the wrong type.
    for (const char* context :
         {R"({"tty":5})", R"({"agentPID":"12"})", R"({"agentPID":1.5})", R"({"agentPID":2147483648})",
          R"({"agentPID":-2147483649})", R"({"agentPID":1e999})", R"({"environment":{"A":1}})",
          R"({"environment":{"A":null}})", R"({"environment":["A"]})", R"({"termProgram":false})"}) {
        bad << request(R"("r")", R"("e30=")", context);
    }
    // Broken text: a truncated sequence, bytes never valid in UTF-8, an overlong slash, an encoded
    // surrogate, lone or mismatched surrogate escapes, a raw control character, bad escapes.
    for (const QByteArray& text :
         {QByteArray("caf\xc3"), QByteArray("\xff\xfe"), QByteArray("\xc0\xaf"), QByteArray("\xed\xa0\x80"),
          QByteArray("\\ud83d"), QByteArray("\\ude00"), QByteArray("\\ud83d\\u0041"), QByteArray("tab\there"),
          QByteArray("\\x41"), QByteArray("\\u12")}) {
        bad << request('"' + text + '"', R"("e30=")", "{}");
    }
    // Nesting deep enough to overflow a naive recursive reader must be refused, not crash.
    bad << request(R"("r","x":)" + QByteArray(200'000, '[') + QByteArray(200'000, ']'), R"("e30=")", "{}");
    for (const QByteArray& text : bad) {
        EXPECT_FALSE(BridgeProtocol::decodeRequest(text).has_value()) << text.left(120).toStdString();
    }

    // Beside them, what is fine: empty Base64 (empty bytes: what they mean is the event handler's
    // business), the lowest process id, escaped and raw non-ASCII text, and modest nesting.
    const auto empty = BridgeProtocol::decodeRequest(request(R"("r")", R"("")", "{}"));
    ASSERT_TRUE(empty.has_value());
    EXPECT_TRUE(empty->payload.isEmpty());
    const auto lowest =
        BridgeProtocol::decodeRequest(request(R"("r")", R"("e30=")", R"({"agentPID":-2147483648})"));
    ASSERT_TRUE(lowest.has_value());
    EXPECT_EQ(lowest->context.agentPID, -2147483647 - 1);
    EXPECT_TRUE(BridgeProtocol::decodeRequest(request("\"caf\xc3\xa9 \\ud83d\\ude00\"", R"("e30=")", "{}")));
    EXPECT_EQ(BridgeProtocol::decodeRequest(request(R"("\u00e9\ud83d\ude00")", R"("e30=")", "{}"))->id,
              QString::fromUtf8("\xc3\xa9\xf0\x9f\x98\x80"));
    EXPECT_TRUE(BridgeProtocol::decodeRequest(
        request(R"("r","x":)" + QByteArray(100, '[') + QByteArray(100, ']'), R"("e30=")", "{}")));
}

TEST(SupportDirectory, FollowsTheEnvironmentAtEachUse) {
    test::TemporaryHome home;
    EXPECT_EQ(BridgeProtocol::supportDirectory(), home.supportDir());
    EXPECT_EQ(BridgeProtocol::socketPath(), home.supportDir() + u"/bridge.sock"_s);
    qputenv("MIRROWISP_SUPPORT_DIR", "");
    EXPECT_EQ(BridgeProtocol::supportDirectory(), QDir::homePath() + u"/.mirrowisp"_s);
    EXPECT_EQ(BridgeProtocol::supportDirectory(), home.path() + u"/.mirrowisp"_s);
    qunsetenv("MIRROWISP_SUPPORT_DIR");
    EXPECT_EQ(BridgeProtocol::supportDirectory(), home.path() + u"/.mirrowisp"_s);
}
