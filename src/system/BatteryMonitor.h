#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QTimer>
#include <functional>
#include <optional>
#include <set>

class QDBusServiceWatcher;

namespace mirrowisp {

// One reading of the machine's power source, in the terms the monitor decides on.
struct PowerSource {
    bool internalBattery = false;
    double currentCapacity = 0;
    std::optional<double> maxCapacity; // absent or 0: currentCapacity is already a percent
    bool acPower = false;
    bool isCharging = false;
    std::optional<double> minutesToFull;
    std::optional<double> minutesToEmpty;
};

// The internal battery as UPower's display device shows it, and the moments worth telling the user:
// power connected or removed, full, and low at 20, 10 and 5 percent (one warning per update, re-armed
// only by power). A machine without a battery never reports anything.
class BatteryMonitor : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool hasBattery READ hasBattery NOTIFY changed)
    Q_PROPERTY(int level READ level NOTIFY changed)
    Q_PROPERTY(bool isCharging READ isCharging NOTIFY changed)
    Q_PROPERTY(bool isPluggedIn READ isPluggedIn NOTIFY changed)
    Q_PROPERTY(bool isLowPowerMode READ isLowPowerMode NOTIFY changed)

public:
    // With the reading that caused it, which the monitor stores right after.
    struct Event {
        enum class Kind { low, pluggedIn, unplugged, fullyCharged };
        Kind kind = Kind::low;
        int level = 0;
        bool charging = false;
    };

    explicit BatteryMonitor(QDBusConnection systemBus, QObject* parent = nullptr);
    ~BatteryMonitor() override;

    // Follows UPower and the power profiles from now on; the first reading announces nothing.
    void start();
    // Takes a reading; nothing keeps the last state. Events fire only with `emit`.
    void update(const std::optional<PowerSource>& source, bool emit);
    void setLowPowerMode(bool low);

    bool hasBattery() const { return hasBattery_; }
    int level() const { return level_; }
    bool isCharging() const { return isCharging_; }
    bool isPluggedIn() const { return isPluggedIn_; }
    bool isLowPowerMode() const { return isLowPowerMode_; }
    std::optional<int> minutesRemaining() const { return minutesRemaining_; }

    std::function<void(const Event&)> onEvent;

Q_SIGNALS:
    void changed();

private Q_SLOTS:
    void upowerChanged();
    void profileChanged(const QString& interface, const QVariantMap& changed, const QStringList& invalidated);

private:
    void read(bool emit);
    void readProfiles();
    void fire(Event::Kind kind, int level, bool charging);

    QDBusConnection bus_;
    std::unique_ptr<QDBusServiceWatcher> watcher_;
    QTimer settle_;
    quint64 generation_ = 0;
    bool hasBattery_ = false;
    int level_ = 0;
    bool isCharging_ = false;
    bool isPluggedIn_ = false;
    bool isLowPowerMode_ = false;
    std::optional<int> minutesRemaining_;
    std::set<int> warnedThresholds_;
};

} // namespace mirrowisp
