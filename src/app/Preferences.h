#pragma once

#include "base/AgentKind.h"

#include <QJsonValue>
#include <QList>
#include <QMap>
#include <QObject>
#include <QStringList>
#include <QVariantMap>
#include <array>
#include <optional>

namespace mirrowisp {

class LaunchAtLogin;
class UserDefaults;

// Which screens get an island.
enum class DisplayChoice { automatic, main, allDisplays };
// The widget kinds of the Home tab.
enum class HomeWidget { calendar, pullRequests, reminders };

namespace DisplayChoices {
QString rawValue(DisplayChoice choice);
std::optional<DisplayChoice> fromRawValue(QStringView raw);
} // namespace DisplayChoices

namespace HomeWidgets {
inline constexpr std::array<HomeWidget, 3> all = {HomeWidget::calendar, HomeWidget::pullRequests,
                                                  HomeWidget::reminders};
QString rawValue(HomeWidget widget);
std::optional<HomeWidget> fromRawValue(QStringView raw);
} // namespace HomeWidgets

// The user's settings. Each property mirrors one key of the user-defaults store: all are read once
// when the object is made, and each assignment writes its key at once and notifies if the value
// changed. Views and services observe the properties, so a change applies without a restart.
// Enumerations and lists reach QML as raw strings; C++ reads them typed. Main thread only.
class Preferences : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool openOnHover READ openOnHover WRITE setOpenOnHover NOTIFY openOnHoverChanged)
    Q_PROPERTY(double hoverDelay READ hoverDelay WRITE setHoverDelay NOTIFY hoverDelayChanged)
    Q_PROPERTY(
        QString displayChoice READ displayChoiceRaw WRITE setDisplayChoiceRaw NOTIFY displayChoiceChanged)
    Q_PROPERTY(double fakeNotchWidth READ fakeNotchWidth WRITE setFakeNotchWidth NOTIFY fakeNotchWidthChanged)
    Q_PROPERTY(bool hapticsEnabled READ hapticsEnabled WRITE setHapticsEnabled NOTIFY hapticsEnabledChanged)
    Q_PROPERTY(bool nowPlayingEnabled READ nowPlayingEnabled WRITE setNowPlayingEnabled NOTIFY
                   nowPlayingEnabledChanged)
    Q_PROPERTY(bool hudEnabled READ hudEnabled WRITE setHudEnabled NOTIFY hudEnabledChanged)
    Q_PROPERTY(bool batteryEnabled READ batteryEnabled WRITE setBatteryEnabled NOTIFY batteryEnabledChanged)
    Q_PROPERTY(
        bool bluetoothEnabled READ bluetoothEnabled WRITE setBluetoothEnabled NOTIFY bluetoothEnabledChanged)
    Q_PROPERTY(
        bool calendarEnabled READ calendarEnabled WRITE setCalendarEnabled NOTIFY calendarEnabledChanged)
    Q_PROPERTY(bool shelfEnabled READ shelfEnabled WRITE setShelfEnabled NOTIFY shelfEnabledChanged)
    Q_PROPERTY(QStringList homeWidgets READ homeWidgetsRaw WRITE setHomeWidgetsRaw NOTIFY homeWidgetsChanged)
    Q_PROPERTY(QString homeWidgetSelection READ homeWidgetSelection WRITE setHomeWidgetSelection NOTIFY
                   homeWidgetSelectionChanged)
    Q_PROPERTY(
        QString remindersListID READ remindersListID WRITE setRemindersListID NOTIFY remindersListIDChanged)
    Q_PROPERTY(
        QStringList calendarFiles READ calendarFiles WRITE setCalendarFiles NOTIFY calendarFilesChanged)
    Q_PROPERTY(bool lockScreenEnabled READ lockScreenEnabled WRITE setLockScreenEnabled NOTIFY
                   lockScreenEnabledChanged)
    // Raw kind name to bool.
    Q_PROPERTY(
        QVariantMap agentsEnabled READ agentsEnabledRaw WRITE setAgentsEnabledRaw NOTIFY agentsEnabledChanged)
    Q_PROPERTY(QString islandStyle READ islandStyleRaw WRITE setIslandStyleRaw NOTIFY islandStyleChanged)
    Q_PROPERTY(QStringList usageAgents READ usageAgentsRaw WRITE setUsageAgentsRaw NOTIFY usageAgentsChanged)
    Q_PROPERTY(
        bool approveFromNotch READ approveFromNotch WRITE setApproveFromNotch NOTIFY approveFromNotchChanged)
    Q_PROPERTY(bool autoOpenOnAttention READ autoOpenOnAttention WRITE setAutoOpenOnAttention NOTIFY
                   autoOpenOnAttentionChanged)
    Q_PROPERTY(double hideFinishedAfter READ hideFinishedAfter WRITE setHideFinishedAfter NOTIFY
                   hideFinishedAfterChanged)
    Q_PROPERTY(bool soundsEnabled READ soundsEnabled WRITE setSoundsEnabled NOTIFY soundsEnabledChanged)
    Q_PROPERTY(double soundVolume READ soundVolume WRITE setSoundVolume NOTIFY soundVolumeChanged)
    Q_PROPERTY(bool launchAtLogin READ launchAtLogin WRITE setLaunchAtLogin NOTIFY launchAtLoginChanged)

