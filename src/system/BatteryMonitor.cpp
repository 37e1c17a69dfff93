#include "system/BatteryMonitor.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QDBusVariant>
#include <cmath>
#include <memory>

namespace mirrowisp {

namespace {

const QString upower = QStringLiteral("org.freedesktop.UPower");
const QString upowerPath = QStringLiteral("/org/freedesktop/UPower");
const QString displayDevice = QStringLiteral("/org/freedesktop/UPower/devices/DisplayDevice");
const QString deviceInterface = QStringLiteral("org.freedesktop.UPower.Device");
const QString properties = QStringLiteral("org.freedesktop.DBus.Properties");

// The daemon's old name and the one newer systems use.
struct ProfileService {
    QString name, path, interface;
};
const ProfileService profileServices[] = {
    {QStringLiteral("net.hadess.PowerProfiles"), QStringLiteral("/net/hadess/PowerProfiles"),
     QStringLiteral("net.hadess.PowerProfiles")},
    {QStringLiteral("org.freedesktop.UPower.PowerProfiles"),
     QStringLiteral("/org/freedesktop/UPower/PowerProfiles"),
     QStringLiteral("org.freedesktop.UPower.PowerProfiles")},
};

constexpr uint batteryType = 2;
constexpr uint chargingState = 1;
constexpr int thresholds[] = {20, 10, 5};

// A value of the wrong type counts as missing.
std::optional<double> number(const QVariantMap& map, const char* key) {
    const QVariant value = map.value(QLatin1String(key));
    switch (value.typeId()) {
    case QMetaType::Double:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::UChar:
    case QMetaType::Short:
    case QMetaType::UShort:
        return value.toDouble();
    default:
        return std::nullopt;
    }
}

std::optional<bool> flag(const QVariantMap& map, const char* key) {
    const QVariant value = map.value(QLatin1String(key));
    return value.typeId() == QMetaType::Bool ? std::optional(value.toBool()) : std::nullopt;
}

std::optional<double> minutes(const QVariantMap& map, const char* key) {
    const auto seconds = number(map, key);
    return seconds ? std::optional(*seconds / 60.0) : std::nullopt;
}

// What UPower's display device and its "OnBattery" say, in the monitor's terms.
PowerSource describe(const QVariantMap& device, const QVariantMap& daemon) {
    PowerSource source;
    source.internalBattery =
        number(device, "Type") == batteryType && flag(device, "IsPresent").value_or(false);
    const auto energy = number(device, "Energy");
    const auto full = number(device, "EnergyFull");
    if (energy && full && *full > 0) {
        source.currentCapacity = *energy;
        source.maxCapacity = *full;
    } else {
        source.currentCapacity = number(device, "Percentage").value_or(0);
    }
    source.acPower = !flag(daemon, "OnBattery").value_or(false);
    source.isCharging = number(device, "State") == chargingState;
    source.minutesToFull = minutes(device, "TimeToFull");
    source.minutesToEmpty = minutes(device, "TimeToEmpty");
    return source;
}

void getAll(QDBusConnection& bus, const QString& service, const QString& path, const QString& interface,
            QObject* context, std::function<void(std::optional<QVariantMap>)> done) {
    QDBusMessage call = QDBusMessage::createMethodCall(service, path, properties, QStringLiteral("GetAll"));
    call.setArguments({interface});
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call), context);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, context, [watcher, done = std::move(done)] {
        watcher->deleteLater();
        const QDBusPendingReply<QVariantMap> reply = *watcher;
        done(reply.isValid() ? std::optional(reply.value()) : std::nullopt);
    });
}

} // namespace

BatteryMonitor::BatteryMonitor(QDBusConnection systemBus, QObject* parent)
    : QObject(parent), bus_(std::move(systemBus)) {
    // UPower reports one property at a time on some systems: read once they have settled.
    settle_.setSingleShot(true);
    settle_.setInterval(50);
    connect(&settle_, &QTimer::timeout, this, [this] { read(true); });
}

BatteryMonitor::~BatteryMonitor() = default;

