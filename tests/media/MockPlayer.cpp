#include "MockPlayer.h"

#include "support/TestSupport.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <csignal>
#include <gtest/gtest.h>

namespace mirrowisp::test {

namespace {

const QString path = QStringLiteral("/org/mpris/MediaPlayer2");
const QString playerInterface = QStringLiteral("org.mpris.MediaPlayer2.Player");

struct Method {
    const char* name;
    const char* in;
    const char* code;
};

const Method methods[] = {
    {"PlayPause", "",
     "s = self.Get('org.mpris.MediaPlayer2.Player', 'PlaybackStatus')\n"
     "self.UpdateProperties('org.mpris.MediaPlayer2.Player', "
     "{'PlaybackStatus': 'Paused' if s == 'Playing' else 'Playing'})"},
    {"Next", "",
     "self.Set('org.mpris.MediaPlayer2.Player', 'Metadata', dbus.Dictionary("
     "{'xesam:title': 'Next song', 'mpris:trackid': dbus.ObjectPath('/track/next')}, signature='sv'))"},
    {"Previous", "", ""},
    {"SetPosition", "ox",
     "self.props['org.mpris.MediaPlayer2.Player']['Position'] = dbus.Int64(args[1])\n"
     "self.EmitSignal('org.mpris.MediaPlayer2.Player', 'Seeked', 'x', [args[1]])"},
};

} // namespace

MockPlayer::MockPlayer(const QString& busAddress, const QString& suffix, const QVariantMap& properties)
    : name_(QStringLiteral("org.mpris.MediaPlayer2.") + suffix),
      bus_(QDBusConnection::connectToBus(busAddress, QStringLiteral("stage-") + suffix)) {
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), busAddress);
    process_.setProcessEnvironment(env);
    process_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process_.start(QStringLiteral("/usr/bin/python3"),
                   {QStringLiteral("-m"), QStringLiteral("dbusmock"), QStringLiteral("--session"), name_,
                    path, QStringLiteral("org.mpris.MediaPlayer2")});
    if (!waitUntil([&] { return bus_.interface()->isServiceRegistered(name_).value(); }, 10000)) {
        return;
    }
    mockCall(QStringLiteral("AddProperties"),
             {QStringLiteral("org.mpris.MediaPlayer2"),
              QVariantMap{{QStringLiteral("Identity"), suffix}, {QStringLiteral("CanRaise"), true}}});
    mockCall(QStringLiteral("AddMethod"),
             {QStringLiteral("org.mpris.MediaPlayer2"), QStringLiteral("Raise"), QString(), QString(),
              QStringLiteral("self.props['org.mpris.MediaPlayer2']['Identity'] = 'raised'")});
    for (const Method& m : methods) {
        mockCall(QStringLiteral("AddMethod"),
                 {playerInterface, QString::fromUtf8(m.name), QString::fromUtf8(m.in), QString(),
                  QString::fromUtf8(m.code)});
    }
    started_ = mockCall(QStringLiteral("AddProperties"), {playerInterface, properties}).type() ==
               QDBusMessage::ReplyMessage;
}

MockPlayer::~MockPlayer() {
    kill();
    QDBusConnection::disconnectFromBus(bus_.name());
}

QDBusMessage MockPlayer::mockCall(const QString& method, const QVariantList& arguments) {
    QDBusMessage call =
        QDBusMessage::createMethodCall(name_, path, QStringLiteral("org.freedesktop.DBus.Mock"), method);
    call.setArguments(arguments);
    const QDBusMessage reply = bus_.call(call, QDBus::Block, 5000);
    EXPECT_EQ(reply.type(), QDBusMessage::ReplyMessage)
        << method.toStdString() << ": " << reply.errorMessage().toStdString();
    return reply;
}

// Through Set, one property at a time: this dbusmock's UpdateProperties cannot carry a dictionary.
void MockPlayer::update(const QVariantMap& properties) {
    for (auto it = properties.begin(); it != properties.end(); ++it) {
        QDBusMessage set = QDBusMessage::createMethodCall(
            name_, path, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Set"));
        set << playerInterface << it.key() << QVariant::fromValue(QDBusVariant(it.value()));
        const QDBusMessage reply = bus_.call(set, QDBus::Block, 5000);
        EXPECT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
    }
}

QVariant MockPlayer::property(const QString& interface, const QString& property) {
    QDBusMessage get = QDBusMessage::createMethodCall(
        name_, path, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    get << interface << property;
    const QDBusMessage reply = bus_.call(get, QDBus::Block, 5000);
    return reply.arguments().isEmpty() ? QVariant()
                                       : reply.arguments().first().value<QDBusVariant>().variant();
}

void MockPlayer::freeze() {
    ::kill(pid_t(process_.processId()), SIGSTOP);
}

void MockPlayer::kill() {
    if (process_.state() != QProcess::NotRunning) {
        process_.kill();
        process_.waitForFinished(5000);
    }
}

QVariantMap metadata(const QString& title, const QString& artist, double seconds, const QString& artUrl) {
    QVariantMap map{
        {QStringLiteral("xesam:title"), title},
        {QStringLiteral("xesam:artist"), QStringList{artist}},
        {QStringLiteral("xesam:album"), QStringLiteral("Album")},
        {QStringLiteral("mpris:length"), qlonglong(seconds * 1e6)},
        {QStringLiteral("mpris:trackid"), QVariant::fromValue(QDBusObjectPath(QStringLiteral("/track/1")))}};
    if (!artUrl.isEmpty()) {
        map.insert(QStringLiteral("mpris:artUrl"), artUrl);
    }
    return map;
}

QVariantMap playerProperties(const QString& status, const QVariantMap& metadata, double position) {
    return {{QStringLiteral("PlaybackStatus"), status},
            {QStringLiteral("Metadata"), metadata},
            {QStringLiteral("Position"), qlonglong(position * 1e6)},
            {QStringLiteral("Rate"), 1.0},
            {QStringLiteral("LoopStatus"), QStringLiteral("None")}};
}

} // namespace mirrowisp::test
