// The status-line mode: a short line for the user, and the data for the app's usage meters.

#include "ToolHarness.h"

#include <QJsonDocument>
#include <gtest/gtest.h>

using namespace mirrowisp::test;
using namespace Qt::StringLiterals;

namespace {

const QList<QByteArray> kStatusLine = {"--agent", "claude", "--statusline"};

} // namespace

TEST(ToolStatusLine, ShowsModelAndContextAndSendsAStatusLineEventWithoutWaiting) {
    ToolSandbox box;
    FakeApp app(box.socketPath());
    const QByteArray input = R"({"session_id":"s1","model":{"id":"claude-opus-4","display_name":"Opus 4"},)"
                             R"("context_window":{"used_percentage":41.6},"rate_limits":{"limits":[]}})";
    auto tool = box.start(kStatusLine, input);
    auto request = app.next();
    ASSERT_TRUE(request);
    // The app answers status lines with nothing and may keep the connection a while: no waiting for it.
    expectClean(tool->finish(5000), "Opus 4 \xc2\xb7 42% context\n");

    EXPECT_FALSE(request->expectsReply());
    QJsonObject event = request->event();
    EXPECT_EQ(event.take(u"hook_event_name").toString(), u"StatusLine"_s);
    EXPECT_EQ(event, QJsonDocument::fromJson(input).object());

    // Even an empty object gets its name.
    tool = box.start(kStatusLine, "{ }");
    request = app.next();
    ASSERT_TRUE(request);
    tool->finish();
    EXPECT_EQ(request->event(), (QJsonObject{{u"hook_event_name"_s, u"StatusLine"_s}}));
}

TEST(ToolStatusLine, PrintsWhatTheInputHoldsAndPrintsItWithoutTheApp) {
    ToolSandbox box;
    const struct {
        QByteArray input;
        QByteArray shown;
    } cases[] = {
        {R"({"model":"gpt-5","context_window":{"context_window_size":200000,)"
         R"("current_usage":{"input_tokens":50000,"cache_read_input_tokens":30000}}})",
         "gpt-5 \xc2\xb7 40% context\n"},
        {R"({"model":{"id":"claude-sonnet-4"},"exceeds_200k_tokens":true})",
         "claude-sonnet-4 \xc2\xb7 over 200k context\n"},
        {R"({"model":{"display_name":"Two\nLines"}})", "Two Lines\n"},
        {R"({"session_id":"s1"})", ""},
        {"not json", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.input.constData());
        expectClean(box.run(kStatusLine, c.input), c.shown);
    }
}
