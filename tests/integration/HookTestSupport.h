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

struct ProcessRun {
    int exitCode = -1; // also when it crashed or hung
    QByteArray out;
    QByteArray err;
};

// Runs the program to its end with `input` on its standard input and `environment` ("NAME=value")
// added to the test's own.
ProcessRun runProcess(const QString& program, const QStringList& arguments, const QByteArray& input = {},
                      const QString& directory = {}, const QStringList& environment = {});

// A temporary home with the agents' standard folders below it, the support folder inside it and a
// user-defaults file of its own: nothing a test does reaches the real home.
class HookTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    QString home() const { return home_->path(); }
    QString support() const { return home_->supportDir(); }
    UserDefaults& defaults() { return *defaults_; }

    // Names in the backups folder, sorted.
    QStringList backups() const;
    // Clears the backups folder, so that a second change within one second doesn't collide.
    void clearBackups() const;

private:
    std::unique_ptr<TemporaryHome> home_;
    std::unique_ptr<UserDefaults> defaults_;
};

} // namespace mirrowisp::test

using mirrowisp::test::ProcessRun;
using mirrowisp::test::readFile;
using mirrowisp::test::readJsonObject;
using mirrowisp::test::writeFile;
