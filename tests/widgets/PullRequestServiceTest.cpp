#include "widgets/PullRequestService.h"

#include "support/TestSupport.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace mirrowisp {
namespace {

using State = PullRequestService::State;
using test::ManualClock;

const char* const fullReply = R"({"data":{"viewer":{"pullRequests":{"nodes":[
 {"number":7,"title":"Fix crash","url":"https://github.com/o/r/pull/7","isDraft":true,
  "reviewDecision":"APPROVED","repository":{"nameWithOwner":"o/r"},
  "commits":{"nodes":[{"commit":{"statusCheckRollup":{"state":"FAILURE"}}}]}},
 {"number":"8","title":"bad number","url":"https://github.com/o/r/pull/8"},
 {"number":9,"title":"No commits","url":"https://github.com/o/r/pull/9","reviewDecision":"REVIEW_REQUIRED",
  "commits":{"nodes":[]}}]}},
 "search":{"nodes":[{},
 {"number":3,"title":"Review me","url":"https://github.com/x/y/pull/3","reviewDecision":"CHANGES_REQUESTED",
  "repository":{"nameWithOwner":"x/y"},"commits":{"nodes":[{"commit":{"statusCheckRollup":{"state":"EXPECTED"}}}]}},
 {"number":4,"title":"Bad url","url":"not a url"}]}}})";

// A stand-in gh on a PATH of its own.
class PullRequestServiceTest : public ::testing::Test {
protected:
    QTemporaryDir bin;
    ManualClock clock;
    std::unique_ptr<PullRequestService> service;

    void SetUp() override { makeService(); }
    void makeService(double timeout = 10) {
        PullRequestService::Options options;
        options.searchPath = bin.path();
        options.timeoutSeconds = timeout;
        service = std::make_unique<PullRequestService>(clock, options);
    }
    void standIn(const QByteArray& body) {
        test::writeFile(bin.filePath(QStringLiteral("gh")), "#!/bin/sh\n" + body + "\n", true);
    }
    void refreshAndWait(bool force = true) {
        service->refresh(force);
        ASSERT_TRUE(test::waitUntil([this] { return !service->fetching(); }, 15000));
    }
};

TEST_F(PullRequestServiceTest, ReadsBothListsInQueryOrder) {
    const QString args = bin.filePath(QStringLiteral("args"));
    standIn("printf '%s\\n' \"$GH_PROMPT_DISABLED\" \"$@\" > " + args.toUtf8() + "\ncat <<'EOF'\n" +
            fullReply + "\nEOF");
    refreshAndWait();
    EXPECT_EQ(service->state(), State::ready);
    const QList<PullRequest> mine = {
        {7, QStringLiteral("Fix crash"), QStringLiteral("https://github.com/o/r/pull/7"),
         QStringLiteral("o/r"), true, PullRequest::Checks::failing, PullRequest::Review::approved},
        {9, QStringLiteral("No commits"), QStringLiteral("https://github.com/o/r/pull/9"), QString(), false,
         PullRequest::Checks::none, PullRequest::Review::required}};
    const QList<PullRequest> review = {
        {3, QStringLiteral("Review me"), QStringLiteral("https://github.com/x/y/pull/3"),
         QStringLiteral("x/y"), false, PullRequest::Checks::pending, PullRequest::Review::changesRequested}};
    EXPECT_EQ(service->mine(), mine);
    EXPECT_EQ(service->reviewRequested(), review);
    EXPECT_EQ(test::readFile(args), "1\napi\ngraphql\n-f\n" + PullRequestService::query().toUtf8() + "\n");
}

struct FailureCase {
    const char* name;
    const char* script; // empty: no gh at all
    State state;
};

class PullRequestFailureTest : public PullRequestServiceTest,
                               public ::testing::WithParamInterface<FailureCase> {};

TEST_P(PullRequestFailureTest, KeepsTheListsShown) {
    const FailureCase& c = GetParam();
    makeService(1.0);
    standIn(QByteArray("cat <<'EOF'\n") + fullReply + "\nEOF");
    refreshAndWait();
    ASSERT_EQ(service->mine().size(), 2);
    if (*c.script) {
        standIn(c.script);
    } else {
        QFile::remove(bin.filePath(QStringLiteral("gh")));
    }
    clock.advance(60);
    refreshAndWait(false);
    EXPECT_EQ(service->state(), c.state);
    EXPECT_EQ(service->mine().size(), 2);
    EXPECT_EQ(service->reviewRequested().size(), 1);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, PullRequestFailureTest,
    ::testing::Values(
        FailureCase{"missing", "", State::ghMissing},
        FailureCase{"signedOut",
                    "echo 'To get started with GitHub CLI, please run:  gh auth login' >&2; exit 4",
                    State::signedOut},
        FailureCase{"otherError", "echo 'HTTP 502: Bad Gateway' >&2; exit 1", State::failed},
        FailureCase{"halfDocument", "printf '{\"data\":{\"viewer\":{\"pullRequests\":{\"nodes\":['",
                    State::failed},
        FailureCase{"htmlWithSuccess", "echo '<html><body>Unicorn!</body></html>'", State::failed},
        FailureCase{"wrongShape", "echo '{\"data\":{\"viewer\":{}}}'", State::failed},
        FailureCase{"crash", "kill -SEGV $$", State::failed},
        FailureCase{"hang", "exec sleep 30", State::failed}),
    [](const auto& param) { return std::string(param.param.name); });

TEST_F(PullRequestServiceTest, GatesRefreshesByTimeAndByTheRunningFetch) {
    const QString count = bin.filePath(QStringLiteral("count"));
    standIn("echo x >> " + count.toUtf8() +
            "\nsleep 0.3\necho '{\"data\":{\"viewer\":{\"pullRequests\":{\"nodes\":[]}},"
            "\"search\":{\"nodes\":[]}}}'");
    const auto runs = [&] { return test::readFile(count).count('\n'); };
    service->refresh(false);
    service->refresh(true); // dropped: a fetch runs
    ASSERT_TRUE(test::waitUntil([this] { return !service->fetching(); }, 15000));
    EXPECT_EQ(runs(), 1);
    EXPECT_EQ(service->stateText(), QStringLiteral("No open pull requests"));

    clock.advance(59);
    refreshAndWait(false);
    EXPECT_EQ(runs(), 1);
    refreshAndWait(true);
    EXPECT_EQ(runs(), 2);
    clock.advance(60);
    refreshAndWait(false);
    EXPECT_EQ(runs(), 3);
}

TEST_F(PullRequestServiceTest, TakesGhFromTheLoginShellsPathOnceItIsKnown) {
    standIn("echo '{\"data\":{\"viewer\":{\"pullRequests\":{\"nodes\":[]}},\"search\":{\"nodes\":[]}}}'");
    QTemporaryDir login;
    test::writeFile(login.filePath(QStringLiteral("gh")), "#!/bin/sh\necho 'run gh auth login' >&2\nexit 4\n",
                    true);
    QString loginPath;
    PullRequestService::Options options;
    options.searchPath = bin.path();
    options.loginPath = [&loginPath] { return loginPath; };
    service = std::make_unique<PullRequestService>(clock, options);
    refreshAndWait();
    EXPECT_EQ(service->state(), State::ready);
    loginPath = QStringLiteral("/nonexistent:") + login.path();
    refreshAndWait();
    EXPECT_EQ(service->state(), State::signedOut);
}

} // namespace
} // namespace mirrowisp
