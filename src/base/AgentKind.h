#pragma once

#include <QString>
#include <array>
#include <optional>

namespace mirrowisp {

// The eight agents, in the order every per-agent list of the app follows.
// The raw value is the wire value and the suffix of per-agent settings keys.
enum class AgentKind { claude, codex, cursor, opencode, amp, devin, gemini, copilot };

// An sRGB colour with opacity 1, kept free of QtGui so the logic library stays QtCore-only.
struct AccentColor {
    double red = 0, green = 0, blue = 0;
    bool operator==(const AccentColor&) const = default;
};

namespace AgentKinds {

inline constexpr std::array<AgentKind, 8> all = {AgentKind::claude,   AgentKind::codex,  AgentKind::cursor,
                                                 AgentKind::opencode, AgentKind::amp,    AgentKind::devin,
                                                 AgentKind::gemini,   AgentKind::copilot};

QString rawValue(AgentKind kind);
std::optional<AgentKind> fromRawValue(QStringView raw);
// Same as fromRawValue, for the bridge's UTF-8 bytes without building a QString.
std::optional<AgentKind> fromRawValue(QByteArrayView raw);
QString displayName(AgentKind kind);
QString getTitle(AgentKind kind);
AccentColor accent(AgentKind kind);
QString downloadURL(AgentKind kind);

} // namespace AgentKinds
} // namespace mirrowisp
