#include "remote/RemoteFiles.h"

#include "remote/RemoteHost.h"

namespace mirrowisp::RemoteFiles {

namespace {

const QByteArray recordMark = QByteArrayLiteral("@@mirrowisp ");

FileRead::Status statusNamed(const QByteArray& name) {
    if (name == "ok") {
        return FileRead::Status::ok;
    }
    if (name == "notRegular") {
        return FileRead::Status::notRegular;
    }
    if (name == "tooLarge") {
        return FileRead::Status::tooLarge;
    }
    if (name == "failed") {
        return FileRead::Status::failed;
    }
    return FileRead::Status::missing;
}

} // namespace

QString readCommand(const QStringList& files, const QStringList& folders, qint64 limit) {
    // Copied to a temporary file first, so that the size printed is the size of the bytes sent even
    // when the file changes meanwhile, and nothing over the limit is sent at all.
    QString script =
        QStringLiteral("T=$(mktemp) || exit 1; trap 'rm -f \"$T\"' EXIT; "
                       "p() { printf '@@mirrowisp %s %s %s %s\\n' \"$1\" \"$2\" \"$3\" \"$4\"; }; "
                       "d() { if [ -d \"$2\" ]; then p \"$1\" folder 0 0; else p \"$1\" missing 0 0; fi; }; "
                       "f() { if [ ! -e \"$2\" ]; then p \"$1\" missing 0 0; "
                       "elif [ ! -f \"$2\" ]; then p \"$1\" notRegular 0 0; "
                       "elif ! head -c %1 -- \"$2\" > \"$T\" 2>/dev/null; then p \"$1\" failed 0 0; "
                       "else s=$(wc -c < \"$T\" | tr -d ' '); "
                       "if [ \"$s\" -gt %2 ]; then p \"$1\" tooLarge 0 0; "
                       "else p \"$1\" ok \"$(stat -L -c %a -- \"$2\")\" \"$s\"; cat \"$T\"; fi; fi; }; ")
            .arg(limit + 1)
            .arg(limit);
    for (qsizetype i = 0; i < files.size(); ++i) {
        script += QStringLiteral("f %1 %2; ").arg(i).arg(Ssh::quote(files.at(i)));
    }
    for (qsizetype i = 0; i < folders.size(); ++i) {
        script += QStringLiteral("d %1 %2; ").arg(files.size() + i).arg(Ssh::quote(folders.at(i)));
    }
    return script + QStringLiteral("p end end 0 0");
}

Reading parseRead(const QByteArray& output, qsizetype files, qsizetype folders) {
    Reading reading;
    reading.files.resize(files);
    reading.folders.fill(false, folders);
    // Whatever a login script printed first is skipped.
    qsizetype at = output.startsWith(recordMark) ? 0 : output.indexOf('\n' + recordMark);
    if (at < 0) {
        return reading;
    }
    at += output.at(at) == '\n' ? 1 : 0;
    while (at < output.size()) {
        const qsizetype end = output.indexOf('\n', at);
        if (!output.mid(at).startsWith(recordMark) || end < 0) {
            return reading;
        }
        const QList<QByteArray> fields =
            output.mid(at + recordMark.size(), end - at - recordMark.size()).split(' ');
        at = end + 1;
        if (fields.size() != 4) {
            return reading;
        }
        if (fields[0] == "end") {
            reading.complete = true;
            return reading;
        }
        bool numeric = false;
        const qsizetype index = fields[0].toLongLong(&numeric);
        if (!numeric || index < 0 || index >= files + folders) {
            return reading;
        }
        if (index >= files) {
            reading.folders[index - files] = fields[1] == "folder";
            continue;
        }
        FileRead& read = reading.files[index];
        read.status = statusNamed(fields[1]);
        if (read.status == FileRead::Status::failed) {
            read.error = QStringLiteral("cannot read it on the remote host");
        }
        if (read.status != FileRead::Status::ok) {
            continue;
        }
        read.mode = static_cast<mode_t>(fields[2].toUInt(nullptr, 8));
        const qsizetype size = fields[3].toLongLong(&numeric);
        if (!numeric || size < 0 || at + size > output.size()) {
            return reading;
        }
        read.bytes = output.mid(at, size);
        at += size;
    }
    return reading;
}

QString applyCommand(const HookInstaller::FileEdit& edit, const QString& path, const QString& backups,
                     const QDateTime& now) {
    using Action = HookInstaller::FileEdit::Action;
    // A link is followed and its target replaced, as here.
    QString script = QStringLiteral("f=%1; if [ -L \"$f\" ]; then f=$(readlink -f -- \"$f\") || exit 1; fi; ")
                         .arg(Ssh::quote(path));
    if (edit.action == Action::write) {
        script += QStringLiteral("mkdir -p -- \"$(dirname -- \"$f\")\" && n=\"$f.mirrowisp-new.$$\" && "
                                 "(umask 022; cat > \"$n\") && { [ ! -e \"$f\" ] || chmod \"$(stat -L -c %a "
                                 "-- \"$f\")\" -- \"$n\"; } || "
                                 "{ rm -f -- \"$n\"; exit 6; }; ");
    }
    if (edit.backup) {
        const QString name = HookInstaller::backupName(path, now);
        const QString stem = HookInstaller::backupStem(path);
        // The same content twice in a row would only push older backups out; within one second the
        // next free suffix is taken; the folder holds secrets and is the user's alone. Joined rather
        // than filled in with arg(), which would read printf's "%02d" as a place of its own.
        script +=
            QStringLiteral("B=") + Ssh::quote(backups) + QStringLiteral("; b=\"$B\"/") + Ssh::quote(name) +
            QStringLiteral("; if [ -f \"$f\" ]; then "
                           "mkdir -p -- \"$B\" && chmod 700 -- \"$B\" \"$(dirname -- \"$B\")\" || exit 5; "
                           "l=; for x in \"$B\"/") +
            Ssh::quote(stem) +
            QStringLiteral("-*; do [ -e \"$x\" ] && l=$x; done; "
                           "if [ -z \"$l\" ] || ! cmp -s -- \"$f\" \"$l\"; then "
                           "i=1; while [ -e \"$b\" ]; do b=\"$B\"/") +
            Ssh::quote(name) +
            QStringLiteral(
                "-$(printf %02d $i); i=$((i+1)); done; cp -p -- \"$f\" \"$b\" || exit 5; fi; fi; ");
    }
    if (edit.action == Action::write) {
        script += QStringLiteral("mv -f -- \"$n\" \"$f\" || { rm -f -- \"$n\"; exit 6; }");
    } else if (edit.action == Action::remove) {
        script += QStringLiteral("rm -f -- \"$f\" || exit 6");
    } else {
        script += QStringLiteral("true");
    }
    return script;
}

} // namespace mirrowisp::RemoteFiles
