#pragma once

#include "app/LaunchAtLogin.h"

namespace mirrowisp {

// Launch at login through the desktop's autostart folder: the entry
// $XDG_CONFIG_HOME/autostart/mirrowisp.desktop, which session managers start at login.
class AutostartEntry final : public LaunchAtLogin {
public:
    // The entry in the current config home, starting this process's own executable.
    AutostartEntry();
    AutostartEntry(QString entryPath, QString executablePath);

    static QString defaultEntryPath();

    QString entryPath() const { return entryPath_; }

    // True when the entry exists and neither hides itself nor is switched off for the session.
    bool isEnabled() const override;
    // True writes the entry afresh (so it follows the app when it moved); false removes it.
    std::optional<QString> setEnabled(bool enabled) override;

    // The entry's text for an executable at `executablePath`.
    static QByteArray contents(const QString& executablePath);
    // The Exec value starting `executablePath` with no arguments, quoted and escaped so a launcher
    // reads back exactly that path whatever characters it holds.
    static QString execValue(const QString& executablePath);

private:
    QString entryPath_;
    QString executablePath_;
};

} // namespace mirrowisp
