#pragma once

#include <QString>
#include <optional>

namespace mirrowisp {

// Why a hook change did not happen. `unreadable` is the one the user can act on: a settings file of
// another program that we refuse to touch. The file-system cases come from the backup, the write or a
// deletion, and carry the system's words.
struct HookError {
    enum class Kind { unreadable, fileSystem };

    Kind kind = Kind::unreadable;
    QString path;
    QString detail;

    static HookError unreadable(const QString& path) { return {Kind::unreadable, path, {}}; }
    static HookError fileSystem(const QString& path, const QString& detail) {
        return {Kind::fileSystem, path, detail};
    }

    // The words for the settings pages.
    QString message() const {
        if (kind == Kind::unreadable) {
            return QStringLiteral("Mirrowisp cannot read ") + path +
                   QStringLiteral(". Fix the file, then try again.");
        }
        return QStringLiteral("Mirrowisp could not change ") + path + QStringLiteral(": ") + detail;
    }

    bool operator==(const HookError&) const = default;
};

// The outcome of a hook change: nothing when it was done (or had nothing to do), else the error.
using HookResult = std::optional<HookError>;

} // namespace mirrowisp
