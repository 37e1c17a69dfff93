#pragma once

#include "front/SettingsServices.h"

#include <QObject>
#include <QPointer>
#include <QSet>
#include <QString>
#include <QVariantList>
#include <QtQml/qqmlregistration.h>

namespace mirrowisp {

// The "Remote hosts" section: the hosts with their set-up and connection state and last message,
// and adding or removing one. The work runs in RemoteSetup, off the main thread.
class SettingsRemoteHosts : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("the settings window makes it")
    // Each: destination, setup (adding, removing, ready, failed), connection, message, and
    // "unreachable" when removing it could not reach it (Remove then forgets it).
    Q_PROPERTY(QVariantList rows READ rows NOTIFY rowsChanged)
    Q_PROPERTY(bool available READ available CONSTANT)
    // Why the text given to add was not taken; empty otherwise.
    Q_PROPERTY(QString error READ error NOTIFY errorChanged)

public:
    explicit SettingsRemoteHosts(SettingsServices services, QObject* parent = nullptr);

    QVariantList rows() const;
    bool available() const { return services_.remote != nullptr; }
    QString error() const { return error_; }

    // "[USER@]HOST", optionally ":PORT"; false (with `error`) when that is not a host.
    Q_INVOKABLE bool add(const QString& text);
    // Takes the host down; a host a removal could not reach is forgotten without reaching it.
    Q_INVOKABLE void remove(const QString& destination);

Q_SIGNALS:
    void rowsChanged();
    void errorChanged();

private:
    void setError(const QString& error);

    SettingsServices services_;
    QString error_;
    QSet<QString> unreachable_;
};

} // namespace mirrowisp
