#include "agents/JsonValues.h"

namespace mirrowisp::json {

bool deepEqual(const QJsonValue& a, const QJsonValue& b) {
    if (a.type() != b.type()) {
        return false;
    }
    switch (a.type()) {
    case QJsonValue::Double:
        return a.toDouble() == b.toDouble();
    case QJsonValue::Array: {
        const QJsonArray left = a.toArray();
        const QJsonArray right = b.toArray();
        if (left.size() != right.size()) {
            return false;
        }
        for (qsizetype i = 0; i < left.size(); ++i) {
            if (!deepEqual(left.at(i), right.at(i))) {
                return false;
            }
        }
        return true;
    }
    case QJsonValue::Object: {
        const QJsonObject left = a.toObject();
        const QJsonObject right = b.toObject();
        if (left.size() != right.size()) {
            return false;
        }
        for (auto it = left.constBegin(); it != left.constEnd(); ++it) {
            const auto other = right.constFind(it.key());
            if (other == right.constEnd() || !deepEqual(it.value(), other.value())) {
                return false;
            }
        }
        return true;
    }
    default:
        return a == b;
    }
}

} // namespace mirrowisp::json
