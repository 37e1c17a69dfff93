#pragma once

#include <QDBusConnection>
#include <QProcess>
#include <QString>
#include <QVariantMap>

namespace mirrowisp::test {

// An MPRIS player staged with python3-dbusmock on a private bus: its own process, so it can be
// frozen or killed, and methods that behave like a player's (PlayPause flips the status, Next
// changes the track, SetPosition moves and signals Seeked, Raise is remembered).
class MockPlayer {
public:
    MockPlayer(const QString& busAddress, const QString& suffix, const QVariantMap& playerProperties);
    ~MockPlayer();
    MockPlayer(const MockPlayer&) = delete;
    MockPlayer& operator=(const MockPlayer&) = delete;

    bool started() const { return started_; }
    QString name() const { return name_; }
    // Changes properties of the player interface and signals PropertiesChanged.
    void update(const QVariantMap& properties);
    QVariant property(const QString& interface, const QString& property);
    void freeze();
    void kill();

private:
    QDBusMessage mockCall(const QString& method, const QVariantList& arguments);

    QString name_;
    QDBusConnection bus_;
    QProcess process_;
    bool started_ = false;
};

// Metadata as players send it; an empty art URL leaves the key out.
QVariantMap metadata(const QString& title, const QString& artist, double seconds, const QString& artUrl = {});
// The player interface's properties for a track in the given status ("Playing", "Paused"...).
QVariantMap playerProperties(const QString& status, const QVariantMap& metadata, double position = 0);

} // namespace mirrowisp::test
