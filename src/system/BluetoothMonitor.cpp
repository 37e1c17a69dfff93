#include "system/BluetoothMonitor.h"

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusServiceWatcher>
#include <QMap>

namespace mirrowisp {

namespace {

using Interfaces = QMap<QString, QVariantMap>;
using ManagedObjects = QMap<QDBusObjectPath, Interfaces>;

const QString bluez = QStringLiteral("org.bluez");
const QString deviceInterface = QStringLiteral("org.bluez.Device1");
const QString batteryInterface = QStringLiteral("org.bluez.Battery1");
const QString objectManager = QStringLiteral("org.freedesktop.DBus.ObjectManager");
const QString properties = QStringLiteral("org.freedesktop.DBus.Properties");

constexpr uint audioMajorClass = 4;

QString normalised(const QString& address) {
    return address.toLower().replace(QLatin1Char('-'), QLatin1Char(':'));
}

// A value of the wrong type counts as missing.
std::optional<qlonglong> integer(const QVariantMap& map, const QString& key) {
    const QVariant value = map.value(key);
    switch (value.typeId()) {
    case QMetaType::UChar:
    case QMetaType::UShort:
    case QMetaType::Short:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
        return value.toLongLong();
    default:
        return std::nullopt;
    }
}

QString text(const QVariantMap& map, const QString& key) {
    const QVariant value = map.value(key);
    return value.typeId() == QMetaType::QString ? value.toString() : QString();
}

// A connected audio device from its BlueZ interfaces, or nothing for anything else.
std::optional<BluetoothAudioDevice> audioDevice(const Interfaces& interfaces) {
    const auto device = interfaces.find(deviceInterface);
    const QVariant connected =
        device == interfaces.end() ? QVariant() : device->value(QStringLiteral("Connected"));
    if (connected.typeId() != QMetaType::Bool || !connected.toBool()) {
        return std::nullopt;
    }
    const auto deviceClass = integer(*device, QStringLiteral("Class"));
    const QString address = text(*device, QStringLiteral("Address"));
    if (!deviceClass || ((*deviceClass >> 8) & 0x1f) != audioMajorClass || address.isEmpty()) {
        return std::nullopt;
    }
    BluetoothAudioDevice result;
    result.address = address;
    result.icon = text(*device, QStringLiteral("Icon"));
    // BlueZ makes up an alias from the address for a device that has no name.
    const QString alias = text(*device, QStringLiteral("Alias"));
    const QString name = text(*device, QStringLiteral("Name"));
    if (!name.isEmpty()) {
        result.name = name;
    }
    if (!alias.isEmpty() && normalised(alias) != normalised(address)) {
        result.name = alias;
    }
    if (const auto battery = interfaces.find(batteryInterface); battery != interfaces.end()) {
        const auto percent = integer(*battery, QStringLiteral("Percentage"));
        if (percent && *percent > 0) {
            result.batterySingle = static_cast<int>(*percent);
        }
    }
    return result;
}

} // namespace

BluetoothMonitor::BluetoothMonitor(QDBusConnection systemBus, QObject* parent)
    : QObject(parent), bus_(std::move(systemBus)) {
    qDBusRegisterMetaType<Interfaces>();
    qDBusRegisterMetaType<ManagedObjects>();
}

BluetoothMonitor::~BluetoothMonitor() = default;

void BluetoothMonitor::start() {
    if (watcher_ || !bus_.isConnected()) {
        return;
    }
    for (const char* signal : {"InterfacesAdded", "InterfacesRemoved"}) {
        bus_.connect(bluez, QStringLiteral("/"), objectManager, QLatin1String(signal), this,
                     SLOT(interfacesChanged(QDBusMessage)));
    }
    // Every object of BlueZ: the devices live under their adapters.
    bus_.connect(bluez, QString(), properties, QStringLiteral("PropertiesChanged"), this,
                 SLOT(propertiesChanged(QDBusMessage)));
    watcher_ = std::make_unique<QDBusServiceWatcher>(bluez, bus_);
    connect(watcher_.get(), &QDBusServiceWatcher::serviceRegistered, this, [this] { refresh(false); });
    connect(watcher_.get(), &QDBusServiceWatcher::serviceUnregistered, this, [this] {
        ++generation_;
        apply({}, false);
    });
    refresh(false);
}

std::optional<BluetoothAudioDevice> BluetoothMonitor::connectedDevice(const QString& address) const {
    const QString wanted = normalised(address);
    for (const auto& device : connected_) {
        if (normalised(device.address) == wanted) {
            return device;
        }
    }
    return std::nullopt;
}

void BluetoothMonitor::interfacesChanged(const QDBusMessage&) {
    refresh(true);
}

void BluetoothMonitor::propertiesChanged(const QDBusMessage& message) {
    const QVariantList args = message.arguments();
    if (args.size() < 2) {
        return;
    }
    const QString interface = args.at(0).toString();
    const QVariantMap changed = qdbus_cast<QVariantMap>(args.at(1));
    // Signal strength and the like change often during discovery and matter here not at all.
    const bool relevant =
        interface == batteryInterface ||
        (interface == deviceInterface &&
         (changed.contains(QStringLiteral("Connected")) || changed.contains(QStringLiteral("Class")) ||
          changed.contains(QStringLiteral("Alias")) || changed.contains(QStringLiteral("Name")) ||
          changed.contains(QStringLiteral("Icon"))));
    if (relevant) {
        refresh(true);
    }
}

void BluetoothMonitor::refresh(bool announce) {
    const quint64 generation = ++generation_;
    auto* watcher = new QDBusPendingCallWatcher(
        bus_.asyncCall(QDBusMessage::createMethodCall(bluez, QStringLiteral("/"), objectManager,
                                                      QStringLiteral("GetManagedObjects"))),
        this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, announce, generation] {
        watcher->deleteLater();
        const QDBusMessage reply = watcher->reply();
        if (generation != generation_ || reply.type() != QDBusMessage::ReplyMessage ||
            reply.arguments().isEmpty() || reply.signature() != QLatin1String("a{oa{sa{sv}}}")) {
            return; // a later reading is on its way, or BlueZ is away: the list stays
        }
        const auto objects = qdbus_cast<ManagedObjects>(reply.arguments().at(0));
        QVector<BluetoothAudioDevice> devices;
        for (const Interfaces& interfaces : objects) {
            if (auto device = audioDevice(interfaces)) {
                devices.append(std::move(*device));
            }
        }
        apply(devices, announce);
    });
}

void BluetoothMonitor::apply(const QVector<BluetoothAudioDevice>& devices, bool announce) {
    QVector<BluetoothAudioDevice> arrived;
    for (const auto& device : devices) {
        if (!connectedDevice(device.address)) {
            arrived.append(device);
        }
    }
    if (devices == connected_) {
        return;
    }
    connected_ = devices;
    Q_EMIT connectedChanged();
    if (announce && onConnect) {
        for (const auto& device : arrived) {
            onConnect(device);
        }
    }
}

} // namespace mirrowisp
