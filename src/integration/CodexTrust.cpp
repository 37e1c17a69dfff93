// Codex runs a hook only after the user trusted it, and records that trust by hash in its config.toml.
// Only one kind of table matters there, so the file is scanned by hand rather than parsed as TOML.

#include "base/RegularFile.h"
#include "base/UserDefaults.h"
#include "integration/HookInstaller.h"
#include "integration/Locations.h"

#include <QJsonObject>
#include <QStringDecoder>

namespace mirrowisp::HookInstaller {

namespace {

QString trimmedBlanks(QStringView text) {
    qsizetype start = 0;
    qsizetype end = text.size();
    while (start < end && (text[start] == QLatin1Char(' ') || text[start] == QLatin1Char('\t'))) {
        ++start;
    }
    while (end > start && (text[end - 1] == QLatin1Char(' ') || text[end - 1] == QLatin1Char('\t'))) {
        --end;
    }
    return text.mid(start, end - start).toString();
}

QString trimmedQuotes(const QString& text) {
    qsizetype start = 0;
    qsizetype end = text.size();
    while (start < end && text[start] == QLatin1Char('"')) {
        ++start;
    }
    while (end > start && text[end - 1] == QLatin1Char('"')) {
        --end;
    }
    return text.mid(start, end - start);
}

std::optional<QString> configText(const QString& path) {
    const FileRead read = readRegularFile(path);
    if (!read.ok()) {
        return std::nullopt;
    }
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder(read.bytes);
    if (decoder.hasError()) {
        return std::nullopt;
    }
    return text;
}

QStringList codexEvents() {
    return integration(AgentKind::codex).events;
}

// The stale snapshot, or nothing usable unless every value is a string.
QMap<QString, QString> staleHashes(const UserDefaults& defaults) {
    QMap<QString, QString> hashes;
    const std::optional<QJsonObject> stored = defaults.dictionary(staleCodexTrustHashesKey);
    if (!stored) {
        return hashes;
    }
    for (auto it = stored->begin(); it != stored->end(); ++it) {
        if (!it.value().isString()) {
            return {};
        }
        hashes.insert(it.key(), it.value().toString());
    }
    return hashes;
}

} // namespace

QString snakeCase(const QString& name) {
    QString result;
    result.reserve(name.size() + 8);
    for (qsizetype i = 0; i < name.size(); ++i) {
        const QChar c = name[i];
        result.append(c);
        const bool lower = c >= QLatin1Char('a') && c <= QLatin1Char('z');
        if (lower && i + 1 < name.size() && name[i + 1] >= QLatin1Char('A') &&
            name[i + 1] <= QLatin1Char('Z')) {
            result.append(QLatin1Char('_'));
        }
    }
    return result.toLower();
}

QMap<QString, CodexTrust> codexTrustStates() {
    const QString dir = AgentEnvironment::current().dir(AgentKind::codex);
    QMap<QString, CodexTrust> states;
    const std::optional<QString> text = configText(dir + QStringLiteral("/config.toml"));
    if (!text) {
        return states;
    }
    // Records for a hooks.json elsewhere (an old CODEX_HOME) don't count.
    const QString prefix = QStringLiteral("[hooks.state.\"") + dir + QStringLiteral("/hooks.json:");

    // The record being read, if the current section is one of ours.
    bool inRecord = false;
    QString event;
    CodexTrust record;
    const auto store = [&] {
        if (inRecord) {
            states.insert(event, record);
        }
        inRecord = false;
    };
    for (const QStringView raw : QStringView(*text).split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        const QString line = trimmedBlanks(raw);
        if (line.isEmpty()) {
            continue;
        }
        if (line.startsWith(QLatin1Char('['))) {
            store();
            if (line.startsWith(prefix)) {
                const QString rest = line.mid(prefix.size());
                const qsizetype colon = rest.indexOf(QLatin1Char(':'));
                if (colon >= 0) {
                    inRecord = true;
                    event = rest.left(colon);
                    record = CodexTrust{};
                }
            }
            continue;
        }
        if (!inRecord) {
            continue;
        }
        const qsizetype equals = line.indexOf(QLatin1Char('='));
        if (equals <= 0 || equals == line.size() - 1) {
            continue; // not a key with a value
        }
        const QString key = trimmedBlanks(QStringView(line).left(equals));
        const QString value = trimmedBlanks(QStringView(line).mid(equals + 1));
        if (key == QStringLiteral("trusted_hash")) {
            record.hash = trimmedQuotes(value);
        } else if (key == QStringLiteral("enabled")) {
            record.enabled = value != QStringLiteral("false");
        }
    }
    store();
    return states;
}

CodexHookStatus codexHookStatus(const UserDefaults& defaults) {
    return codexHookStatus(readCodexTrust(), defaults);
}

CodexTrustReading readCodexTrust() {
    const bool installed = isInstalled(AgentKind::codex);
    return {installed, installed ? codexTrustStates() : QMap<QString, CodexTrust>()};
}

CodexHookStatus codexHookStatus(const CodexTrustReading& reading, const UserDefaults& defaults) {
    if (!reading.installed) {
        return CodexHookStatus::ready; // nothing to approve
    }
    const QMap<QString, CodexTrust>& states = reading.states;
    const QMap<QString, QString> stale = staleHashes(defaults);
    const QStringList events = codexEvents();
    // One untrusted event outranks a disabled one.
    for (const QString& event : events) {
        const QString key = snakeCase(event);
        const auto record = states.constFind(key);
        if (record == states.constEnd() || !record->hash) {
            return CodexHookStatus::needsApproval;
        }
        // A hash Codex trusted before we rewrote the file is no trust in what is there now.
        const auto old = stale.constFind(key);
        if (old != stale.constEnd() && *old == *record->hash) {
            return CodexHookStatus::needsApproval;
        }
    }
    for (const QString& event : events) {
        if (!states.value(snakeCase(event)).enabled) {
            return CodexHookStatus::disabled;
        }
    }
    return CodexHookStatus::ready;
}

QJsonObject codexTrustSnapshot() {
    QJsonObject snapshot;
    const QMap<QString, CodexTrust> states = codexTrustStates();
    for (auto it = states.begin(); it != states.end(); ++it) {
        if (it->hash) {
            snapshot.insert(it.key(), *it->hash);
        }
    }
    return snapshot;
}

AgentSetup setup(AgentKind kind, std::optional<Timestamp> lastSeen, const UserDefaults& defaults,
                 const AgentPresence& agentIsInstalled) {
    if (const HookResult refused = problem(kind)) {
        AgentSetup state = AgentSetup::unreadableConfig(refused->path);
        if (refused->kind == HookError::Kind::unexpected) {
            state.unexpectedKey = refused->detail;
        }
        return state;
    }

    if (isInstalled(kind)) {
        if (kind == AgentKind::codex) {
            switch (codexHookStatus(defaults)) {
            case CodexHookStatus::needsApproval:
                return AgentSetup::of(AgentSetup::Kind::codexNeedsApproval);
            case CodexHookStatus::disabled:
                return AgentSetup::of(AgentSetup::Kind::codexHooksOff);
            case CodexHookStatus::ready:
                break;
            }
        }
        return AgentSetup::connected(lastSeen);
    }
    // An agent seen in this run is installed, whatever the file system says.
    if (!lastSeen && !(agentIsInstalled && agentIsInstalled(kind))) {
        return AgentSetup::of(AgentSetup::Kind::notInstalled);
    }
    return AgentSetup::of(isDisconnectedByUser(kind, defaults) ? AgentSetup::Kind::disconnected
                                                               : AgentSetup::Kind::notConnected);
}

} // namespace mirrowisp::HookInstaller
