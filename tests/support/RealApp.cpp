#include "support/RealApp.h"

#include <QJsonDocument>

namespace mirrowisp::test {

RealApp::RealApp(bool display) : env_(appEnvironment(bus_.address())), app_(std::make_unique<QProcess>()) {
    if (!display) {
        env_.remove(QStringLiteral("DISPLAY"));
    }
}

RealApp::~RealApp() {
    stop();
}

bool RealApp::start(const QStringList& arguments) {
    app_->setProcessEnvironment(env_);
    app_->start(QStringLiteral(MIRROWISP_APP_PATH), arguments);
    return waitUntil([&] { return ctl({QStringLiteral("sessions")}).exitCode == 0; }, 15000);
}

void RealApp::stop() {
    if (app_->state() != QProcess::NotRunning) {
        app_->terminate();
        if (!app_->waitForFinished(5000)) {
            app_->kill();
            app_->waitForFinished(5000);
        }
    }
}

std::unique_ptr<QProcess> RealApp::startCopy(const QStringList& arguments) const {
    auto copy = std::make_unique<QProcess>();
    copy->setProcessEnvironment(env_);
    copy->start(QStringLiteral(MIRROWISP_APP_PATH), arguments);
    return copy;
}

RunResult RealApp::run(const QStringList& arguments) const {
    const auto process = startCopy(arguments);
    if (!process->waitForFinished(10000)) {
        process->kill();
        process->waitForFinished(5000);
        return {};
    }
    return {process->exitCode(), process->readAllStandardOutput(), process->readAllStandardError()};
}

RunResult RealApp::ctl(const QStringList& arguments) const {
    return run(QStringList{QStringLiteral("ctl")} + arguments);
}

QJsonArray RealApp::sessions() const {
    return QJsonDocument::fromJson(ctl({QStringLiteral("sessions")}).out).array();
}

std::unique_ptr<QProcess> RealApp::hook(const QJsonObject& event, const QString& agent) const {
    auto process = std::make_unique<QProcess>();
    process->setProcessEnvironment(env_);
    process->start(QStringLiteral(MIRROWISP_BRIDGE_TOOL_PATH), {QStringLiteral("--agent"), agent});
    process->write(QJsonDocument(event).toJson(QJsonDocument::Compact));
    process->closeWriteChannel();
    return process;
}

QString RealApp::waitForDecision() const {
    QString id;
    waitUntil(
        [&] {
            const QJsonArray list = sessions();
            const QJsonArray pending =
                list.isEmpty() ? QJsonArray() : list.first()[QStringLiteral("pending")].toArray();
            id = pending.isEmpty() ? QString() : pending.first()[QStringLiteral("id")].toString();
            return !id.isEmpty();
        },
        10000);
    return id;
}

} // namespace mirrowisp::test
