// Connect and Disconnect in the agents' rows, against a stand-in Claude Code home: the hooks come and
// go in its settings file, the row says what happened, and a file it cannot read is left as it was.
#include "front/SettingsAgentList.h"

#include "FrontFixture.h"

#include <QSignalSpy>
#include <gtest/gtest.h>

using namespace mirrowisp;
using mirrowisp::test::text;

namespace {

struct ConnectCase {
    const char* name;
    const char* settingsFile; // what ~/.claude/settings.json holds first
    bool connect;
    const char* message; // the row's line afterwards ("" for whatever the error says)
    bool hooked;         // whether our hook is in the file afterwards
    bool markedDisconnected;
};

void PrintTo(const ConnectCase& c, std::ostream* os) {
    *os << c.name;
}

class AgentConnect : public testing::TestWithParam<ConnectCase>, public test::FrontFixture {};

const ConnectCase connectCases[] = {
    {"connect", "{}", true, "Connected.", true, false},
    {"disconnect", nullptr, false, "Disconnected.", false, true},
    {"unreadable", "{ not json", true, "", false, false},
};

QVariantMap rowOf(const SettingsAgentList& list, const char* agent) {
    for (const QVariant& row : list.rows()) {
        if (row.toMap().value(text("agent")) == text(agent)) {
            return row.toMap();
        }
    }
    return {};
}

} // namespace

TEST_P(AgentConnect, TheRowTellsWhatCameOfIt) {
    const ConnectCase& c = GetParam();
    const QString file = home.path() + text("/.claude/settings.json");
    start();
    SettingsAgentList list(services());
    if (c.settingsFile != nullptr) {
        test::writeFile(file, c.settingsFile);
    } else {
        list.setConnected(text("claude"), true); // a connected agent to disconnect
        ASSERT_TRUE(test::waitUntil([&] { return test::readFile(file).contains("mirrowisp-bridge"); }));
    }
    const QByteArray before = test::readFile(file);
    list.refresh();
    ASSERT_TRUE(test::waitUntil([&] { return list.loaded(); }));
    QSignalSpy finished(&list, &SettingsAgentList::connectFinished);

    list.setConnected(text("claude"), c.connect);
    EXPECT_TRUE(rowOf(list, "claude").value(text("working")).toBool());
    ASSERT_TRUE(finished.wait(5000));
    const QString error = finished.first().at(1).toString();
    EXPECT_TRUE(test::waitUntil([&] { return !rowOf(list, "claude").value(text("working")).toBool(); }));
    const QString message = rowOf(list, "claude").value(text("message")).toString();
    if (*c.message != 0) {
        EXPECT_EQ(message, text(c.message));
        EXPECT_TRUE(error.isEmpty());
    } else {
        EXPECT_FALSE(error.isEmpty());
        EXPECT_EQ(message, error) << "the row must show the exact reason";
        EXPECT_EQ(test::readFile(file), before) << "an unreadable file was written";
        EXPECT_EQ(rowOf(list, "claude").value(text("setup")), text("unreadableConfig"));
        EXPECT_EQ(rowOf(list, "claude").value(text("file")), file);
    }
    EXPECT_EQ(test::readFile(file).contains("mirrowisp-bridge"), c.hooked);
    EXPECT_EQ(defaults->boolValue(text("disconnected.claude")).value_or(false), c.markedDisconnected);
    EXPECT_EQ(rowOf(list, "claude").value(text("connected")).toBool(), c.hooked);
}

INSTANTIATE_TEST_SUITE_P(EveryOutcome, AgentConnect, testing::ValuesIn(connectCases));

TEST(AgentConnectName, AnUnknownAgentIsRefusedWithItsName) {
    test::FrontFixture front;
    front.start();
    SettingsAgentList list(front.services());
    QSignalSpy finished(&list, &SettingsAgentList::connectFinished);
    list.setConnected(text("vim"), true);
    ASSERT_EQ(finished.size(), 1);
    EXPECT_EQ(finished.first().at(1).toString(), text("no agent called vim"));
}
