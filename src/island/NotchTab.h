#pragma once

#include <QString>
#include <QStringView>
#include <optional>

namespace mirrowisp {

// The open island's tabs, in the order they stand in its header.
enum class NotchTab { home, agents, shelf };

namespace NotchTabs {
QString rawValue(NotchTab tab);
std::optional<NotchTab> fromRawValue(QStringView raw);
} // namespace NotchTabs

} // namespace mirrowisp