public:
    // The fill of the island.
    enum class IslandStyle { black, glass };

    // Registers the defaults in `defaults`, tidies keys of older versions and reads every setting.
    Preferences(UserDefaults& defaults, LaunchAtLogin& launchAtLogin, QObject* parent = nullptr);

    // The app's instance, over the standard store and the desktop's autostart folder.
    static Preferences& shared();

    // The key of one agent's enablement: its raw name followed by "Enabled".
    static QString agentEnabledKey(AgentKind kind);

    bool openOnHover() const { return openOnHover_; }
    // Seconds; used both for opening on hover and for closing after the pointer left.
    double hoverDelay() const { return hoverDelay_; }
    DisplayChoice displayChoice() const { return displayChoice_; }
    double fakeNotchWidth() const { return fakeNotchWidth_; }
    bool hapticsEnabled() const { return hapticsEnabled_; }
    bool nowPlayingEnabled() const { return nowPlayingEnabled_; }
    bool hudEnabled() const { return hudEnabled_; }
    bool batteryEnabled() const { return batteryEnabled_; }
    bool bluetoothEnabled() const { return bluetoothEnabled_; }
    bool calendarEnabled() const { return calendarEnabled_; }
    bool shelfEnabled() const { return shelfEnabled_; }
    QList<HomeWidget> homeWidgets() const { return homeWidgets_; }
    QString homeWidgetSelection() const { return homeWidgetSelection_; }
    QString remindersListID() const { return remindersListID_; }
    // The .ics files and vdir folders the calendar reads; "~/" is the home folder.
    QStringList calendarFiles() const { return calendarFiles_; }
    bool lockScreenEnabled() const { return lockScreenEnabled_; }
    QMap<AgentKind, bool> agentsEnabled() const { return agentsEnabled_; }
    // A kind missing from the map counts as enabled.
    bool isAgentEnabled(AgentKind kind) const { return agentsEnabled_.value(kind, true); }
    IslandStyle islandStyle() const { return islandStyle_; }
    QList<AgentKind> usageAgents() const { return usageAgents_; }
    bool approveFromNotch() const { return approveFromNotch_; }
    bool autoOpenOnAttention() const { return autoOpenOnAttention_; }
    double hideFinishedAfter() const { return hideFinishedAfter_; }
    bool soundsEnabled() const { return soundsEnabled_; }
    double soundVolume() const { return soundVolume_; }
    // Asks the system each time; there is no stored copy that could go stale.
    bool launchAtLogin() const;

    void setOpenOnHover(bool on);
    void setHoverDelay(double seconds);
    void setDisplayChoice(DisplayChoice choice);
    void setFakeNotchWidth(double width);
    void setHapticsEnabled(bool on);
    void setNowPlayingEnabled(bool on);
    void setHudEnabled(bool on);
    void setBatteryEnabled(bool on);
    void setBluetoothEnabled(bool on);
    void setCalendarEnabled(bool on);
    void setShelfEnabled(bool on);
    void setHomeWidgets(const QList<HomeWidget>& widgets);
    void setHomeWidgetSelection(const QString& selection);
    void setRemindersListID(const QString& listID);
    void setCalendarFiles(const QStringList& paths);
    void setLockScreenEnabled(bool on);
    // Writes one bool for every entry of the map.
    void setAgentsEnabled(const QMap<AgentKind, bool>& enabled);
    void setAgentEnabled(AgentKind kind, bool on);
    void setIslandStyle(IslandStyle style);
    void setUsageAgents(const QList<AgentKind>& agents);
    void setApproveFromNotch(bool on);
    void setAutoOpenOnAttention(bool on);
    void setHideFinishedAfter(double seconds);
    void setSoundsEnabled(bool on);
    void setSoundVolume(double volume);
    // A failure is logged; the getter then still tells the true state.
    void setLaunchAtLogin(bool on);

    // The raw-string faces of the typed properties. Unknown strings follow the same rules as
    // unknown stored values: the enumerations fall back on their defaults, lists drop them.
    QString displayChoiceRaw() const;
    void setDisplayChoiceRaw(const QString& raw);
    QStringList homeWidgetsRaw() const;
    void setHomeWidgetsRaw(const QStringList& raw);
    QVariantMap agentsEnabledRaw() const;
    void setAgentsEnabledRaw(const QVariantMap& raw);
    QString islandStyleRaw() const;
    void setIslandStyleRaw(const QString& raw);
    QStringList usageAgentsRaw() const;
    void setUsageAgentsRaw(const QStringList& raw);

