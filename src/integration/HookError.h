#pragma once

#include <QString>
#include <optional>

namespace mirrowisp {

// Why a hook change did not happen. `unreadable` and `unexpected` are the ones the user can act on: a
// settings file of another program that we refuse to touch, because we can't read it (the detail may
// say why, such as "too large to read") or because it holds a value of a shape we don't manage where
// our entries go (the detail names the key, such as "hooks.Stop"). The file-system cases come from
// the backup, the write or a deletion, and carry the system's words.
struct HookError {
    enum class Kind { unreadable, unexpected, fileSystem };

    Kind kind = Kind::unreadable;
    QString path;
    QString detail;

    static HookError unreadable(const QString& path, const QString& reason = {}) {
        return {Kind::unreadable, path, reason};
    }
    static HookError unexpected(const QString& path, const QString& key) {
        return {Kind::unexpected, path, key};
    }
    static HookError fileSystem(const QString& path, const QString& detail) {
        return {Kind::fileSystem, path, detail};
    }

    // The words for the settings pages.
    QString message() const {
        switch (kind) {
        case Kind::unreadable:
            return QStringLiteral("Mirrowisp cannot read ") + path +
                   (detail.isEmpty() ? QString() : QStringLiteral(" (") + detail + QLatin1Char(')')) +
                   QStringLiteral(". Fix the file, then try again.");
        case Kind::unexpected:
            return QStringLiteral("Mirrowisp cannot install: ") + path +
                   QStringLiteral(" has an unexpected ") + detail +
                   QStringLiteral(". Fix the file, then try again.");
        case Kind::fileSystem:
            break;
        }
        return QStringLiteral("Mirrowisp could not change ") + path + QStringLiteral(": ") + detail;
    }

    bool operator==(const HookError&) const = default;
};

// The outcome of a hook change: nothing when it was done (or had nothing to do), else the error.
using HookResult = std::optional<HookError>;

} // namespace mirrowisp
