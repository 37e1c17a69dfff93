#include "bridge/BridgeProtocol.h"

#include "support/TestSupport.h"

#include <QDir>
#include <gtest/gtest.h>

using namespace mirrowisp;

namespace {

QByteArray line(const char* json) {
    return QByteArray(json);
}

// A well-formed request with the payload {"a":1}, to be varied by each case.
const char* const validLine =
    R"({"id":"r1","agent":"codex","payload":"eyJhIjoxfQ==","expectsReply":true,"context":{}})";

BridgeRequest fullRequest() {
    BridgeRequest request;
    request.id = QStringLiteral("7f3a-1");
    request.agent = AgentKind::copilot;
    request.payload =
        QByteArray("{\"hook_event_name\":\"PermissionRequest\",\"text\":\"line\\nnext \xc3\xa9\"}\n");
    request.expectsReply = true;
    request.context.tty = QStringLiteral("/dev/pts/4");
    request.context.agentPID = 2147483647;
    request.context.termProgram = QStringLiteral("kitty");
    request.context.tmuxPane = QStringLiteral("%3");
    request.context.hostSessionID = QStringLiteral("host 1");
    request.context.entrypoint = QStringLiteral("cli");
    request.context.environment =
        QMap<QString, QString>{{QStringLiteral("TMUX"), QStringLiteral("/tmp/t,1,0")},
                               {QStringLiteral("KITTY_WINDOW_ID"), QStringLiteral("2")}};
    request.context.tmuxBinary = QStringLiteral("/usr/bin/tmux");
    return request;
}

} // namespace

TEST(BridgeRequestDecoding, RoundTripsEveryMember) {
    const BridgeRequest request = fullRequest();
    const auto decoded = BridgeProtocol::decodeRequest(BridgeProtocol::encodeRequest(request));
    ASSERT_TRUE(decoded.has_value());
    EXPECT_EQ(*decoded, request);
    EXPECT_EQ(decoded->context.value(QStringLiteral("TMUX")), QStringLiteral("/tmp/t,1,0"));
    EXPECT_FALSE(decoded->context.value(QStringLiteral("WEZTERM_PANE")).has_value());
    EXPECT_EQ(qHash(decoded->context), qHash(request.context));
}

TEST(BridgeRequestDecoding, AcceptsEmptyContextUnknownKeysAndEscapedSlashes) {
    const auto minimal = BridgeProtocol::decodeRequest(line(validLine));
    ASSERT_TRUE(minimal.has_value());
    EXPECT_EQ(minimal->agent, AgentKind::codex);
    EXPECT_EQ(minimal->payload, QByteArray(R"({"a":1})"));
    EXPECT_EQ(minimal->context, ProcessContext{});
    EXPECT_FALSE(minimal->context.value(QStringLiteral("TMUX")).has_value());

    const auto extra = BridgeProtocol::decodeRequest(
        line(R"( {"future":[1,{"x":null}],"id":"r","agent":"amp","payload":"Pz8\/","expectsReply":false,)"
             R"("context":{"tty":null,"newKey":{"deep":[true,false]},"agentPID":42.0}} )"));
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
        EXPECT_FALSE(BridgeProtocol::decodeRequest(line(text)).has_value()) << text;
    }
}