Q_SIGNALS:
    void openOnHoverChanged();
    void hoverDelayChanged();
    void displayChoiceChanged();
    void fakeNotchWidthChanged();
    void hapticsEnabledChanged();
    void nowPlayingEnabledChanged();
    void hudEnabledChanged();
    void batteryEnabledChanged();
    void bluetoothEnabledChanged();
    void calendarEnabledChanged();
    void shelfEnabledChanged();
    void homeWidgetsChanged();
    void homeWidgetSelectionChanged();
    void remindersListIDChanged();
    void calendarFilesChanged();
    void lockScreenEnabledChanged();
    void agentsEnabledChanged();
    void islandStyleChanged();
    void usageAgentsChanged();
    void approveFromNotchChanged();
    void autoOpenOnAttentionChanged();
    void hideFinishedAfterChanged();
    void soundsEnabledChanged();
    void soundVolumeChanged();
    void launchAtLoginChanged();

private:
    void load();
    template <typename T>
    void assign(T& member, const T& value, QLatin1StringView key, const QJsonValue& stored,
                void (Preferences::*notify)());

    UserDefaults& defaults_;
    LaunchAtLogin& launchAtLogin_;

    bool openOnHover_ = false;
    double hoverDelay_ = 0;
    DisplayChoice displayChoice_ = DisplayChoice::automatic;
    double fakeNotchWidth_ = 0;
    bool hapticsEnabled_ = false;
    bool nowPlayingEnabled_ = false;
    bool hudEnabled_ = false;
    bool batteryEnabled_ = false;
    bool bluetoothEnabled_ = false;
    bool calendarEnabled_ = false;
    bool shelfEnabled_ = false;
    QList<HomeWidget> homeWidgets_;
    QString homeWidgetSelection_;
    QString remindersListID_;
    QStringList calendarFiles_;
    bool lockScreenEnabled_ = false;
    QMap<AgentKind, bool> agentsEnabled_;
    IslandStyle islandStyle_ = IslandStyle::glass;
    QList<AgentKind> usageAgents_;
    bool approveFromNotch_ = false;
    bool autoOpenOnAttention_ = false;
    double hideFinishedAfter_ = 0;
    bool soundsEnabled_ = false;
    double soundVolume_ = 0;
};

namespace IslandStyles {
QString rawValue(Preferences::IslandStyle style);
std::optional<Preferences::IslandStyle> fromRawValue(QStringView raw);
} // namespace IslandStyles

} // namespace mirrowisp
