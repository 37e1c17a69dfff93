#pragma once

#include <QString>
#include <QStringList>
#include <optional>

namespace mirrowisp {

// What opening an event needs of the desktop; tests hand in one that records.
class DesktopLauncher {
public:
    virtual ~DesktopLauncher() = default;
    // The default handler of the address: the browser for https.
    virtual bool openUrl(const QString& url) = 0;
    // Starts the application of the first of `desktopIDs` that is installed; its id, or nothing.
    virtual std::optional<QString> launchFirst(const QStringList& desktopIDs) = 0;
};

// QDesktopServices for addresses; for applications, the desktop entry's Exec line from the XDG
// data folders, started detached.
class SystemDesktopLauncher final : public DesktopLauncher {
public:
    bool openUrl(const QString& url) override;
    std::optional<QString> launchFirst(const QStringList& desktopIDs) override;

    // The command line of a desktop entry's text, field codes dropped; empty when it has none.
    static QStringList execCommand(const QByteArray& entry);
};

} // namespace mirrowisp
