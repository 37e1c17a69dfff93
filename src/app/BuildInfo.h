#pragma once

#include <QString>

namespace mirrowisp::BuildInfo {

// The release, "0" when the build did not say.
QString version();
// The build of that release: the commit it was made from, or "local" outside a checkout.
QString build();
// The checkout it was built from, where files that are installed beside an installed program lie.
QString sourceDirectory();

} // namespace mirrowisp::BuildInfo
