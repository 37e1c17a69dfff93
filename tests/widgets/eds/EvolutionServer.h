#pragma once

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>
#include <memory>

namespace mirrowisp::test {

// The calendar server's registry and calendar factory on a session bus of their own, over throw-away
// data, configuration and cache folders holding one local calendar ("work") and one local task list
// ("todo"). This process is pointed at that bus and those folders for good: the server's client
// library keeps its first bus for the life of the process.
class EvolutionServer {
public:
    // `withDaemons` false: the bus alone, a desktop where the server does not run.
    explicit EvolutionServer(bool withDaemons = true);
    ~EvolutionServer();
    EvolutionServer(const EvolutionServer&) = delete;
    EvolutionServer& operator=(const EvolutionServer&) = delete;

    // Why the server could not be reached; empty when it runs.
    const QString& problem() const { return problem_; }

    // Adds an iCalendar component (VEVENT or VTODO) to the source through the client library.
    bool add(const char* sourceUid, const QByteArray& component);
    // The component as the server keeps it now; empty when it has none.
    QByteArray component(const char* sourceUid, const QByteArray& uid);
    // Ends the calendar factory and the calendars it serves, as a crash would.
    void killCalendarFactory();

private:
    QTemporaryDir dir_;
    QProcess bus_;
    std::unique_ptr<QProcess> registry_;
    std::unique_ptr<QProcess> factory_;
    QString problem_;
};

} // namespace mirrowisp::test
