#pragma once

#include "support/ScopedEnvironment.h"
#include "support/TestSupport.h"

#include <QProcess>
#include <QTemporaryDir>

namespace mirrowisp::test {

// A PulseAudio daemon of the test's own on a private socket, with a wired null sink (the default)
// and a second one that calls itself a Bluetooth headset.
class PulseServer {
public:
    PulseServer() {
        socket_ = dir_.path() + QStringLiteral("/native");
        env_.set("PULSE_SERVER", (QStringLiteral("unix:") + socket_).toUtf8());
        env_.set("PULSE_RUNTIME_PATH", dir_.path().toUtf8());
        env_.set("PULSE_STATE_PATH", dir_.path().toUtf8());
        env_.set("XDG_RUNTIME_DIR", dir_.path().toUtf8());
        env_.set("HOME", dir_.path().toUtf8());
    }
    ~PulseServer() { stop(); }

    bool start() {
        daemon_.setProgram(QStringLiteral("pulseaudio"));
        daemon_.setArguments(
            {QStringLiteral("-n"), QStringLiteral("--daemonize=no"), QStringLiteral("--exit-idle-time=-1"),
             QStringLiteral("--disallow-exit"), QStringLiteral("-L"),
             QStringLiteral("module-native-protocol-unix auth-anonymous=1 socket=") + socket_,
             QStringLiteral("-L"), QStringLiteral("module-null-sink sink_name=wired norewinds=1"),
             QStringLiteral("-L"),
             QStringLiteral("module-null-sink sink_name=headset norewinds=1 "
                            "sink_properties='device.bus=bluetooth device.api=bluez5 "
                            "api.bluez5.address=AA:BB:CC:DD:EE:FF'")});
        daemon_.setStandardErrorFile(dir_.path() + QStringLiteral("/daemon.log"));
        daemon_.setStandardOutputFile(QProcess::nullDevice());
        daemon_.start();
        return waitUntil(
            [this] {
                return pactl({QStringLiteral("set-default-sink"), QStringLiteral("wired")});
            },
            10000);
    }
    void stop() {
        if (daemon_.state() != QProcess::NotRunning) {
            daemon_.terminate();
            daemon_.waitForFinished(5000);
        }
    }
    static bool pactl(const QStringList& args, QByteArray* out = nullptr) {
        QProcess process;
        process.start(QStringLiteral("pactl"), args);
        if (!process.waitForFinished(5000) || process.exitCode() != 0) {
            return false;
        }
        if (out != nullptr) {
            *out = process.readAllStandardOutput();
        }
        return true;
    }

private:
    QTemporaryDir dir_;
    ScopedEnvironment env_;
    QString socket_;
    QProcess daemon_;
};

} // namespace mirrowisp::test
