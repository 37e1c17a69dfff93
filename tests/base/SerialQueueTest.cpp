#include "base/SerialQueue.h"

#include "base/MainQueue.h"
#include "support/TestSupport.h"

#include <QCoreApplication>
#include <QThread>
#include <atomic>
#include <gtest/gtest.h>
#include <mutex>
#include <vector>

using namespace mirrowisp;

TEST(SerialQueue, RunsWorkInOrderOffTheMainThreadAndFinishesItBeforeItGoes) {
    std::vector<int> order;
    std::atomic<bool> offMain = true;
    {
        SerialQueue queue("mirrowisp.test");
        for (int i = 0; i < 200; ++i) {
            queue.async([&, i] {
                offMain = offMain && QThread::currentThread() != QCoreApplication::instance()->thread();
                order.push_back(i); // no lock: one item at a time is the queue's promise
            });
        }
    } // the destructor drains, then joins
    ASSERT_EQ(order.size(), 200U);
    for (int i = 0; i < 200; ++i) {
        EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
    }
    EXPECT_TRUE(offMain);
}

TEST(MainQueue, BringsResultsBackToTheMainThreadInPostingOrder) {
    SerialQueue queue("mirrowisp.test");
    std::vector<int> results;
    bool allOnMain = true;
    for (int i = 0; i < 5; ++i) {
        queue.async([&, i] {
            postToMain([&, i] {
                allOnMain = allOnMain && QThread::currentThread() == QCoreApplication::instance()->thread();
                results.push_back(i);
            });
        });
    }
    ASSERT_TRUE(test::waitUntil([&] { return results.size() == 5; }));
    EXPECT_EQ(results, (std::vector<int>{0, 1, 2, 3, 4}));
    EXPECT_TRUE(allOnMain);
}
