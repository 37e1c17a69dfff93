// The request line the tool sends, where it sends it, and how it keeps out of the way without an app.

#include "ToolHarness.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QSet>
#include <gtest/gtest.h>
#include <sys/un.h>

using namespace mirrowisp::test;
using namespace Qt::StringLiterals;

namespace {

const QByteArray kPreToolUse = R"({"hook_event_name":"PreToolUse","session_id":"s1"})";

} // namespace

TEST(ToolRequest, SendsOneCompactLineWithTheEventBytesInBase64) {
    ToolSandbox box;
    FakeApp app(box.socketPath());
    // Pretty-printed, non-ASCII and ending in a newline: none of it may be touched on the way. Nor may
    // 3 MiB of every byte value, no JSON at all.
    QByteArray binary(3 * 1024 * 1024, '\0');
    for (qsizetype i = 0; i < binary.size(); ++i) {
        binary[i] = static_cast<char>(i * 7919 % 256);
    }
    const QByteArray pretty = "{\n  \"hook_event_name\": \"PreToolUse\",\n  \"session_id\": \"s1\",\n"
                              "  \"tool_input\": {\"command\": \"echo caf\xc3\xa9 \\u2603\"}\n}\n";
    for (const QByteArray& input : {pretty, binary}) {
        auto tool = box.start(claudeHook, input);
        auto request = app.next();
        ASSERT_TRUE(request);
        // The app still holds the connection: an event nobody answers must not keep the agent waiting.
        expectClean(tool->finish(5000));

        EXPECT_TRUE(request->line.startsWith("{\"id\":\""));
        EXPECT_EQ(request->json.keys(), (QStringList{u"agent"_s, u"context"_s, u"expectsReply"_s, u"id"_s,
                                                     u"payload"_s, u"startedAt"_s}));
        // The tool's start by the wall clock, for the app's round-trip figures.
        const double started = request->json.value(u"startedAt").toDouble();
        EXPECT_NEAR(started, QDateTime::currentMSecsSinceEpoch() / 1000.0, 30.0);
        EXPECT_EQ(request->json.value(u"agent").toString(), u"claude"_s);
        EXPECT_EQ(request->json.value(u"expectsReply"), QJsonValue(false));
        EXPECT_TRUE(request->json.value(u"context").isObject());
        EXPECT_TRUE(request->payload == input);
        EXPECT_EQ(request->readToEnd(), QByteArray()) << "exactly one line, then the end";
    }
}

TEST(ToolRequest, IdsStayUniqueAcrossConcurrentRuns) {
    ToolSandbox box;
    FakeApp app(box.socketPath());
    std::vector<std::unique_ptr<Child>> tools;
    for (int i = 0; i < 12; ++i) {
        tools.push_back(box.start(claudeHook, kPreToolUse));
    }
    QSet<QString> ids;
    for (size_t i = 0; i < tools.size(); ++i) {
        auto request = app.next();
        ASSERT_TRUE(request);
        ids.insert(request->json.value(u"id").toString());
    }
    for (auto& tool : tools) {
        expectClean(tool->finish());
    }
    EXPECT_EQ(ids.size(), 12);
    EXPECT_FALSE(ids.contains(QString()));
}

TEST(ToolRequest, IgnoresMissingOrUnknownAgents) {
    ToolSandbox box;
    FakeApp app(box.socketPath());
    expectClean(box.run({}, permissionRequest));
    expectClean(box.run({"--agent", "vim"}, permissionRequest));
    expectClean(box.run({"--agent"}, permissionRequest));
    EXPECT_FALSE(app.hasPending());
}

TEST(ToolSocket, EmptyOrUnsetSupportDirectoryMeansTheOneInHome) {
    ToolSandbox box;
    QDir().mkpath(QString::fromUtf8(box.path() + "/home/.mirrowisp"));
    FakeApp inHome(box.path() + "/home/.mirrowisp/bridge.sock");
    FakeApp inSupport(box.socketPath());
    for (const QByteArray& value : {QByteArray(""), QByteArray()}) {
        auto tool = box.start(claudeHook, kPreToolUse, {{"MIRROWISP_SUPPORT_DIR", value}});
        EXPECT_TRUE(inHome.next());
        expectClean(tool->finish());
    }
    EXPECT_FALSE(inSupport.hasPending());
    // A trailing slash names the same folder.
    auto tool = box.start(claudeHook, kPreToolUse, {{"MIRROWISP_SUPPORT_DIR", box.supportDir() + "//"}});
    EXPECT_TRUE(inSupport.next());
    expectClean(tool->finish());
}

TEST(ToolSocket, PathTooLongForAnAddressFailsQuietlyInsteadOfCuttingIt) {
    ToolSandbox box;
    constexpr qsizetype kField = sizeof(sockaddr_un{}.sun_path);
    const QByteArray tail = "/bridge.sock";
    const QByteArray dir = box.path() + "/" + QByteArray(kField - tail.size() - box.path().size() - 1, 'd');
    ASSERT_EQ(dir.size() + tail.size(), kField); // one byte short of room for the terminator
    ASSERT_TRUE(QDir().mkpath(QString::fromUtf8(dir)));
    FakeApp atCutPath((dir + tail).left(kField - 1));

    expectClean(box.run(claudeHook, permissionRequest, {{"MIRROWISP_SUPPORT_DIR", dir}}));
    EXPECT_FALSE(atCutPath.hasPending());
}

TEST(ToolSocket, AnAppThatHangsUpMidRequestDoesNotTakeTheToolDown) {
    ToolSandbox box;
    FakeApp app(box.socketPath());
    // Far more than a socket buffer holds, so the tool is still writing when the app stops reading.
    const QByteArray big =
        R"({"hook_event_name":"PermissionRequest","pad":")" + QByteArray(4 << 20, 'p') + "\"}";
    auto tool = box.start(claudeHook, big);
    const auto refused = app.refuseNext();
    EXPECT_TRUE(refused);
    expectClean(tool->finish());
}

TEST(ToolSocket, WithoutAppOrWithAStaleSocketExitsAtOnceAndSilently) {
    ToolSandbox box;
    // Nothing at the path: the app isn't running.
    Outcome run = box.run(claudeHook, permissionRequest);
    expectClean(run);
    EXPECT_LT(run.elapsedMs, 2000);

    // A socket file nobody listens on, as a crashed app leaves behind.
    { FakeApp crashed(box.socketPath()); }
    ASSERT_TRUE(QFileInfo::exists(QString::fromUtf8(box.socketPath())));
    run = box.run(claudeHook, permissionRequest);
    expectClean(run);
    EXPECT_LT(run.elapsedMs, 2000);
}
