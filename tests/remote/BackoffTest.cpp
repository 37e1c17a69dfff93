#include "remote/Backoff.h"

#include <gtest/gtest.h>
#include <vector>

using namespace mirrowisp;

namespace {

// One step: the connection came up at `upAt` (when set), then failed at `failAt`.
struct Step {
    std::optional<double> upAt;
    double failAt;
    double delay;
};

struct BackoffCase {
    const char* name;
    std::vector<Step> steps;
};

class BackoffTable : public testing::TestWithParam<BackoffCase> {};

TEST_P(BackoffTable, WaitsAsLongAsTheHistoryCallsFor) {
    Backoff backoff;
    int i = 0;
    for (const Step& step : GetParam().steps) {
        if (step.upAt) {
            backoff.connected(*step.upAt);
        }
        EXPECT_EQ(backoff.failed(step.failAt), step.delay) << "step " << i;
        ++i;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Steps, BackoffTable,
    testing::Values(BackoffCase{"DoublesUpToAMinute",
                                {{{}, 0, 1},
                                 {{}, 1, 2},
                                 {{}, 3, 4},
                                 {{}, 7, 8},
                                 {{}, 15, 16},
                                 {{}, 31, 32},
                                 {{}, 63, 60},
                                 {{}, 123, 60}}},
                    BackoffCase{"AShortConnectionKeepsDoubling", {{{}, 0, 1}, {{}, 1, 2}, {10, 69.9, 4}}},
                    BackoffCase{"AMinuteUpStartsOver", {{{}, 0, 1}, {{}, 1, 2}, {10, 70, 1}, {{}, 71, 2}}},
                    BackoffCase{"UpOnlyCountsForTheNextFailure", {{{}, 0, 1}, {0.5, 100, 1}, {{}, 200, 2}}}),
    [](const auto& row) { return std::string(row.param.name); });

} // namespace
