#include "island/DelayedTasks.h"

#include "island/TimerDelayedTasks.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

using namespace mirrowisp;

namespace {

TEST(DelayedTasks, ACancelledTaskNeverRunsAndATaskRunsOnce) {
    int runs = 0;
    TaskHandle task = TaskHandle::make([&] { ++runs; });
    TaskHandle copy = task;
    EXPECT_TRUE(copy.isPending());
    task.run();
    copy.run();
    EXPECT_EQ(runs, 1);
    EXPECT_FALSE(copy.isPending());

    TaskHandle cancelled = TaskHandle::make([&] { ++runs; });
    cancelled.cancel();
    cancelled.run();
    EXPECT_EQ(runs, 1);
    EXPECT_FALSE(TaskHandle().isPending());
}

TEST(DelayedTasks, TimersRunWhatWasNotCalledOff) {
    QStringList ran;
    {
        TimerDelayedTasks tasks;
        tasks.schedule(0, [&] { ran << QStringLiteral("kept"); });
        tasks.schedule(0, [&] { ran << QStringLiteral("cancelled"); }).cancel();
        EXPECT_TRUE(test::waitUntil([&] { return !ran.isEmpty(); }));
        tasks.schedule(0, [&] { ran << QStringLiteral("dropped"); });
    }
    test::drainMainQueue();
    EXPECT_EQ(ran, QStringList{QStringLiteral("kept")}) << "tasks die with their scheduler";
}

} // namespace
