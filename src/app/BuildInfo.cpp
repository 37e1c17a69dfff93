#include "app/BuildInfo.h"

namespace mirrowisp::BuildInfo {

QString version() {
#ifdef MIRROWISP_VERSION
    return QStringLiteral(MIRROWISP_VERSION);
#else
    return QStringLiteral("0");
#endif
}

QString build() {
#ifdef MIRROWISP_BUILD
    return QStringLiteral(MIRROWISP_BUILD);
#else
    return QStringLiteral("local");
#endif
}

QString sourceDirectory() {
#ifdef MIRROWISP_SOURCE_DIR
    return QStringLiteral(MIRROWISP_SOURCE_DIR);
#else
    return {};
#endif
}

} // namespace mirrowisp::BuildInfo
