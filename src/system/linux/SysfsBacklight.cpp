#include "system/linux/SysfsBacklight.h"

#include "base/Log.h"
#include "base/MainQueue.h"
#include "base/RegularFile.h"
#include "base/SerialQueue.h"
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

std::optional<long> number(const QString& root, const QString& device, const char* file) {
    const FileRead read = readRegularFile(
        root + QLatin1Char('/') + device + QLatin1Char('/') + QLatin1String(file), attributeLimit);
    bool ok = false;
    const long value = read.ok() ? read.bytes.trimmed().toLong(&ok) : 0;
    return ok && value >= 0 ? std::optional(value) : std::nullopt;
}

// The best backlight under `root`: a maximum of 0 is no backlight at all.
std::optional<SysfsBacklight::Reading> readBacklight(const QString& root, const QString& current) {
    QString device = current;
    long max = device.isEmpty() ? 0 : number(root, device, "max_brightness").value_or(0);
    if (max <= 0) {
        device.clear();
        int best = 3;
        for (const QString& name : QDir(root).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name)) {
            const FileRead type =
                readRegularFile(root + QLatin1Char('/') + name + QStringLiteral("/type"), attributeLimit);
            const int rank = typeRank(type.ok() ? type.bytes.trimmed() : QByteArray());
            const long candidate = number(root, name, "max_brightness").value_or(0);
            if (rank < best && candidate > 0) {
                best = rank;
                device = name;
                max = candidate;
            }
        }
    }
    const std::optional<long> value = device.isEmpty() ? std::nullopt : number(root, device, "brightness");
    if (!value) {
        return std::nullopt;
    }
    return SysfsBacklight::Reading{device, max, std::min(*value, max)};
}

} // namespace

struct SysfsBacklight::State {
    std::optional<Reading> reading;
    bool asking = false;
    bool refused = false;
};

SysfsBacklight::SysfsBacklight(QDBusConnection systemBus, QString root)
    : bus_(std::move(systemBus)), root_(std::move(root)), state_(std::make_shared<State>()),
      reader_(std::make_unique<SerialQueue>("mirrowisp.backlight")),
      monitor_(std::make_unique<UdevMonitor>("backlight", [this] {
          if (onHint) {
              onHint();
          }
      })) {
    ask();
}

SysfsBacklight::~SysfsBacklight() = default;

std::optional<SysfsBacklight::Reading> SysfsBacklight::lastReading() const {
    return state_->reading;
}

void SysfsBacklight::ask() {
    if (state_->asking) {
        return;
    }
    state_->asking = true;
    const QString current = state_->reading ? state_->reading->device : QString();
    reader_->async([root = root_, current, weak = std::weak_ptr<State>(state_)] {
        std::optional<Reading> reading = readBacklight(root, current);
        postToMain([weak, reading = std::move(reading)] {
            if (auto state = weak.lock()) {
                state->asking = false;
                state->reading = reading;
            }
        });
    });
}

std::optional<double> SysfsBacklight::read() {
    ask();
    const std::optional<Reading>& reading = state_->reading;
    if (!reading) {
        return std::nullopt;
    }
    return static_cast<double>(reading->value) / static_cast<double>(reading->max);
}

bool SysfsBacklight::canWrite() const {
    return state_->reading && !state_->refused && bus_.isConnected();
}

void SysfsBacklight::write(double level) {
    if (!canWrite()) {
        return;
    }
    Reading& reading = *state_->reading;
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.login1"), QStringLiteral("/org/freedesktop/login1/session/auto"),
        QStringLiteral("org.freedesktop.login1.Session"), QStringLiteral("SetBrightness"));
    const auto value = std::lround(std::clamp(level, 0.0, 1.0) * static_cast<double>(reading.max));
    call.setArguments({QStringLiteral("backlight"), reading.device, static_cast<uint>(value)});
    reading.value = value; // until the next reading, our own level
    auto* watcher = new QDBusPendingCallWatcher(bus_.asyncCall(call));
    QObject::connect(
        watcher, &QDBusPendingCallWatcher::finished, [weak = std::weak_ptr<State>(state_), watcher] {
            watcher->deleteLater();
            const QDBusPendingReply<> reply = *watcher;
            auto state = weak.lock();
            if (state && reply.isError() && reply.error().type() != QDBusError::NoReply && !state->refused) {
                state->refused = true;
                logLine(QStringLiteral("Mirrowisp: logind does not set the screen brightness (") +
                        reply.error().message() + QStringLiteral("); its keys stay the desktop's"));
            }
        });
}

} // namespace mirrowisp
