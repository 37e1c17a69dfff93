#include "base/Log.h"

#include <QDebug>

namespace mirrowisp {

void logLine(const QString& message) {
    static const QString prefix = QStringLiteral("Mirrowisp");
    QString line = message.startsWith(prefix) ? message : QStringLiteral("Mirrowisp: ") + message;
    line.replace(QLatin1Char('\n'), QLatin1Char(' '));
    qInfo().noquote() << line;
}

} // namespace mirrowisp
