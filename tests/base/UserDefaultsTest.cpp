#include "base/UserDefaults.h"

#include "support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <functional>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <vector>

using namespace mirrowisp;
using namespace Qt::StringLiterals;
using mirrowisp::test::drainMainQueue;
using mirrowisp::test::LogCapture;
using mirrowisp::test::ManualClock;
using mirrowisp::test::readFile;
using mirrowisp::test::readJsonObject;
using mirrowisp::test::TemporaryHome;
using mirrowisp::test::waitUntil;
using mirrowisp::test::writeFile;

namespace {

QString key(const char* name) {
    return QString::fromLatin1(name);
}

QStringList entriesOf(const QString& folder) {
    return QDir(folder).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot | QDir::Hidden,
                                  QDir::Name);
}

class UserDefaultsTest : public ::testing::Test {
protected:
    TemporaryHome home;
    QString folder = home.path() + u"/.config/mirrowisp"_s;
    QString path = folder + u"/defaults.json"_s;
};

} // namespace

TEST_F(UserDefaultsTest, AUserValueOfAnyTypeHidesTheRegisteredOneUntilRemoved) {
    UserDefaults defaults(path);
    defaults.registerDefaults(QJsonObject{{key("openOnHover"), true}, {key("width"), 140}});
    defaults.registerDefaults(QVariantMap{{key("width"), 200.5}}); // the newer registration wins
    EXPECT_EQ(defaults.doubleValue(key("width")), 200.5);
    EXPECT_EQ(defaults.boolValue(key("openOnHover")), true);
    EXPECT_FALSE(defaults.contains(key("openOnHover")));
    EXPECT_FALSE(defaults.object(key("neverSet")).has_value());

    defaults.set(key("openOnHover"), key("yes"));
    EXPECT_FALSE(defaults.boolValue(key("openOnHover")).has_value());
    EXPECT_TRUE(defaults.contains(key("openOnHover")));

    defaults.remove(key("openOnHover"));
    EXPECT_EQ(defaults.boolValue(key("openOnHover")), true);
    EXPECT_FALSE(defaults.contains(key("openOnHover")));
    // The registration domain is never written to the file.
    EXPECT_EQ(readJsonObject(path), QJsonObject());
}

TEST_F(UserDefaultsTest, TypedReadsAnswerOnlyTheirOwnType) {
    UserDefaults defaults(path);
    const std::pair<const char*, QJsonValue> values[] = {
        {"bool", true},
        {"number", 2.5},
        {"string", key("text")},
        {"strings", QJsonArray{key("a"), key("b")}},
        {"mixed", QJsonArray{key("a"), 1}}, // anything but strings in it: no string array
        {"dictionary", QJsonObject{{key("k"), 1}}}};
    for (const auto& [name, value] : values) {
        defaults.set(key(name), value);
    }
    for (const auto& [name, v] : values) {
        SCOPED_TRACE(name);
        const QString k = key(name);
        EXPECT_EQ(defaults.boolValue(k), v.isBool() ? std::optional(v.toBool()) : std::nullopt);
        EXPECT_EQ(defaults.doubleValue(k), v.isDouble() ? std::optional(v.toDouble()) : std::nullopt);
        EXPECT_EQ(defaults.stringValue(k), v.isString() ? std::optional(v.toString()) : std::nullopt);
        EXPECT_EQ(defaults.dictionary(k), v.isObject() ? std::optional(v.toObject()) : std::nullopt);
        EXPECT_EQ(defaults.stringArray(k).has_value(), k == key("strings"));
    }
    EXPECT_EQ(defaults.stringArray(key("strings")), QStringList({key("a"), key("b")}));
}

