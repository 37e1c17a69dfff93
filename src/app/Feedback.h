#pragma once

#include <QString>
#include <QUrl>

namespace mirrowisp {

// A mail draft to the developers with the details that help answer it.
namespace Feedback {

// Where the machine's details are read; tests point them at files of their own.
struct Sources {
    QString osRelease = QStringLiteral("/etc/os-release");
    QString dmiDirectory = QStringLiteral("/sys/class/dmi/id");
    // The kernel release; empty asks the running kernel.
    QString kernelRelease;
};

// "Mirrowisp VERSION (BUILD)", the system and the machine, and the connected agents. Reads files:
// call it off the main thread.
QString details(const QString& connectedAgents, const Sources& sources = {});

// The agents whose hooks are in place, by display name, or "none connected". Reads their files.
QString connectedAgents();

// The mailto: address of a draft carrying `details` below room for the user's words.
QUrl draftURL(const QString& details);

} // namespace Feedback

} // namespace mirrowisp
