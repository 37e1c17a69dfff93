#pragma once

#include "base/Clock.h"

#include <QString>
#include <QUrl>
#include <optional>

namespace mirrowisp {

class UserDefaults;

// Notices that the app was updated and keeps that fact for three days, for the tray's
// "What's New in X" item and the island's "updated" flash.
namespace WhatsNew {

// Compares dotted versions number by number ("1.10" after "1.9"); negative, zero or positive.
int compareVersions(QStringView a, QStringView b);

// Records `current` as the last launched version; answers it when it is newer than the version
// launched before (a first launch and a downgrade answer nothing).
std::optional<QString> checkAtLaunch(UserDefaults& defaults, const QString& current, Timestamp now);

// The version of an update noticed less than three days ago, while it is still the running one.
std::optional<QString> recentUpdate(const UserDefaults& defaults, const QString& current, Timestamp now);

// The installed changelog at the version's heading.
QUrl changelogURL(const QString& version);

} // namespace WhatsNew

} // namespace mirrowisp
