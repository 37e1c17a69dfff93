#include "agents/TranscriptReader.h"

#include "agents/AgentStoreText.h"

#include <QByteArrayView>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QStringList>
#include <algorithm>

namespace mirrowisp::TranscriptReader {

namespace {

// The lines within the last `bytes` of a file, pointing into `data`.
struct Tail {
    QByteArray data;
    QList<QByteArrayView> lines;
};

Tail readTail(const QString& path, qint64 bytes) {
    Tail tail;
    // Only regular files: opening a FIFO would wait for a writer, and a device has no end to seek to.
    if (bytes <= 0 || !QFileInfo(path).isFile()) {
        return tail;
    }
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return tail;
    }
    const qint64 size = file.size();
    const bool startsInside = size > bytes;
    if (startsInside && !file.seek(size - bytes)) {
        return tail;
    }
    // Bounded even if the file grows meanwhile: a line cut at the end fails to parse like any other.
    tail.data = file.read(std::min(size, bytes));

    const QByteArrayView data(tail.data);
    qsizetype start = 0;
    bool first = true;
    while (start <= data.size()) {
        qsizetype end = data.indexOf('\n', start);
        if (end < 0) {
            end = data.size();
        }
        // Reading that began inside the file began inside a line, whose rest is no object.
        if (!(first && startsInside) && end > start) {
            tail.lines.append(data.sliced(start, end - start));
        }
        first = false;
        start = end + 1;
    }
    return tail;
}

std::optional<QJsonObject> parseObject(QByteArrayView line) {
    QJsonParseError error;
    const QJsonDocument document =
        QJsonDocument::fromJson(QByteArray::fromRawData(line.data(), line.size()), &error);
    if (error.error != QJsonParseError::NoError || !document.isObject()) {
        return std::nullopt;
    }
    return document.object();
}

// Asks `decide` about each object of the file's tail, from the last back, until one answers. Lines are
// parsed only as far back as the walk goes.
template <typename Decide>
auto walkBack(const QString& path, qint64 bytes, Decide decide) -> decltype(decide(QJsonObject())) {
    const Tail tail = readTail(path, bytes);
    for (auto line = tail.lines.crbegin(); line != tail.lines.crend(); ++line) {
        if (const auto object = parseObject(*line)) {
            if (auto answer = decide(*object)) {
                return answer;
            }
        }
    }
    return std::nullopt;
}

template <typename Decide>
auto walkBack(const QList<QJsonObject>& objects, Decide decide) -> decltype(decide(QJsonObject())) {
    for (auto object = objects.crbegin(); object != objects.crend(); ++object) {
        if (auto answer = decide(*object)) {
            return answer;
        }
    }
    return std::nullopt;
}

QString stringAt(const QJsonObject& object, QLatin1StringView key) {
    return object.value(key).toString(); // anything but a string reads as empty
}

bool flagged(const QJsonObject& object, QLatin1StringView key) {
    return object.value(key).toBool(false);
}

// Codex's records carry what matters in their `payload`.
std::optional<QJsonObject> codexPayload(const QJsonObject& record) {
    const QJsonValue payload = record.value(QLatin1StringView("payload"));
    if (!payload.isObject()) {
        return std::nullopt;
    }
    return payload.toObject();
}

// A Claude message's text: the content string, or the text blocks of a content list joined with blanks.
QString messageText(const QJsonObject& record) {
    const QJsonValue content =
        record.value(QLatin1StringView("message")).toObject().value(QLatin1StringView("content"));
    if (content.isString()) {
        return content.toString();
    }
    QStringList texts;
    for (const QJsonValue& block : content.toArray()) {
        const QJsonObject fields = block.toObject();
        const QJsonValue text = fields.value(QLatin1StringView("text"));
        if (stringAt(fields, QLatin1StringView("type")) == QLatin1StringView("text") && text.isString()) {
            texts.append(text.toString());
        }
    }
    return texts.join(QLatin1Char(' '));
}

// A text found goes back condensed; one that condenses to nothing is no message, so the walk goes on.
std::optional<QString> condensedMessage(const QString& text) {
    if (text.isEmpty()) {
        return std::nullopt;
    }
    QString condensed = AgentStoreText::condense(text);
    if (condensed.isEmpty()) {
        return std::nullopt;
    }
    return condensed;
}

std::optional<bool> turnDecision(const QJsonObject& record, AgentKind agent) {
    if (agent == AgentKind::codex) {
        const auto payload = codexPayload(record);
        if (!payload) {
            return std::nullopt;
        }
        const QString type = stringAt(*payload, QLatin1StringView("type"));
        if (type == QLatin1StringView("task_complete") || type == QLatin1StringView("turn_aborted")) {
            return true;
        }
        if (type == QLatin1StringView("task_started")) {
            return false;
        }
        return std::nullopt;
    }
    const QString type = stringAt(record, QLatin1StringView("type"));
    if (type == QLatin1StringView("system")) {
        const QString subtype = stringAt(record, QLatin1StringView("subtype"));
        if (subtype == QLatin1StringView("turn_duration") ||
            subtype == QLatin1StringView("stop_hook_summary")) {
            return true;
        }
        return std::nullopt;
    }
    // A turn's closing record comes after its last message; until it is written the turn goes on.
    if (type == QLatin1StringView("user") || type == QLatin1StringView("assistant")) {
        return false;
    }
    return std::nullopt;
}

std::optional<QString> assistantMessage(const QJsonObject& record, AgentKind agent) {
    if (agent == AgentKind::codex) {
        const auto payload = codexPayload(record);
        if (!payload) {
            return std::nullopt;
        }
        const QString type = stringAt(*payload, QLatin1StringView("type"));
        if (type == QLatin1StringView("task_complete")) {
            return condensedMessage(stringAt(*payload, QLatin1StringView("last_agent_message")));
        }
        if (type == QLatin1StringView("agent_message")) {
            return condensedMessage(stringAt(*payload, QLatin1StringView("message")));
        }
        return std::nullopt;
    }
    if (stringAt(record, QLatin1StringView("type")) != QLatin1StringView("assistant")) {
        return std::nullopt;
    }
    // A record of tool calls only has no text: the answer is in an earlier one.
    return condensedMessage(messageText(record));
}

std::optional<QString> typedPrompt(const QString& text) {
    // Slash-command wrappers, pastes alone and machine-made text give nothing; the walk goes on.
    const auto preview = AgentStoreText::promptPreview(text);
    if (!preview) {
        return std::nullopt;
    }
    return AgentStoreText::condense(*preview);
}

std::optional<QString> userPrompt(const QJsonObject& record, AgentKind agent) {
    if (agent == AgentKind::codex) {
        const auto payload = codexPayload(record);
        if (!payload || stringAt(*payload, QLatin1StringView("type")) != QLatin1StringView("user_message")) {
            return std::nullopt;
        }
        const QJsonValue message = payload->value(QLatin1StringView("message"));
        return message.isString() ? typedPrompt(message.toString()) : std::nullopt;
    }
    // Meta records are the agent talking to itself, and a compact summary is the agent's own digest.
    if (stringAt(record, QLatin1StringView("type")) != QLatin1StringView("user") ||
        flagged(record, QLatin1StringView("isMeta")) ||
        flagged(record, QLatin1StringView("isCompactSummary")) ||
        stringAt(record, QLatin1StringView("subtype")) == QLatin1StringView("stop_hook_summary")) {
        return std::nullopt;
    }
    return typedPrompt(messageText(record));
}

} // namespace

