#include "bridge/BridgeProtocol.h"

#include "bridge/JsonScanner.h"

#include <QDir>
#include <QHash>
#include <QJsonDocument>
#include <QJsonObject>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>

namespace mirrowisp {

std::optional<QString> ProcessContext::value(const QString& name) const {
    if (!environment) {
        return std::nullopt;
    }
    const auto it = environment->constFind(name);
    if (it == environment->constEnd()) {
        return std::nullopt;
    }
    return *it;
}

size_t qHash(const ProcessContext& c, size_t seed) {
    auto combine = [](size_t s, const auto& value) {
        using ::qHash;
        return s ^ (qHash(value, 0) + 0x9e3779b9U + (s << 6) + (s >> 2));
    };
    auto mix = [&](const auto& member) { seed = member ? combine(seed, *member) : combine(seed, QString()); };
    mix(c.tty);
    mix(c.agentPID);
    mix(c.termProgram);
    mix(c.terminalBundleID);
    mix(c.tmuxPane);
    mix(c.ghosttyResourcesDir);
    mix(c.hostSessionID);
    mix(c.entrypoint);
    if (c.environment) {
        for (auto it = c.environment->cbegin(); it != c.environment->cend(); ++it) {
            seed = combine(seed, it.key());
            seed = combine(seed, it.value());
        }
    }
    mix(c.tmuxBinary);
    return seed;
}

namespace BridgeProtocol {

QString supportDirectory() {
    const QString overridden = qEnvironmentVariable("MIRROWISP_SUPPORT_DIR");
    if (!overridden.isEmpty()) {
        return overridden;
    }
    return QDir::homePath() + QStringLiteral("/.mirrowisp");
}

QString socketPath() {
    return supportDirectory() + QStringLiteral("/bridge.sock");
}

namespace {

// Strict Base64: standard alphabet, length a multiple of four, at most two '=' and only at the end,
// no whitespace. Validates and decodes in one pass, since every request carries its event this way.
std::optional<QByteArray> decodeBase64(QByteArrayView text) {
    static constexpr auto table = [] {
        std::array<signed char, 256> values{};
        values.fill(-1);
        const char* alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        for (int i = 0; i < 64; ++i) {
            values[static_cast<unsigned char>(alphabet[i])] = static_cast<signed char>(i);
        }
        return values;
    }();
    const qsizetype size = text.size();
    if (size % 4 != 0) {
        return std::nullopt;
    }
    if (size == 0) {
        return QByteArray();
    }
    const auto* in = reinterpret_cast<const unsigned char*>(text.data());
    const qsizetype padding = in[size - 1] == '=' ? (in[size - 2] == '=' ? 2 : 1) : 0;
    QByteArray out(size / 4 * 3 - padding, Qt::Uninitialized);
    auto* dst = reinterpret_cast<unsigned char*>(out.data());
    const qsizetype fullQuads = size / 4 - (padding > 0 ? 1 : 0);
    for (qsizetype q = 0; q < fullQuads; ++q) {
        const unsigned char* s = in + q * 4;
        const int a = table[s[0]], b = table[s[1]], c = table[s[2]], d = table[s[3]];
        if ((a | b | c | d) < 0) {
            return std::nullopt;
        }
        const uint32_t v = (uint32_t(a) << 18) | (uint32_t(b) << 12) | (uint32_t(c) << 6) | uint32_t(d);
        *dst++ = static_cast<unsigned char>(v >> 16);
        *dst++ = static_cast<unsigned char>(v >> 8);
        *dst++ = static_cast<unsigned char>(v);
    }
    if (padding > 0) {
        const unsigned char* s = in + size - 4;
        const int a = table[s[0]], b = table[s[1]];
        const int c = padding == 1 ? table[s[2]] : 0;
        if ((a | b | c) < 0) {
            return std::nullopt;
        }
        const uint32_t v = (uint32_t(a) << 18) | (uint32_t(b) << 12) | (uint32_t(c) << 6);
        *dst++ = static_cast<unsigned char>(v >> 16);
        if (padding == 1) {
            *dst++ = static_cast<unsigned char>(v >> 8);
        }
    }
    return out;
}

// Reads an optional string member: null is absent, any other type fails the request.
bool readOptionalString(JsonScanner& scanner, std::optional<QString>& out) {
    if (scanner.readNull()) {
        out.reset();
        return true;
    }
    QByteArray bytes;
    if (!scanner.readString(bytes)) {
        return false;
    }
    out = QString::fromUtf8(bytes);
    return true;
}

bool readOptionalInt32(JsonScanner& scanner, std::optional<qint32>& out) {
    if (scanner.readNull()) {
        out.reset();
        return true;
    }
    double number = 0;
    if (!scanner.readNumber(number) || std::trunc(number) != number ||
        number < std::numeric_limits<qint32>::min() || number > std::numeric_limits<qint32>::max()) {
        return false;
    }
    out = static_cast<qint32>(number);
    return true;
}

bool readOptionalEnvironment(JsonScanner& scanner, std::optional<QMap<QString, QString>>& out) {
    if (scanner.readNull()) {
        out.reset();
        return true;
    }
    if (!scanner.beginObject()) {
        return false;
    }
    QMap<QString, QString> environment;
    QByteArray key;
    bool first = true;
    for (;;) {
        const auto next = scanner.nextKey(key, first);
        if (next == JsonScanner::Next::end) {
            break;
        }
        QByteArray value;
        if (next == JsonScanner::Next::error || !scanner.readString(value)) {
            return false;
        }
        environment.insert(QString::fromUtf8(key), QString::fromUtf8(value));
    }
    out = std::move(environment);
    return true;
}

bool readContext(JsonScanner& scanner, ProcessContext& context) {
    if (!scanner.beginObject()) {
        return false;
    }
    QByteArray key;
    bool first = true;
    for (;;) {
        const auto next = scanner.nextKey(key, first);
        if (next == JsonScanner::Next::end) {
            return true;
        }
        if (next == JsonScanner::Next::error) {
            return false;
        }
        bool ok = true;
        if (key == "tty") {
            ok = readOptionalString(scanner, context.tty);
        } else if (key == "agentPID") {
            ok = readOptionalInt32(scanner, context.agentPID);
        } else if (key == "termProgram") {
            ok = readOptionalString(scanner, context.termProgram);
        } else if (key == "terminalBundleID") {
            ok = readOptionalString(scanner, context.terminalBundleID);
        } else if (key == "tmuxPane") {
            ok = readOptionalString(scanner, context.tmuxPane);
        } else if (key == "ghosttyResourcesDir") {
            ok = readOptionalString(scanner, context.ghosttyResourcesDir);
        } else if (key == "hostSessionID") {
            ok = readOptionalString(scanner, context.hostSessionID);
        } else if (key == "entrypoint") {
            ok = readOptionalString(scanner, context.entrypoint);
        } else if (key == "environment") {
            ok = readOptionalEnvironment(scanner, context.environment);
        } else if (key == "tmuxBinary") {
            ok = readOptionalString(scanner, context.tmuxBinary);
        } else {
            ok = scanner.skipValue();
        }
        if (!ok) {
            return false;
        }
    }
}

} // namespace

std::optional<BridgeRequest> decodeRequest(QByteArrayView line) {
    JsonScanner scanner(line);
    if (!scanner.beginObject()) {
        return std::nullopt;
    }
    BridgeRequest request;
    bool hasID = false, hasAgent = false, hasPayload = false, hasExpects = false, hasContext = false;
    QByteArray key;
    bool first = true;
    for (;;) {
        const auto next = scanner.nextKey(key, first);
        if (next == JsonScanner::Next::end) {
            break;
        }
        if (next == JsonScanner::Next::error) {
            return std::nullopt;
        }
        if (key == "id") {
            QByteArray id;
            if (!scanner.readString(id)) {
                return std::nullopt;
            }
            request.id = QString::fromUtf8(id);
            hasID = true;
        } else if (key == "agent") {
            QByteArray raw;
            if (!scanner.readString(raw)) {
                return std::nullopt;
            }
            const auto kind = AgentKinds::fromRawValue(QByteArrayView(raw));
            if (!kind) {
                return std::nullopt;
            }
            request.agent = *kind;
            hasAgent = true;
        } else if (key == "payload") {
            QByteArrayView text;
            QByteArray storage;
            if (!scanner.readString(text, storage)) {
                return std::nullopt;
            }
            auto bytes = decodeBase64(text);
            if (!bytes) {
                return std::nullopt;
            }
            request.payload = std::move(*bytes);
            hasPayload = true;
        } else if (key == "expectsReply") {
            if (!scanner.readBool(request.expectsReply)) {
                return std::nullopt;
            }
            hasExpects = true;
        } else if (key == "context") {
            request.context = ProcessContext{};
            if (!readContext(scanner, request.context)) {
                return std::nullopt;
            }
            hasContext = true;
        } else if (key == "startedAt") {
            double started = 0;
            if (!scanner.readNumber(started)) {
                return std::nullopt;
            }
            request.startedAt = started;
        } else if (!scanner.skipValue()) {
            return std::nullopt;
        }
    }
    if (!scanner.finish() || !(hasID && hasAgent && hasPayload && hasExpects && hasContext)) {
        return std::nullopt;
    }
    return request;
}

QByteArray encodeRequest(const BridgeRequest& request) {
    QJsonObject context;
    const ProcessContext& c = request.context;
    auto put = [&](const char* name, const std::optional<QString>& value) {
        if (value) {
            context.insert(QLatin1StringView(name), *value);
        }
    };
    put("tty", c.tty);
    if (c.agentPID) {
        context.insert(QStringLiteral("agentPID"), *c.agentPID);
    }
    put("termProgram", c.termProgram);
    put("terminalBundleID", c.terminalBundleID);
    put("tmuxPane", c.tmuxPane);
    put("ghosttyResourcesDir", c.ghosttyResourcesDir);
    put("hostSessionID", c.hostSessionID);
    put("entrypoint", c.entrypoint);
    if (c.environment) {
        QJsonObject environment;
        for (auto it = c.environment->cbegin(); it != c.environment->cend(); ++it) {
            environment.insert(it.key(), it.value());
        }
        context.insert(QStringLiteral("environment"), environment);
    }
    put("tmuxBinary", c.tmuxBinary);

    QJsonObject object;
    object.insert(QStringLiteral("id"), request.id);
    object.insert(QStringLiteral("agent"), AgentKinds::rawValue(request.agent));
    object.insert(QStringLiteral("payload"), QString::fromLatin1(request.payload.toBase64()));
    object.insert(QStringLiteral("expectsReply"), request.expectsReply);
    object.insert(QStringLiteral("context"), context);
    if (request.startedAt) {
        object.insert(QStringLiteral("startedAt"), *request.startedAt);
    }
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

std::optional<QByteArray> encodeResponse(const BridgeResponse& response) {
    QJsonObject object;
    object.insert(QStringLiteral("id"), response.id);
    if (response.stdoutText) {
        object.insert(QStringLiteral("stdout"), *response.stdoutText);
    }
    QByteArray json = QJsonDocument(object).toJson(QJsonDocument::Compact);
    if (json.isEmpty()) {
        return std::nullopt;
    }
    return json;
}

} // namespace BridgeProtocol
} // namespace mirrowisp
