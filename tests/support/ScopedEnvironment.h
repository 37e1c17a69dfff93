#pragma once

#include <QByteArray>
#include <QList>
#include <optional>
#include <utility>

namespace mirrowisp::test {

// Sets or clears variables of the test process, which children inherit; the old values come back
// when it goes.
class ScopedEnvironment {
public:
    ScopedEnvironment() = default;
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;
    ~ScopedEnvironment() {
        for (auto it = saved_.crbegin(); it != saved_.crend(); ++it) {
            if (it->second) {
                qputenv(it->first.constData(), *it->second);
            } else {
                qunsetenv(it->first.constData());
            }
        }
    }

    void set(const char* name, const QByteArray& value) {
        remember(name);
        qputenv(name, value);
    }
    void unset(const char* name) {
        remember(name);
        qunsetenv(name);
    }

private:
    void remember(const char* name) {
        saved_.append({QByteArray(name),
                       qEnvironmentVariableIsSet(name) ? std::optional(qgetenv(name)) : std::nullopt});
    }

    QList<std::pair<QByteArray, std::optional<QByteArray>>> saved_;
};

} // namespace mirrowisp::test