void BatteryMonitor::start() {
    if (watcher_ || !bus_.isConnected()) {
        return;
    }
    for (const QString& path : {displayDevice, upowerPath}) {
        bus_.connect(upower, path, properties, QStringLiteral("PropertiesChanged"), this,
                     SLOT(upowerChanged()));
    }
    QStringList names{upower};
    for (const auto& service : profileServices) {
        bus_.connect(service.name, service.path, properties, QStringLiteral("PropertiesChanged"), this,
                     SLOT(profileChanged(QString, QVariantMap, QStringList)));
        names << service.name;
    }
    watcher_ = std::make_unique<QDBusServiceWatcher>(upower, bus_, QDBusServiceWatcher::WatchForRegistration);
    watcher_->setWatchedServices(names);
    connect(watcher_.get(), &QDBusServiceWatcher::serviceRegistered, this, [this](const QString& name) {
        // A service that comes back is a first reading again.
        name == upower ? read(false) : readProfiles();
    });
    read(false);
    readProfiles();
}

void BatteryMonitor::upowerChanged() {
    if (!settle_.isActive()) {
        settle_.start();
    }
}

void BatteryMonitor::read(bool emit) {
    const quint64 generation = ++generation_;
    getAll(bus_, upower, displayDevice, deviceInterface, this, [this, emit, generation](auto device) {
        if (!device || generation != generation_) {
            return; // no UPower: the last state stays
        }
        getAll(bus_, upower, upowerPath, upower, this, [this, emit, generation, device](auto daemon) {
            if (daemon && generation == generation_) {
                update(describe(*device, *daemon), emit);
            }
        });
    });
}

void BatteryMonitor::readProfiles() {
    for (const auto& service : profileServices) {
        getAll(bus_, service.name, service.path, service.interface, this, [this](auto values) {
            if (values && values->contains(QStringLiteral("ActiveProfile"))) {
                profileChanged({}, *values, {});
            }
        });
    }
}

void BatteryMonitor::profileChanged(const QString&, const QVariantMap& changed, const QStringList&) {
    const QVariant profile = changed.value(QStringLiteral("ActiveProfile"));
    if (profile.typeId() == QMetaType::QString) {
        setLowPowerMode(profile.toString() == QLatin1String("power-saver"));
    }
}

void BatteryMonitor::setLowPowerMode(bool low) {
    if (low != isLowPowerMode_) {
        isLowPowerMode_ = low;
        Q_EMIT changed();
    }
}

void BatteryMonitor::fire(Event::Kind kind, int level, bool charging) {
    if (onEvent) {
        onEvent(Event{kind, level, charging});
    }
}

void BatteryMonitor::update(const std::optional<PowerSource>& source, bool emit) {
    if (!source) {
        return;
    }
    bool any = false;
    if (source->internalBattery) {
        // A battery that was not there before (UPower came late, or it was away) is a first
        // reading: the stored state is not its own, so comparing with it would announce nonsense.
        emit = emit && hasBattery_;
        const PowerSource& s = *source;
        const int level = s.maxCapacity && *s.maxCapacity > 0
                              ? static_cast<int>(std::lround(100.0 * s.currentCapacity / *s.maxCapacity))
                              : static_cast<int>(s.currentCapacity);
        const auto reported = s.isCharging ? s.minutesToFull : s.minutesToEmpty;
        const std::optional<int> minutes =
            reported && *reported > 0 ? std::optional(static_cast<int>(*reported)) : std::nullopt;
        if (s.acPower) {
            if (emit && !isPluggedIn_) {
                fire(Event::Kind::pluggedIn, level, s.isCharging);
            }
            if (emit && level >= 100 && level_ <= 99) {
                fire(Event::Kind::fullyCharged, level, s.isCharging);
            }
            warnedThresholds_.clear();
        } else {
            if (emit && isPluggedIn_) {
                fire(Event::Kind::unplugged, level, s.isCharging);
            }
            for (const int threshold : thresholds) {
                if (!emit || level > threshold) {
                    break;
                }
                if (warnedThresholds_.insert(threshold).second) {
                    fire(Event::Kind::low, level, s.isCharging);
                    break;
                }
            }
        }
        any = level != level_ || s.acPower != isPluggedIn_ || s.isCharging != isCharging_ ||
              minutes != minutesRemaining_;
        level_ = level;
        isPluggedIn_ = s.acPower;
        isCharging_ = s.isCharging;
        minutesRemaining_ = minutes;
    }
    if (source->internalBattery != hasBattery_) {
        hasBattery_ = source->internalBattery;
        any = true;
    }
    if (any) {
        Q_EMIT changed();
    }
}

} // namespace mirrowisp
