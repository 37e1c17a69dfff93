#include "integration/Locations.h"

#include <QDir>
#include <mutex>

namespace mirrowisp {

Locations Locations::standard(const QString& home, const std::optional<QString>& xdgConfig) {
    const QString config = xdgConfig.value_or(home + QStringLiteral("/.config"));
    Locations locations;
    locations.home = home;
    locations.dirs = {
        {AgentKind::claude, home + QStringLiteral("/.claude")},
        {AgentKind::codex, home + QStringLiteral("/.codex")},
        {AgentKind::cursor, home + QStringLiteral("/.cursor")},
        {AgentKind::opencode, config + QStringLiteral("/opencode")},
        {AgentKind::amp, config + QStringLiteral("/amp")},
        {AgentKind::devin, config + QStringLiteral("/devin")},
        {AgentKind::gemini, home + QStringLiteral("/.gemini")},
        {AgentKind::copilot, home + QStringLiteral("/.copilot")},
    };
    return locations;
}

namespace AgentEnvironment {

namespace {
std::mutex lock;
std::optional<Locations>& stored() {
    static std::optional<Locations> value;
    return value;
}
} // namespace

Locations current() {
    std::lock_guard guard(lock);
    if (!stored()) {
        stored() = Locations::standard(QDir::homePath());
    }
    return *stored();
}

void setCurrent(const Locations& locations) {
    std::lock_guard guard(lock);
    stored() = locations;
}

} // namespace AgentEnvironment
} // namespace mirrowisp
