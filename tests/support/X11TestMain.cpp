#include "support/XvfbServer.h"

#include <QGuiApplication>
#include <cstdio>
#include <gtest/gtest.h>

// Window tests run the real XCB platform against a private Xvfb with a window manager and a
// compositor, started before the application connects to it.
int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (testing::GTEST_FLAG(list_tests)) {
        return RUN_ALL_TESTS();
    }
    mirrowisp::test::XvfbServer server;
    if (!server.start(true, true)) {
        std::fprintf(stderr, "%s\n", qPrintable(server.error()));
        return 1;
    }
    qputenv("DISPLAY", server.display().toLocal8Bit());
    qputenv("QT_QPA_PLATFORM", "xcb");
    QGuiApplication app(argc, argv);
    return RUN_ALL_TESTS();
}