TEST_F(UserDefaultsTest, EveryWriteLeavesOneReadableSortedFileThatASecondStoreReadsBack) {
    QJsonObject expected;
    {
        UserDefaults defaults(path);
        const std::pair<const char*, QJsonValue> writes[] = {
            {"zeta", 1},
            {"alpha", key("a/b")},
            {"mid", QJsonArray{true}},
            {"lastSeen.claude", 1'800'000'000.123456},
            {"activity.codex", QJsonObject{{key("2027-01-15"), 3}}},
            {"alpha", 2.5}};
        for (const auto& [name, value] : writes) {
            defaults.set(key(name), value);
            expected.insert(key(name), value);
            EXPECT_EQ(readJsonObject(path), expected);
            EXPECT_EQ(entriesOf(folder), QStringList{key("defaults.json")});
        }
        defaults.set(key("gone"), 1);
        defaults.remove(key("gone"));
    }
    const UserDefaults second(path);
    EXPECT_EQ(second.keys(), expected.keys());
    for (const QString& name : expected.keys()) {
        EXPECT_EQ(second.object(name), expected.value(name)) << name.toStdString();
    }
    const QByteArray text = readFile(path);
    EXPECT_LT(text.indexOf("\"alpha\""), text.indexOf("\"mid\""));
    EXPECT_LT(text.indexOf("\"mid\""), text.indexOf("\"zeta\""));
    EXPECT_TRUE(text.contains("\n    \"alpha\": 2.5,\n")) << text.toStdString(); // indented, for people
}

TEST_F(UserDefaultsTest, DefaultPathFollowsXdgConfigHomeWhenTheStoreIsMade) {
    const UserDefaults inConfigHome;
    EXPECT_EQ(inConfigHome.filePath(), path);

    qputenv("XDG_CONFIG_HOME", "relative/config");
    EXPECT_EQ(UserDefaults().filePath(), home.path() + u"/.config/mirrowisp/defaults.json"_s);

    const QString elsewhere = home.path() + u"/elsewhere"_s;
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(elsewhere));
    EXPECT_EQ(UserDefaults::defaultFilePath(), elsewhere + u"/mirrowisp/defaults.json"_s);

    // The store made earlier keeps its path, and makes its folder when it first writes.
    UserDefaults made(path);
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(home.path() + u"/other"_s));
    made.set(key("k"), 1);
    EXPECT_EQ(readJsonObject(path), QJsonObject({{key("k"), 1}}));
}

TEST_F(UserDefaultsTest, ChangedIsEmittedOnlyWhenTheAnsweredValueChanges) {
    UserDefaults defaults(path);
    defaults.registerDefaults(QJsonObject{{key("volume"), 0.5}});
    QStringList changes;
    QObject::connect(&defaults, &UserDefaults::changed, [&](const QString& k) { changes.append(k); });

    defaults.set(key("volume"), 0.5); // same as the registered value
    EXPECT_TRUE(changes.isEmpty());
    EXPECT_TRUE(defaults.contains(key("volume")));

    defaults.set(key("volume"), 0.8);
    defaults.set(key("volume"), 0.8);
    EXPECT_EQ(changes, QStringList{key("volume")});

    defaults.set(key("count"), 1);
    defaults.set(key("count"), 1.0); // the same number
    EXPECT_EQ(changes.size(), 2);

    defaults.remove(key("volume")); // the registered 0.5 answers again
    defaults.remove(key("volume"));
    defaults.remove(key("absent"));
    EXPECT_EQ(changes, (QStringList{key("volume"), key("count"), key("volume")}));

    defaults.set(key("count"), QJsonValue::Null); // null removes
    EXPECT_FALSE(defaults.contains(key("count")));
    EXPECT_EQ(changes.size(), 4);
}

TEST_F(UserDefaultsTest, ABatchWritesItsChangesOnceWhenTheOutermostBatchEnds) {
    UserDefaults defaults(path);
    defaults.set(key("before"), 1);
    QStringList changes;
    QObject::connect(&defaults, &UserDefaults::changed, [&](const QString& k) { changes.append(k); });
    {
        const UserDefaults::Batch outer(defaults);
        defaults.set(key("claudeEnabled"), false);
        {
            const UserDefaults::Batch inner(defaults);
            defaults.set(key("codexEnabled"), false);
            defaults.remove(key("before"));
        }
        EXPECT_EQ(readJsonObject(path), QJsonObject({{key("before"), 1}}));
        EXPECT_EQ(defaults.boolValue(key("codexEnabled")), false); // reads see the change at once
        EXPECT_EQ(changes.size(), 3);
    }
    EXPECT_EQ(readJsonObject(path),
              QJsonObject({{key("claudeEnabled"), false}, {key("codexEnabled"), false}}));
}

