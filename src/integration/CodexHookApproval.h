#pragma once

#include <QLatin1String>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <functional>

namespace mirrowisp::CodexHookApproval {

inline constexpr QLatin1String appIdentifier{"com.openai.codex"};
inline constexpr QLatin1String settingsURL{"codex://settings"};

// Answers whether a desktop app with the given identifier is installed (a desktop entry lookup).
using AppLookup = std::function<bool(const QString& identifier)>;
// Opens a URL through the desktop; answers whether something took it.
using UrlOpener = std::function<bool(const QUrl& url)>;

// Whether Codex's desktop app is here; without a lookup, no.
bool isAppInstalled(const AppLookup& lookup);

// Where the user was taken, and the steps that remain for them.
struct Guidance {
    bool openedSettings = false;
    QStringList steps;
    bool operator==(const Guidance&) const = default;
};

// Takes the user to where Codex's hooks are approved: Codex's settings when its desktop app is here,
// else only the steps for approving in a terminal. No window is driven for the user: the steps say
// where to click.
Guidance open(const AppLookup& lookup, const UrlOpener& openUrl);

} // namespace mirrowisp::CodexHookApproval
