#pragma once

#include <QObject>
#include <QStringList>

// Stands in for one of Konsole's windows on the bus: its tabs and which one is current.
class KonsoleWindowStandIn : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.konsole.Window")

public:
    explicit KonsoleWindowStandIn(QStringList sessions) : sessions_(std::move(sessions)) {}
    int current = 0;

public Q_SLOTS:
    QStringList sessionList() const { return sessions_; }
    int currentSession() const { return current; }
    void setCurrentSession(int session) { current = session; }

private:
    QStringList sessions_;
};