TEST(BridgeRequestDecoding, RejectsPayloadsAndContextMembersOfTheWrongForm) {
    const char* const payloads[] = {"eyJhIjoxfQ", "eyJh Ijox", "eyJhIjox\\nfQ==", "eyJh*jox", "eyJhIj=x",
                                    "e===",       "{}"};
    const char* const contexts[] = {
        R"({"tty":5})",
        R"({"agentPID":"12"})",
        R"({"agentPID":1.5})",
        R"({"agentPID":2147483648})",
        R"({"agentPID":-2147483649})",
        R"({"agentPID":1e999})",
        R"({"environment":{"A":1}})",
        R"({"environment":{"A":null}})",
        R"({"environment":["A"]})",
        R"({"termProgram":false})",
    };
    auto request = [](const QByteArray& payload, const QByteArray& context) {
        return BridgeProtocol::decodeRequest(QByteArray(R"({"id":"r","agent":"claude","payload":")") +
                                             payload + R"(","expectsReply":true,"context":)" + context + "}");
    };
    for (const char* payload : payloads) {
        EXPECT_FALSE(request(payload, "{}").has_value()) << payload;
    }
    for (const char* context : contexts) {
        EXPECT_FALSE(request("e30=", context).has_value()) << context;
    }
    // Empty Base64 is empty bytes: what those bytes mean is the event handler's business.
    ASSERT_TRUE(request("", "{}").has_value());
    EXPECT_TRUE(request("", "{}")->payload.isEmpty());
    EXPECT_EQ(request("e30=", R"({"agentPID":-2147483648})")->context.agentPID, -2147483647 - 1);
}

TEST(BridgeRequestDecoding, RejectsBrokenTextAndSurvivesDeepNesting) {
    const QByteArray prefix = R"({"id":")";
    const QByteArray suffix = R"(","agent":"claude","payload":"e30=","expectsReply":true,"context":{}})";
    EXPECT_TRUE(BridgeProtocol::decodeRequest(prefix + "caf\xc3\xa9 \\ud83d\\ude00" + suffix).has_value());
    EXPECT_EQ(BridgeProtocol::decodeRequest(prefix + "\\u00e9\\ud83d\\ude00" + suffix)->id,
              QString::fromUtf8("\xc3\xa9\xf0\x9f\x98\x80"));
    const QByteArray broken[] = {
        "caf\xc3",        // truncated sequence
        "\xff\xfe",       // never valid in UTF-8
        "\xc0\xaf",       // overlong slash
        "\xed\xa0\x80",   // an encoded surrogate
        "\\ud83d",        // lone high surrogate
        "\\ude00",        // lone low surrogate
        "\\ud83d\\u0041", // high surrogate followed by a non-surrogate
        "tab\there",      // raw control character
        "\\x41",          // unknown escape
        "\\u12",          // short escape
    };
    for (const QByteArray& text : broken) {
        EXPECT_FALSE(BridgeProtocol::decodeRequest(prefix + text + suffix).has_value()) << text.toStdString();
    }

    // Nesting deep enough to overflow a naive recursive reader must be refused, not crash.
    const QByteArray deep =
        QByteArray(R"({"x":)") + QByteArray(200'000, '[') + QByteArray(200'000, ']') + "}";
    EXPECT_FALSE(BridgeProtocol::decodeRequest(deep).has_value());
    const QByteArray shallow =
        QByteArray(R"({"x":)") + QByteArray(100, '[') + QByteArray(100, ']') +
        R"(,"id":"r","agent":"claude","payload":"e30=","expectsReply":true,"context":{}})";
    EXPECT_TRUE(BridgeProtocol::decodeRequest(shallow).has_value());
}

TEST(SupportDirectory, FollowsTheEnvironmentAtEachUse) {
    test::TemporaryHome home;
    EXPECT_EQ(BridgeProtocol::supportDirectory(), home.supportDir());
    EXPECT_EQ(BridgeProtocol::socketPath(), home.supportDir() + QStringLiteral("/bridge.sock"));
    qputenv("MIRROWISP_SUPPORT_DIR", "");
    EXPECT_EQ(BridgeProtocol::supportDirectory(), QDir::homePath() + QStringLiteral("/.mirrowisp"));
    EXPECT_EQ(BridgeProtocol::supportDirectory(), home.path() + QStringLiteral("/.mirrowisp"));
    qunsetenv("MIRROWISP_SUPPORT_DIR");
    EXPECT_EQ(BridgeProtocol::supportDirectory(), home.path() + QStringLiteral("/.mirrowisp"));
}
