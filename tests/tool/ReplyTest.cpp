// How the tool waits for the app's answer and what it prints.

#include "ToolHarness.h"

#include <gtest/gtest.h>

using namespace mirrowisp::test;

TEST(ToolReply, WaitsWithItsSideOpenAndPrintsStdoutByteForByte) {
    ToolSandbox box;
    FakeApp app(box.socketPath());
    auto tool = box.start(claudeHook, permissionRequest);
    auto request = app.next();
    ASSERT_TRUE(request);
    EXPECT_TRUE(request->expectsReply());
    // The app takes a closed or half-closed side for the tool's death and withdraws the card.
    EXPECT_FALSE(request->peerClosedWithin(300));

    // Escaped slashes, \u escapes with a surrogate pair, raw UTF-8, newlines and tabs inside.
    request->reply(R"({"id":"1","stdout":"{\"a\":\"http:\/\/h\/p\",\"t\":\"caf\u00e9 \ud83d\ude00 )"
                   "\xe2\x9c\x93"
                   R"(\"}\n\tend"})"
                   "\n");
    expectClean(tool->finish(),
                "{\"a\":\"http://h/p\",\"t\":\"caf\xc3\xa9 \xf0\x9f\x98\x80 \xe2\x9c\x93\"}\n\tend");
}

TEST(ToolReply, PrintsNothingWhenTheAnswerHoldsNoDecision) {
    ToolSandbox box;
    FakeApp app(box.socketPath());
    // The empty reply, `stdout` of the wrong type, garbage, and the app closing without a word.
    const QList<QByteArray> replies = {"{\"id\":\"1\"}\n", "{\"id\":\"1\",\"stdout\":42}\n",
                                       "{\"id\":\"1\",\"stdout\":null}\n", "not json\n", ""};
    for (const auto& reply : replies) {
        auto tool = box.start(claudeHook, permissionRequest);
        auto request = app.next();
        ASSERT_TRUE(request);
        request->reply(reply);
        SCOPED_TRACE(reply.constData());
        expectClean(tool->finish());
    }
}
