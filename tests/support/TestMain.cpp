#include <QCoreApplication>
#include <gtest/gtest.h>

// Every test runs with a Qt application on its main thread, so code that posts to the main queue
// behaves as it does in the app; tests drain that queue with a bound (see TestSupport.h).
int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    QCoreApplication app(argc, argv);
    return RUN_ALL_TESTS();
}
