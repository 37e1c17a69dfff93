#include "base/RegularFile.h"

#include "support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace mirrowisp;
using namespace Qt::StringLiterals;
using mirrowisp::test::TemporaryHome;

TEST(RegularFile, ReadsOnlyRegularFilesWithinTheLimit) {
    const TemporaryHome home;
    const QString dir = home.path();
    const auto at = [&](const char* name) { return dir + QLatin1Char('/') + QString::fromLatin1(name); };
    test::writeFile(at("small"), "{}");
    test::writeFile(at("limit"), QByteArray(64, 'x'));
    test::writeFile(at("over"), QByteArray(65, 'x'));
    ASSERT_EQ(::mkfifo(QFile::encodeName(at("fifo")).constData(), 0600), 0);
    ASSERT_TRUE(QFile::link(u"/dev/zero"_s, at("zero")));
    ASSERT_TRUE(QFile::link(at("small"), at("link")));
    ASSERT_TRUE(QDir().mkpath(at("folder")));

    struct Case {
        const char* name;
        FileRead::Status status;
        QByteArray bytes;
    };
    const Case cases[] = {
        {"small", FileRead::Status::ok, "{}"},
        {"link", FileRead::Status::ok, "{}"},
        {"limit", FileRead::Status::ok, QByteArray(64, 'x')},
        {"over", FileRead::Status::tooLarge, {}},
        {"fifo", FileRead::Status::notRegular, {}}, // with no writer: would wait for ever
        {"zero", FileRead::Status::notRegular, {}}, // endless: would exhaust memory
        {"folder", FileRead::Status::notRegular, {}},
        {"absent", FileRead::Status::missing, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const FileRead read = readRegularFile(at(c.name), 64);
        EXPECT_EQ(read.status, c.status);
        EXPECT_EQ(read.bytes, c.bytes);
    }
}
