#include "app/WhatsNew.h"

#include "app/BuildInfo.h"
#include "app/Feedback.h"
#include "base/UserDefaults.h"
#include "support/TestSupport.h"

#include <QFileInfo>
#include <QUrlQuery>
#include <gtest/gtest.h>

using namespace mirrowisp;
using namespace Qt::Literals::StringLiterals;
using mirrowisp::test::TemporaryHome;

namespace {

constexpr Timestamp day = 86'400;

class WhatsNewTest : public ::testing::Test {
protected:
    TemporaryHome home;
    UserDefaults defaults{home.path() + u"/defaults.json"_s};
};

struct Launches {
    const char* name;
    std::vector<const char*> versions; // launched in this order, a day apart
    std::optional<QString> lastAnswer;
};

class LaunchSequence : public WhatsNewTest, public ::testing::WithParamInterface<Launches> {};

} // namespace

TEST_P(LaunchSequence, AnswersAnUpdateOnlyWhenTheVersionRose) {
    std::optional<QString> answer;
    Timestamp now = 1'700'000'000;
    for (const char* version : GetParam().versions) {
        answer = WhatsNew::checkAtLaunch(defaults, QString::fromLatin1(version), now += day);
    }
    EXPECT_EQ(answer, GetParam().lastAnswer);
    EXPECT_EQ(defaults.stringValue(u"lastLaunchedVersion"_s),
              QString::fromLatin1(GetParam().versions.back()));
    if (!GetParam().lastAnswer) {
        // Only a real update leaves a trace for the menu.
        EXPECT_EQ(WhatsNew::recentUpdate(defaults, QString::fromLatin1(GetParam().versions.back()), now),
                  std::nullopt);
    }
}

INSTANTIATE_TEST_SUITE_P(Table, LaunchSequence,
                         ::testing::Values(Launches{"firstLaunch", {"1.2"}, std::nullopt},
                                           Launches{"sameVersion", {"1.2", "1.2"}, std::nullopt},
                                           Launches{"numericNotTextual", {"1.9", "1.10"}, u"1.10"_s},
                                           Launches{"longerVersion", {"1.2", "1.2.1"}, u"1.2.1"_s},
                                           Launches{"downgrade", {"2.0", "1.9"}, std::nullopt},
                                           Launches{"upThenDown", {"1.0", "1.1", "1.0"}, std::nullopt}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(WhatsNewTest, AnUpdateIsRecentForThreeDaysWhileItIsStillTheRunningVersion) {
    const Timestamp at = 1'700'000'000;
    WhatsNew::checkAtLaunch(defaults, u"1.0"_s, at - day);
    ASSERT_EQ(WhatsNew::checkAtLaunch(defaults, u"1.1"_s, at), u"1.1"_s);
    EXPECT_EQ(WhatsNew::recentUpdate(defaults, u"1.1"_s, at + 3 * day - 1), u"1.1"_s);
    EXPECT_EQ(WhatsNew::recentUpdate(defaults, u"1.1"_s, at + 3 * day), std::nullopt);
    // Downgraded within the three days: the update no longer is the running version.
    EXPECT_EQ(WhatsNew::recentUpdate(defaults, u"1.0"_s, at + day), std::nullopt);
}

TEST(WhatsNewChangelog, PointsAtTheVersionsHeadingInAChangelogThatExists) {
    const QUrl url = WhatsNew::changelogURL(u"0.2.0"_s);
    EXPECT_TRUE(url.isLocalFile());
    EXPECT_EQ(url.fragment(), u"v0.2.0"_s);
    EXPECT_TRUE(QFileInfo(url.toLocalFile()).isFile()) << url.toLocalFile().toStdString();
}

namespace {

struct Machine {
    const char* name;
    QByteArray osRelease;
    QByteArray vendor, product;
    QString secondLine;
};

class FeedbackDetails : public ::testing::TestWithParam<Machine> {};

} // namespace

TEST_P(FeedbackDetails, NameTheReleaseTheSystemTheMachineAndTheAgents) {
    TemporaryHome home;
    const QString dmi = home.path() + u"/dmi"_s;
    test::writeFile(home.path() + u"/os-release"_s, GetParam().osRelease);
    if (!GetParam().vendor.isNull()) {
        test::writeFile(dmi + u"/sys_vendor"_s, GetParam().vendor);
        test::writeFile(dmi + u"/product_name"_s, GetParam().product);
    }
    const QString details =
        Feedback::details(u"none connected"_s, {home.path() + u"/os-release"_s, dmi, u"6.1.0-18-amd64"_s});
    EXPECT_EQ(details, u"Mirrowisp %1 (%2)\n"_s.arg(BuildInfo::version(), BuildInfo::build()) +
                           GetParam().secondLine + u"\nAgents: none connected"_s);
}

INSTANTIATE_TEST_SUITE_P(
    Table, FeedbackDetails,
    ::testing::Values(Machine{"quoted", "ID=debian\nPRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\n",
                              "LENOVO\n", "20XW\n",
                              u"Debian GNU/Linux 12 (bookworm) 6.1.0-18-amd64 · LENOVO 20XW"_s},
                      Machine{"unquoted", "PRETTY_NAME=Arch Linux", "Framework", "Laptop 13",
                              u"Arch Linux 6.1.0-18-amd64 · Framework Laptop 13"_s},
                      Machine{"placeholders", "NAME=x\n", "To be filled by O.E.M.", "To be filled by O.E.M.",
                              u"Linux 6.1.0-18-amd64 · unknown hardware"_s},
                      Machine{"noFirmwareTables",
                              "PRETTY_NAME='Fedora Linux 40'",
                              {},
                              {},
                              u"Fedora Linux 40 6.1.0-18-amd64 · unknown hardware"_s}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(FeedbackDraft, CarriesTheDetailsBelowRoomForTheUsersWords) {
    const QString details = u"Mirrowisp 1 (x)\nDell & Sons · model+1 #2\nAgents: Claude Code, Codex"_s;
    const QUrl url = Feedback::draftURL(details);
    EXPECT_EQ(url.scheme(), u"mailto"_s);
    EXPECT_FALSE(url.path().isEmpty());
    const QUrlQuery query(url);
    EXPECT_EQ(query.queryItemValue(u"subject"_s, QUrl::FullyDecoded), u"Mirrowisp feedback"_s);
    EXPECT_EQ(query.queryItemValue(u"body"_s, QUrl::FullyDecoded), u"\n\n---\n"_s + details);
}
