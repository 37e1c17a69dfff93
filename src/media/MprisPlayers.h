#pragma once

#include "media/MprisPlayer.h"

#include <QDBusConnection>
#include <QObject>
#include <memory>
#include <optional>
#include <vector>

namespace mirrowisp {

// Every org.mpris.MediaPlayer2.* name on the session bus, in the order they appeared, and which of
// them last changed its playback status or track.
class MprisPlayers : public QObject {
    Q_OBJECT

public:
    static inline const QString namePrefix = QStringLiteral("org.mpris.MediaPlayer2.");

    explicit MprisPlayers(QDBusConnection bus, QObject* parent = nullptr);
    ~MprisPlayers() override;

    // Starts following the bus: the names already there, and those that come and go.
    void start();
    // Asks every player for its properties again.
    void fetchAll();

    // The players to ask, the last active first, then in the order they appeared.
    std::vector<MprisPlayer*> runningSources() const;
    MprisPlayer* find(const QString& name) const;
    const std::optional<QString>& lastActiveSource() const { return lastActive_; }

Q_SIGNALS:
    void changed();

private Q_SLOTS:
    void nameOwnerChanged(const QString& name, const QString& oldOwner, const QString& newOwner);

private:
    void add(const QString& name);
    void remove(const QString& name);

    QDBusConnection bus_;
    std::vector<std::unique_ptr<MprisPlayer>> players_;
    std::optional<QString> lastActive_;
};

} // namespace mirrowisp