QList<QJsonObject> tailObjects(const QString& path, qint64 bytes) {
    const Tail tail = readTail(path, bytes);
    QList<QJsonObject> objects;
    objects.reserve(tail.lines.size());
    for (const QByteArrayView line : tail.lines) {
        if (auto object = parseObject(line)) {
            objects.append(std::move(*object));
        }
    }
    return objects;
}

std::optional<QString> lastAssistantMessage(const QString& path, AgentKind agent) {
    return walkBack(path, lastAssistantMessageBytes,
                    [agent](const QJsonObject& record) { return assistantMessage(record, agent); });
}

std::optional<QString> lastAssistantMessage(const QList<QJsonObject>& objects, AgentKind agent) {
    return walkBack(objects, [agent](const QJsonObject& record) { return assistantMessage(record, agent); });
}

std::optional<QString> lastUserPrompt(const QString& path, AgentKind agent) {
    return walkBack(path, lastUserPromptBytes,
                    [agent](const QJsonObject& record) { return userPrompt(record, agent); });
}

std::optional<QString> lastUserPrompt(const QList<QJsonObject>& objects, AgentKind agent) {
    return walkBack(objects, [agent](const QJsonObject& record) { return userPrompt(record, agent); });
}

bool turnIsOver(const QString& path, AgentKind agent) {
    return walkBack(path, turnIsOverBytes,
                    [agent](const QJsonObject& record) { return turnDecision(record, agent); })
        .value_or(false);
}

bool turnIsOver(const QList<QJsonObject>& objects, AgentKind agent) {
    return walkBack(objects, [agent](const QJsonObject& record) { return turnDecision(record, agent); })
        .value_or(false);
}

} // namespace mirrowisp::TranscriptReader
