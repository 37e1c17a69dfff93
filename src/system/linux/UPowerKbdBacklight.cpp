#include "system/linux/UPowerKbdBacklight.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <algorithm>
#include <cmath>

namespace mirrowisp {

namespace {

const QString service = QStringLiteral("org.freedesktop.UPower");
const QString path = QStringLiteral("/org/freedesktop/UPower/KbdBacklight");
const QString interface = QStringLiteral("org.freedesktop.UPower.KbdBacklight");

} // namespace

UPowerKbdBacklight::UPowerKbdBacklight(QDBusConnection systemBus) : bus_(std::move(systemBus)) {
    bus_.connect(service, path, interface, QStringLiteral("BrightnessChanged"), this,
                 SLOT(brightnessChanged(int)));
    ask(QStringLiteral("GetMaxBrightness"));
}

std::optional<double> UPowerKbdBacklight::read() {
    ask(max_ > 0 ? QStringLiteral("GetBrightness") : QStringLiteral("GetMaxBrightness"));
    if (max_ <= 0 || !value_) {
        return std::nullopt;
    }
    return std::clamp(static_cast<double>(*value_) / max_, 0.0, 1.0);
}

void UPowerKbdBacklight::write(double level) {
    if (max_ <= 0) {
        return;
    }
    const int value = static_cast<int>(std::lround(std::clamp(level, 0.0, 1.0) * max_));
    value_ = value;
    QDBusMessage call =
        QDBusMessage::createMethodCall(service, path, interface, QStringLiteral("SetBrightness"));
    call.setArguments({value});
    bus_.asyncCall(call);
}

void UPowerKbdBacklight::brightnessChanged(int value) {
    value_ = value;
    if (onHint) {
        onHint();
    }
}

void UPowerKbdBacklight::ask(const QString& method) {
    if (asking_ || !bus_.isConnected()) {
        return;
    }
    asking_ = true;
    auto* watcher = new QDBusPendingCallWatcher(
        bus_.asyncCall(QDBusMessage::createMethodCall(service, path, interface, method)), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, method] {
        watcher->deleteLater();
        const QDBusPendingReply<int> reply = *watcher;
        answered(method, reply.isValid() ? std::optional(reply.value()) : std::nullopt);
    });
}

void UPowerKbdBacklight::answered(const QString& method, std::optional<int> value) {
    asking_ = false;
    if (!value) {
        max_ = 0; // gone, or never there: asked again on the next reading
        value_.reset();
        return;
    }
    if (method == QLatin1String("GetMaxBrightness")) {
        max_ = *value;
        if (max_ > 0) {
            ask(QStringLiteral("GetBrightness"));
        }
    } else {
        value_ = *value;
    }
}

} // namespace mirrowisp
