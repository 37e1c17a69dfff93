#include "island/IslandShell.h"

#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <gtest/gtest.h>
#include <memory>

using namespace mirrowisp;

// The view loads from the program's resources and draws one row per block.
TEST(MarkdownViewQml, LoadsAndDrawsEveryBlock) {
    IslandShell::registerTypes();
    QQmlEngine engine;
    QQmlComponent component(&engine, QUrl(QStringLiteral("qrc:/Mirrowisp/qml/MarkdownView.qml")));
    ASSERT_TRUE(component.isReady()) << component.errorString().toStdString();
    std::unique_ptr<QObject> object(component.createWithInitialProperties(
        {{QStringLiteral("width"), 300},
         {QStringLiteral("markdown"),
          QStringLiteral("# Plan\n\nText with **bold**.\n- item\n> quote\n---\n```\ncode\n```")}}));
    ASSERT_NE(object, nullptr) << component.errorString().toStdString();
    EXPECT_EQ(object->property("blockCount").toInt(), 6);
    auto* column = qobject_cast<QQuickItem*>(object.get());
    ASSERT_NE(column, nullptr);
    EXPECT_GT(column->implicitHeight(), 6 * 10.0) << "each block takes room";
}
