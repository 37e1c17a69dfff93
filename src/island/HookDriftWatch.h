#pragma once

#include <QObject>
#include <QStringList>
#include <QtQml/qqmlregistration.h>

namespace mirrowisp {

class AppModel;

// Which agents on this machine have hooks someone else changed, looked at on the doctor's thread
// after each connection pass, for the warning mark in the open island's header. The pass puts our
// hooks back wherever it can write, so what is left is drift it could not mend.
class HookDriftWatch : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("the island shell makes it")
    // Display names; empty when every found agent's hooks are as we wrote them.
    Q_PROPERTY(QStringList drifted READ drifted NOTIFY driftedChanged)

public:
    explicit HookDriftWatch(AppModel& app, QObject* parent = nullptr);

    QStringList drifted() const { return drifted_; }
    // Reads the agents' files again, off the main thread.
    void check();

Q_SIGNALS:
    void driftedChanged();
    // A reading came back, changed or not.
    void checked();

private:
    AppModel& app_;
    QStringList drifted_;
};

} // namespace mirrowisp