// An empty file, or one with values of the wrong types, is no damage: its values stay, nothing is kept aside.
TEST_F(UserDefaultsTest, AnEmptyFileOrValuesOfWrongTypesAreKeptAsTheyAre) {
    const QByteArray wrongTypes = R"({"openOnHover": "yes", "hoverDelay": [0.3], "homeWidgets": "calendar"})";
    for (const QByteArray& bytes : {QByteArray(), wrongTypes}) {
        writeFile(path, bytes);
        UserDefaults defaults(path);
        defaults.registerDefaults(QJsonObject{{key("openOnHover"), true}});
        EXPECT_EQ(defaults.boolValue(key("openOnHover")).has_value(), bytes.isEmpty());
        EXPECT_FALSE(defaults.doubleValue(key("hoverDelay")).has_value());
        EXPECT_FALSE(defaults.stringArray(key("homeWidgets")).has_value());

        defaults.set(key("soundVolume"), 0.2);
        QJsonObject expected = QJsonDocument::fromJson(bytes).object();
        expected.insert(key("soundVolume"), 0.2);
        EXPECT_EQ(readJsonObject(path), expected);
        EXPECT_EQ(entriesOf(folder), QStringList{key("defaults.json")});
    }
}

TEST_F(UserDefaultsTest, ABurstOfChangesIsWrittenAtMostOncePerSecondAndAtQuit) {
    ManualClock clock(1000);
    std::vector<std::pair<double, std::function<void()>>> timers;
    UserDefaults defaults(path);
    defaults.coalesceWrites(clock, [&](double seconds, std::function<void()> work) {
        timers.emplace_back(seconds, std::move(work));
    });
    const auto written = [&](int n) {
        return waitUntil([&] {
            return QJsonDocument::fromJson(readFile(path)).object() == QJsonObject({{key("n"), n}});
        });
    };

    defaults.set(key("n"), 1); // after a quiet second: at once
    EXPECT_TRUE(written(1));
    EXPECT_TRUE(timers.empty());
    for (int n = 2; n <= 20'000; ++n) { // a prompt each, all within the second
        clock.advance(0.00001);
        defaults.set(key("n"), n);
    }
    EXPECT_EQ(defaults.object(key("n")), QJsonValue(20'000));
    ASSERT_EQ(timers.size(), 1u);
    EXPECT_NEAR(timers[0].first, 1.0, 0.25);
    drainMainQueue();
    EXPECT_EQ(readJsonObject(path), QJsonObject({{key("n"), 1}}));

    clock.set(1001);
    timers[0].second(); // the second is over: the burst goes in one write
    EXPECT_TRUE(written(20'000));

    defaults.set(key("n"), 20'001);
    ASSERT_EQ(timers.size(), 2u);
    defaults.flush(); // at quit, without waiting for the timer
    EXPECT_EQ(readJsonObject(path), QJsonObject({{key("n"), 20'001}}));
    timers[1].second();
    EXPECT_EQ(readJsonObject(path), QJsonObject({{key("n"), 20'001}}));
}

TEST_F(UserDefaultsTest, AFailedWriteIsLoggedOnceAndTheValueStaysInMemory) {
    const QString blocker = home.path() + u"/blocker"_s;
    writeFile(blocker, "a file where a folder should be");
    LogCapture log;
    UserDefaults defaults(blocker + u"/defaults.json"_s);

    defaults.set(key("hudEnabled"), false);
    defaults.set(key("hudEnabled"), true);
    EXPECT_EQ(defaults.boolValue(key("hudEnabled")), true);
    ASSERT_EQ(LogCapture::lines().size(), 1);
    EXPECT_TRUE(LogCapture::lines().first().startsWith(u"Mirrowisp: user defaults write failed: "_s));
}

TEST_F(UserDefaultsTest, AFifoOrALinkToADeviceIsMovedAsideUnreadAndReplaced) {
    for (const bool fifo : {true, false}) {
        SCOPED_TRACE(fifo ? "FIFO" : "link to /dev/zero");
        QDir(folder).removeRecursively();
        ASSERT_TRUE(QDir().mkpath(folder));
        const QByteArray name = QFile::encodeName(path);
        ASSERT_TRUE(fifo ? ::mkfifo(name.constData(), 0600) == 0 : QFile::link(u"/dev/zero"_s, path));
        LogCapture log;
        UserDefaults defaults(path); // neither waits for a writer nor reads without end
        defaults.set(key("k"), 1);
        EXPECT_EQ(readJsonObject(path), QJsonObject({{key("k"), 1}}));
        const QStringList entries = entriesOf(folder);
        ASSERT_EQ(entries.size(), 2);
        const QFileInfo kept(folder + QLatin1Char('/') + entries.at(1));
        EXPECT_TRUE(fifo ? !kept.isFile() && !kept.isSymLink() : kept.isSymLink())
            << entries.at(1).toStdString();
    }
}

namespace {

struct DamagedFile {
    const char* name;
    QByteArray bytes;
};

class UserDefaultsDamagedFileTest : public UserDefaultsTest,
                                    public ::testing::WithParamInterface<DamagedFile> {};

} // namespace

TEST_P(UserDefaultsDamagedFileTest, ReadsAsDefaultsAndIsKeptAsideBeforeTheFirstWrite) {
    const QByteArray damaged = GetParam().bytes;
    writeFile(path, damaged);
    LogCapture log;
    UserDefaults defaults(path);
    defaults.registerDefaults(QJsonObject{{key("openOnHover"), true}});

    EXPECT_EQ(defaults.boolValue(key("openOnHover")), true);
    EXPECT_TRUE(defaults.keys().isEmpty());
    EXPECT_EQ(readFile(path), damaged); // reading alone changes nothing
    EXPECT_TRUE(LogCapture::lines().isEmpty());

    defaults.set(key("openOnHover"), false);
    defaults.set(key("hoverDelay"), 0.2);

    EXPECT_EQ(readJsonObject(path), QJsonObject({{key("openOnHover"), false}, {key("hoverDelay"), 0.2}}));
    const QStringList entries = entriesOf(folder);
    ASSERT_EQ(entries.size(), 2) << entries.join(QLatin1Char(' ')).toStdString();
    const QString copy = entries.at(0) == key("defaults.json") ? entries.at(1) : entries.at(0);
    EXPECT_TRUE(copy.startsWith(u"defaults.json.unreadable-"_s)) << copy.toStdString();
    EXPECT_EQ(readFile(folder + QLatin1Char('/') + copy), damaged);

    ASSERT_EQ(LogCapture::lines().size(), 1);
    EXPECT_TRUE(LogCapture::lines().first().startsWith(u"Mirrowisp: "_s));
    EXPECT_TRUE(LogCapture::lines().first().contains(copy));
}

INSTANTIATE_TEST_SUITE_P(
    Contents, UserDefaultsDamagedFileTest,
    ::testing::Values(DamagedFile{"garbage", QByteArray("this is not json {")},
                      DamagedFile{"truncated", QByteArray(R"({"openOnHover": fal)")},
                      DamagedFile{"topLevelArray", QByteArray(R"(["openOnHover", false])")},
                      DamagedFile{"topLevelString", QByteArray(R"("openOnHover")")},
                      DamagedFile{"invalidUtf8", QByteArray("{\"remindersListID\": \"\xff\xfe\xc3\"}")},
                      DamagedFile{"whitespaceOnly", QByteArray(" \n\t ")},
                      DamagedFile{"binary", QByteArray("\x00\x01\x02{}", 5)}),
    [](const ::testing::TestParamInfo<DamagedFile>& param) { return std::string(param.param.name); });
