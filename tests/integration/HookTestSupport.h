#pragma once

#include "base/UserDefaults.h"
#include "integration/HookError.h"
#include "support/TestSupport.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <gtest/gtest.h>
#include <memory>
#include <ostream>

namespace mirrowisp {

// Failures name the error rather than dumping its bytes.
inline void PrintTo(const HookError& error, std::ostream* out) {
    *out << error.message().toStdString();
}

} // namespace mirrowisp

namespace mirrowisp::test {

// A temporary home with the agents' standard folders below it, the support folder inside it and a
// user-defaults file of its own: nothing a test does reaches the real home.
class HookTest : public ::testing::Test {
public:
    // Writes the bytes, creating folders; a test that can't set up its file fails there.
    static void writeBytes(const QString& path, const QByteArray& bytes);
    static QByteArray readBytes(const QString& path);

protected:
    void SetUp() override;
    void TearDown() override;

    QString home() const { return home_->path(); }
    QString support() const { return home_->supportDir(); }
    UserDefaults& defaults() { return *defaults_; }

    // The file as a JSON object; fails the test when it isn't one.
    static QJsonObject readObject(const QString& path);
    // Names in the backups folder, sorted.
    QStringList backups() const;
    // Clears the backups folder, so that a second change within one second doesn't collide.
    void clearBackups() const;

private:
    std::unique_ptr<TemporaryHome> home_;
    std::unique_ptr<UserDefaults> defaults_;
};

} // namespace mirrowisp::test
