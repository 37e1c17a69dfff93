// "Try it": the sample request waits like a real one, leaves with its session however it is
// answered, the guide sees that it was, and the log tells it apart from an agent's requests.
#include "FrontFixture.h"
#include "agents/DecisionLog.h"
#include "agents/DecisionLogReader.h"
#include "front/SettingsAgentList.h"
#include "front/SetupGuideModel.h"

#include <gtest/gtest.h>
#include <memory>

using namespace mirrowisp;
using mirrowisp::test::text;

namespace {

using Answer = void (*)(AgentStore&, PendingDecision&, AgentSession&);

struct AnswerCase {
    const char* name;
    Answer answer;
    const char* outcome; // as the log records it
};

void PrintTo(const AnswerCase& c, std::ostream* os) {
    *os << c.name;
}

class SampleRequest : public testing::TestWithParam<AnswerCase>, public test::FrontFixture {};

const AnswerCase answers[] = {
    {"allow", [](AgentStore& s, PendingDecision& d, AgentSession& session) { s.allow(d, session, false); },
     "allowed"},
    {"always", [](AgentStore& s, PendingDecision& d, AgentSession& session) { s.allow(d, session, true); },
     "allowed"},
    {"deny", [](AgentStore& s, PendingDecision& d, AgentSession& session) { s.deny(d, session); }, "denied"},
    {"terminal", [](AgentStore& s, PendingDecision& d, AgentSession& session) { s.handBack(d, session); },
     "terminal"},
    {"hide", [](AgentStore& s, PendingDecision&, AgentSession& session) { s.dismiss(session.id()); },
     "stale"},
};

} // namespace

TEST_P(SampleRequest, LeavesWithItsSessionOnceAnsweredAndTheGuideSeesIt) {
    start();
    SettingsAgentList agents(services());
    SetupGuideModel guide(services(), agents);
    AgentStore& store = model->agents();
    DecisionLog log(home.supportDir());
    store.setDecisionLog(&log);

    guide.tryIt();
    guide.tryIt(); // one at a time
    ASSERT_EQ(guide.sampleState(), text("waiting"));
    ASSERT_EQ(store.visibleSessions().size(), 1U);
    const auto [decision, session] = store.findDecision(guide.sampleID());
    ASSERT_NE(decision, nullptr);
    EXPECT_TRUE(session->needsUser());

    GetParam().answer(store, *decision, *session);
    EXPECT_TRUE(test::waitUntil([&] { return store.sessions().empty(); }, 2000)) << "the sample stayed";
    EXPECT_TRUE(test::waitUntil([&] { return guide.sampleState() == u"answered"; }, 2000));

    log.flush();
    QList<DecisionRecord> records;
    DecisionLogReader::read(home.supportDir(), {}, [&](const DecisionRecord& record, QByteArrayView) {
        records.append(record);
        return true;
    });
    ASSERT_EQ(records.size(), 1);
    EXPECT_EQ(records.first().route, DecisionRoute::setupGuide);
    EXPECT_EQ(DecisionNames::outcome(records.first().outcome), text(GetParam().outcome));
    store.setDecisionLog(nullptr);
}

INSTANTIATE_TEST_SUITE_P(EveryRoute, SampleRequest, testing::ValuesIn(answers));

TEST(SetupGuide, FinishingRecordsTheGuideAsDone) {
    test::FrontFixture front;
    front.start();
    SettingsAgentList agents(front.services());
    SetupGuideModel guide(front.services(), agents);
    guide.finish();
    front.defaults->flush();
    EXPECT_EQ(test::readJsonObject(front.path).value(SetupGuideModel::completedKey), true);
}
