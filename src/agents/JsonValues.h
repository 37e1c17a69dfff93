#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <optional>

namespace mirrowisp::json {

// Agent input is untrusted: a value of the wrong type reads as absent, never as an error.
inline std::optional<QString> string(const QJsonObject& object, QLatin1StringView key) {
    const QJsonValue value = object.value(key);
    return value.isString() ? std::optional<QString>(value.toString()) : std::nullopt;
}

inline std::optional<QJsonObject> object(const QJsonObject& object, QLatin1StringView key) {
    const QJsonValue value = object.value(key);
    return value.isObject() ? std::optional<QJsonObject>(value.toObject()) : std::nullopt;
}

// Deep equality as agents mean it: numbers by value, key order irrelevant.
bool deepEqual(const QJsonValue& a, const QJsonValue& b);

} // namespace mirrowisp::json
