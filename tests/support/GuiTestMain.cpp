#include <QGuiApplication>
#include <gtest/gtest.h>

// Island logic and views need a GUI application; without a display they run on Qt's offscreen
// platform, so these tests need no X server.
int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    QGuiApplication app(argc, argv);
    return RUN_ALL_TESTS();
}
