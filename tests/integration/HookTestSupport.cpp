#include "integration/HookTestSupport.h"

#include "integration/HookInstaller.h"
#include "integration/Locations.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>

using namespace Qt::StringLiterals;

namespace mirrowisp::test {

ProcessRun runProcess(const QString& program, const QStringList& arguments, const QByteArray& input,
                      const QString& directory, const QStringList& environment) {
    QProcess process;
    process.setWorkingDirectory(directory);
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const QString& pair : environment) {
        env.insert(pair.section(QLatin1Char('='), 0, 0), pair.section(QLatin1Char('='), 1));
    }
    process.setProcessEnvironment(env);
    process.start(program, arguments);
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(60000)) {
        process.kill();
        process.waitForFinished();
        return {};
    }
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            process.readAllStandardOutput(), process.readAllStandardError()};
}

void HookTest::SetUp() {
    home_ = std::make_unique<TemporaryHome>();
    AgentEnvironment::setCurrent(Locations::standard(home_->path()));
    defaults_ = std::make_unique<UserDefaults>(home_->path() + u"/defaults.json"_s);
}

void HookTest::TearDown() {
    defaults_.reset();
    home_.reset();
}

QStringList HookTest::backups() const {
    return QDir(HookInstaller::backupsDirectory()).entryList(QDir::Files, QDir::Name);
}

void HookTest::clearBackups() const {
    QDir(HookInstaller::backupsDirectory()).removeRecursively();
}

} // namespace mirrowisp::test
