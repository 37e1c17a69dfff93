#include "remote/RemoteSetup.h"

#include "base/MainQueue.h"
#include "base/SerialQueue.h"

#include <QJsonObject>
#include <QPointer>

namespace mirrowisp {

RemoteSetup::RemoteSetup(RemoteHostStore& store, QString toolPath, QObject* parent)
    : QObject(parent), store_(store), toolPath_(std::move(toolPath)),
      queue_(std::make_unique<SerialQueue>("mw-remotesetup")) {
    connect(&store_, &RemoteHostStore::changed, this, &RemoteSetup::changed);
}

RemoteSetup::~RemoteSetup() = default;

void RemoteSetup::add(const RemoteHost& host, Done done) {
    const QString destination = host.destination;
    if (busy_.contains(destination)) {
        RemoteOutcome outcome;
        outcome.host = host;
        outcome.error = destination + QStringLiteral(" is being set up already");
        if (done) {
            done(outcome);
        }
        return;
    }
    busy_.insert(destination, QStringLiteral("adding"));
    if (!store_.host(destination)) {
        unsaved_.insert(destination, host);
    }
    messages_.insert(destination, QStringLiteral("setting up…"));
    Q_EMIT changed();
    queue_->async([this, self = QPointer(this), host, tool = toolPath_, done = std::move(done)] {
        const RemoteOutcome outcome = RemoteSetupSteps::add(host, tool);
        postToMain([this, self, outcome, done] {
            if (self) {
                finish(outcome.host.destination, outcome, false, done);
            }
        });
    });
}

void RemoteSetup::remove(const QString& destination, bool forget, Done done) {
    RemoteOutcome outcome;
    outcome.host.destination = destination;
    const auto stored = store_.host(destination);
    if (busy_.contains(destination)) {
        outcome.error = destination + QStringLiteral(" is being set up already");
    } else if (!stored && unsaved_.remove(destination) > 0) {
        messages_.remove(destination);
        Q_EMIT changed();
    } else if (!stored) {
        outcome.error = QStringLiteral("no remote host ") + destination;
    } else if (forget) {
        outcome.host = *stored;
        messages_.remove(destination);
        store_.remove(destination);
    } else {
        busy_.insert(destination, QStringLiteral("removing"));
        messages_.insert(destination, QStringLiteral("removing…"));
        Q_EMIT changed();
        queue_->async([this, self = QPointer(this), host = *stored, done = std::move(done)] {
            const RemoteOutcome result = RemoteSetupSteps::remove(host);
            postToMain([this, self, result, done] {
                if (self) {
                    finish(result.host.destination, result, true, done);
                }
            });
        });
        return;
    }
    if (done) {
        done(outcome);
    }
}

void RemoteSetup::finish(const QString& destination, const RemoteOutcome& outcome, bool removing,
                         const Done& done) {
    busy_.remove(destination);
    if (removing) {
        if (outcome.error) {
            messages_.insert(destination, *outcome.error);
        } else {
            messages_.remove(destination);
            store_.remove(destination);
        }
    } else if (outcome.error) {
        if (!store_.host(destination)) {
            unsaved_.insert(destination, outcome.host);
        }
        messages_.insert(destination, *outcome.error);
    } else {
        unsaved_.remove(destination);
        messages_.insert(destination, outcome.message());
        store_.put(outcome.host);
    }
    Q_EMIT changed();
    if (done) {
        done(outcome);
    }
}

QJsonArray RemoteSetup::toJson() const {
    QJsonArray list;
    const auto row = [this](const RemoteHost& host, bool stored) {
        QJsonObject object = host.toJson();
        const QString busy = busy_.value(host.destination);
        object.insert(QStringLiteral("setup"), !busy.isEmpty() ? busy
                                               : stored        ? QStringLiteral("ready")
                                                               : QStringLiteral("failed"));
        object.insert(QStringLiteral("message"), messages_.value(host.destination));
        object.insert(QStringLiteral("connection"), stored && connectionState_
                                                        ? connectionState_(host)
                                                        : QJsonValue(QStringLiteral("unknown")));
        return object;
    };
    for (const RemoteHost& host : store_.hosts()) {
        list.append(row(host, true));
    }
    for (const RemoteHost& host : unsaved_) {
        if (!store_.host(host.destination)) {
            list.append(row(host, false));
        }
    }
    return list;
}

} // namespace mirrowisp
