#include "integration/HookTestSupport.h"

#include "integration/HookInstaller.h"
#include "integration/Locations.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>

namespace mirrowisp::test {

void HookTest::SetUp() {
    home_ = std::make_unique<TemporaryHome>();
    AgentEnvironment::setCurrent(Locations::standard(home_->path()));
    defaults_ = std::make_unique<UserDefaults>(home_->path() + QStringLiteral("/defaults.json"));
}

void HookTest::TearDown() {
    defaults_.reset();
    home_.reset();
}

void HookTest::writeBytes(const QString& path, const QByteArray& bytes) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate)) << path.toStdString();
    ASSERT_EQ(file.write(bytes), bytes.size());
}

QByteArray HookTest::readBytes(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QJsonObject HookTest::readObject(const QString& path) {
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(readBytes(path), &error);
    EXPECT_EQ(error.error, QJsonParseError::NoError) << path.toStdString();
    EXPECT_TRUE(document.isObject()) << path.toStdString();
    return document.object();
}

QStringList HookTest::backups() const {
    return QDir(HookInstaller::backupsDirectory()).entryList(QDir::Files, QDir::Name);
}

void HookTest::clearBackups() const {
    QDir(HookInstaller::backupsDirectory()).removeRecursively();
}

} // namespace mirrowisp::test
