#include "media/MprisPlayers.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <algorithm>

namespace mirrowisp {

namespace {

const QString busService = QStringLiteral("org.freedesktop.DBus");
const QString busPath = QStringLiteral("/org/freedesktop/DBus");

} // namespace

MprisPlayers::MprisPlayers(QDBusConnection bus, QObject* parent) : QObject(parent), bus_(std::move(bus)) {}

MprisPlayers::~MprisPlayers() = default;

void MprisPlayers::start() {
    bus_.connect(busService, busPath, busService, QStringLiteral("NameOwnerChanged"), this,
                 SLOT(nameOwnerChanged(QString, QString, QString)));
    const QDBusMessage request =
        QDBusMessage::createMethodCall(busService, busPath, busService, QStringLiteral("ListNames"));
    auto* watcher = new QDBusPendingCallWatcher(bus_.asyncCall(request, MprisPlayer::callTimeoutMs), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* done) {
        done->deleteLater();
        const QDBusPendingReply<QStringList> reply = *done;
        if (reply.isError()) {
            return;
        }
        for (const QString& name : reply.value()) {
            if (name.startsWith(namePrefix)) {
                add(name);
            }
        }
    });
}

void MprisPlayers::fetchAll() {
    for (const auto& player : players_) {
        player->fetch();
    }
}

std::vector<MprisPlayer*> MprisPlayers::runningSources() const {
    std::vector<MprisPlayer*> order;
    MprisPlayer* last = lastActive_ ? find(*lastActive_) : nullptr;
    if (last != nullptr) {
        order.push_back(last);
    }
    for (const auto& player : players_) {
        if (player.get() != last) {
            order.push_back(player.get());
        }
    }
    return order;
}

MprisPlayer* MprisPlayers::find(const QString& name) const {
    const auto it = std::find_if(players_.begin(), players_.end(),
                                 [&](const auto& player) { return player->name() == name; });
    return it == players_.end() ? nullptr : it->get();
}

void MprisPlayers::nameOwnerChanged(const QString& name, const QString&, const QString& newOwner) {
    if (!name.startsWith(namePrefix)) {
        return;
    }
    if (newOwner.isEmpty()) {
        remove(name);
    } else {
        remove(name); // a new owner is a new player: nothing of the old one's reading holds
        add(name);
    }
}

void MprisPlayers::add(const QString& name) {
    if (find(name) != nullptr) {
        return;
    }
    auto player = std::make_unique<MprisPlayer>(bus_, name);
    connect(player.get(), &MprisPlayer::updated, this, [this, name](bool activity) {
        if (activity) {
            lastActive_ = name;
        }
        Q_EMIT changed();
    });
    players_.push_back(std::move(player));
}

void MprisPlayers::remove(const QString& name) {
    const auto it = std::find_if(players_.begin(), players_.end(),
                                 [&](const auto& player) { return player->name() == name; });
    if (it != players_.end()) {
        players_.erase(it);
        Q_EMIT changed();
    }
}

} // namespace mirrowisp
