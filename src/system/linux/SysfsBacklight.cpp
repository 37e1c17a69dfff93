#include "system/linux/SysfsBacklight.h"

#include "base/Log.h"
#include "base/RegularFile.h"
#include "system/linux/UdevMonitor.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDir>
#include <algorithm>
#include <cmath>

namespace mirrowisp {

namespace {

constexpr qint64 attributeLimit = 64;

int typeRank(const QByteArray& type) {
    if (type == "firmware") {
        return 0;
    }
    return type == "platform" ? 1 : 2;
}

} // namespace

SysfsBacklight::SysfsBacklight(QDBusConnection systemBus, QString root)
    : bus_(std::move(systemBus)), monitor_(std::make_unique<UdevMonitor>("backlight",
                                                                         [this] {
                                                                             if (onHint) {
                                                                                 onHint();
                                                                             }
                                                                         })),
      root_(std::move(root)) {
    choose();
}

SysfsBacklight::~SysfsBacklight() = default;

std::optional<long> SysfsBacklight::number(const QString& file) const {
    const FileRead read =
        readRegularFile(root_ + QLatin1Char('/') + device_ + QLatin1Char('/') + file, attributeLimit);
    bool ok = false;
    const long value = read.ok() ? read.bytes.trimmed().toLong(&ok) : 0;
    return ok && value >= 0 ? std::optional(value) : std::nullopt;
}

void SysfsBacklight::choose() {
    device_.clear();
    max_ = 0;
    int best = 3;
    const QStringList names = QDir(root_).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
    for (const QString& name : names) {
        const FileRead type =
            readRegularFile(root_ + QLatin1Char('/') + name + QStringLiteral("/type"), attributeLimit);
        const int rank = typeRank(type.ok() ? type.bytes.trimmed() : QByteArray());
        const QString previous = device_;
        device_ = name;
        const std::optional<long> max = number(QStringLiteral("max_brightness"));
        if (rank < best && max && *max > 0) {
            best = rank;
            max_ = *max;
        } else {
            device_ = previous;
        }
    }
}

std::optional<double> SysfsBacklight::read() {
    if (device_.isEmpty()) {
        choose(); // a backlight that appears later (a driver loaded after us)
        if (device_.isEmpty()) {
            return std::nullopt;
        }
    }
    const std::optional<long> value = number(QStringLiteral("brightness"));
    if (!value) {
        device_.clear();
        return std::nullopt;
    }
    return std::clamp(static_cast<double>(*value) / static_cast<double>(max_), 0.0, 1.0);
}

bool SysfsBacklight::canWrite() const {
    return !device_.isEmpty() && !*refused_ && bus_.isConnected();
}

void SysfsBacklight::write(double level) {
    if (!canWrite()) {
        return;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.login1"), QStringLiteral("/org/freedesktop/login1/session/auto"),
        QStringLiteral("org.freedesktop.login1.Session"), QStringLiteral("SetBrightness"));
    const auto value =
        static_cast<uint>(std::lround(std::clamp(level, 0.0, 1.0) * static_cast<double>(max_)));
    call.setArguments({QStringLiteral("backlight"), device_, value});
    auto* watcher = new QDBusPendingCallWatcher(bus_.asyncCall(call));
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, [refused = refused_, watcher] {
        watcher->deleteLater();
        const QDBusPendingReply<> reply = *watcher;
        if (reply.isError() && reply.error().type() != QDBusError::NoReply && !*refused) {
            *refused = true;
            logLine(QStringLiteral("Mirrowisp: logind does not set the screen brightness (") +
                    reply.error().message() + QStringLiteral("); its keys stay the desktop's"));
        }
    });
}

} // namespace mirrowisp
