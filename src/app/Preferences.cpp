#include "app/Preferences.h"

#include "app/AutostartEntry.h"
#include "base/Log.h"
#include "base/UserDefaults.h"

#include <QJsonArray>
#include <QJsonObject>

namespace mirrowisp {

namespace {

namespace Keys {
constexpr QLatin1StringView openOnHover("openOnHover");
constexpr QLatin1StringView hoverDelay("hoverDelay");
constexpr QLatin1StringView closeDelay("closeDelay");
constexpr QLatin1StringView displayChoice("displayChoice");
constexpr QLatin1StringView fakeNotchWidth("fakeNotchWidth");
constexpr QLatin1StringView hapticsEnabled("hapticsEnabled");
constexpr QLatin1StringView nowPlayingEnabled("nowPlayingEnabled");
constexpr QLatin1StringView hudEnabled("hudEnabled");
constexpr QLatin1StringView batteryEnabled("batteryEnabled");
constexpr QLatin1StringView bluetoothEnabled("bluetoothEnabled");
constexpr QLatin1StringView calendarEnabled("calendarEnabled");
constexpr QLatin1StringView shelfEnabled("shelfEnabled");
constexpr QLatin1StringView homeWidgets("homeWidgets");
constexpr QLatin1StringView homeWidgetSelection("homeWidgetSelection");
constexpr QLatin1StringView remindersListID("remindersListID");
constexpr QLatin1StringView calendarFiles("calendarFiles");
constexpr QLatin1StringView lockScreenEnabled("lockScreenEnabled");
constexpr QLatin1StringView islandStyle("islandStyle");
constexpr QLatin1StringView usageAgents("usageAgents");
constexpr QLatin1StringView approveFromNotch("approveFromNotch");
constexpr QLatin1StringView autoOpenOnAttention("autoOpenOnAttention");
constexpr QLatin1StringView hideFinishedAfter("hideFinishedAfter");
constexpr QLatin1StringView claudeUsageFromKeychain("claudeUsageFromKeychain");
constexpr QLatin1StringView soundsEnabled("soundsEnabled");
constexpr QLatin1StringView soundVolume("soundVolume");
} // namespace Keys

// Raw strings of each enumeration, indexed by case.
constexpr std::array<const char*, 3> displayChoiceNames = {"automatic", "main", "allDisplays"};
constexpr std::array<const char*, 3> homeWidgetNames = {"calendar", "pullRequests", "reminders"};
constexpr std::array<const char*, 2> islandStyleNames = {"black", "glass"};

template <typename E, std::size_t N> QString nameOf(const std::array<const char*, N>& names, E value) {
    return QString::fromLatin1(names[static_cast<std::size_t>(value)]);
}

template <typename E, std::size_t N>
std::optional<E> caseNamed(const std::array<const char*, N>& names, QStringView raw) {
    for (std::size_t i = 0; i < N; ++i) {
        if (raw == QLatin1StringView(names[i])) {
            return static_cast<E>(i);
        }
    }
    return std::nullopt;
}

// Keeps, in order, the strings that name a case; the others are dropped without a word.
template <typename E, typename Parse> QList<E> casesOf(const QStringList& raw, Parse parse) {
    QList<E> cases;
    for (const QString& string : raw) {
        if (const std::optional<E> value = parse(string)) {
            cases.append(*value);
        }
    }
    return cases;
}

template <typename E, typename Name> QStringList namesOf(const QList<E>& cases, Name name) {
    QStringList names;
    for (const E value : cases) {
        names.append(name(value));
    }
    return names;
}

QList<HomeWidget> homeWidgetsFrom(const QStringList& raw) {
    return casesOf<HomeWidget>(raw, [](const QString& s) { return HomeWidgets::fromRawValue(s); });
}

QList<AgentKind> agentKindsFrom(const QStringList& raw) {
    return casesOf<AgentKind>(raw, [](const QString& s) { return AgentKinds::fromRawValue(QStringView(s)); });
}

QStringList homeWidgetNamesOf(const QList<HomeWidget>& widgets) {
    return namesOf(widgets, [](HomeWidget w) { return HomeWidgets::rawValue(w); });
}

QStringList agentNamesOf(const QList<AgentKind>& kinds) {
    return namesOf(kinds, [](AgentKind k) { return AgentKinds::rawValue(k); });
}

// The defaults the store itself answers until the user writes a value. The others (agentsEnabled,
// islandStyle, usageAgents, remindersListID, calendarFiles) are applied when their key is read.
QJsonObject registeredDefaults() {
    return {
        {Keys::openOnHover, true},
        {Keys::hoverDelay, 0.05},
        {Keys::displayChoice, QStringLiteral("automatic")},
        {Keys::fakeNotchWidth, 140},
        {Keys::hapticsEnabled, true},
        {Keys::nowPlayingEnabled, true},
        {Keys::hudEnabled, true},
        {Keys::batteryEnabled, true},
        {Keys::bluetoothEnabled, true},
        {Keys::calendarEnabled, true},
        {Keys::shelfEnabled, true},
        {Keys::homeWidgets, QJsonArray::fromStringList(homeWidgetNamesOf(
                                {HomeWidget::calendar, HomeWidget::pullRequests, HomeWidget::reminders}))},
        {Keys::homeWidgetSelection, QStringLiteral("calendar")},
        {Keys::lockScreenEnabled, false},
        {Keys::approveFromNotch, true},
        {Keys::autoOpenOnAttention, true},
        {Keys::hideFinishedAfter, 600},
        {Keys::soundsEnabled, true},
        {Keys::soundVolume, 0.5},
    };
}

} // namespace

QString DisplayChoices::rawValue(DisplayChoice choice) {
    return nameOf(displayChoiceNames, choice);
}

std::optional<DisplayChoice> DisplayChoices::fromRawValue(QStringView raw) {
    return caseNamed<DisplayChoice>(displayChoiceNames, raw);
}

QString HomeWidgets::rawValue(HomeWidget widget) {
    return nameOf(homeWidgetNames, widget);
}

std::optional<HomeWidget> HomeWidgets::fromRawValue(QStringView raw) {
    return caseNamed<HomeWidget>(homeWidgetNames, raw);
}

QString IslandStyles::rawValue(Preferences::IslandStyle style) {
    return nameOf(islandStyleNames, style);
}

std::optional<Preferences::IslandStyle> IslandStyles::fromRawValue(QStringView raw) {
    return caseNamed<Preferences::IslandStyle>(islandStyleNames, raw);
}

Preferences::Preferences(UserDefaults& defaults, LaunchAtLogin& launchAtLogin, QObject* parent)
    : QObject(parent), defaults_(defaults), launchAtLogin_(launchAtLogin) {
    load();
}

Preferences& Preferences::shared() {
    static AutostartEntry autostart;
    static Preferences instance(UserDefaults::standard(), autostart);
    return instance;
}

QString Preferences::agentEnabledKey(AgentKind kind) {
    return AgentKinds::rawValue(kind) + QLatin1StringView("Enabled");
}

void Preferences::load() {
    // A value of the wrong type reads as its type's zero value; only the enumerations and the agent
    // switches have a fallback of their own.
    const auto readBool = [this](QLatin1StringView key) { return defaults_.boolValue(key).value_or(false); };
    const auto readDouble = [this](QLatin1StringView key) {
        return defaults_.doubleValue(key).value_or(0.0);
    };

    const UserDefaults::Batch batch(defaults_); // the removals of retired keys, written once
    defaults_.registerDefaults(registeredDefaults());
    openOnHover_ = readBool(Keys::openOnHover);
    hoverDelay_ = readDouble(Keys::hoverDelay);
    // The former separate close delay: hoverDelay now serves both directions, and the old value is
    // deliberately not carried over.
    defaults_.remove(Keys::closeDelay);
    displayChoice_ =
        DisplayChoices::fromRawValue(defaults_.stringValue(Keys::displayChoice).value_or(QString()))
            .value_or(DisplayChoice::automatic);
    fakeNotchWidth_ = readDouble(Keys::fakeNotchWidth);
    hapticsEnabled_ = readBool(Keys::hapticsEnabled);
    nowPlayingEnabled_ = readBool(Keys::nowPlayingEnabled);
    hudEnabled_ = readBool(Keys::hudEnabled);
    batteryEnabled_ = readBool(Keys::batteryEnabled);
    bluetoothEnabled_ = readBool(Keys::bluetoothEnabled);
    calendarEnabled_ = readBool(Keys::calendarEnabled);
    shelfEnabled_ = readBool(Keys::shelfEnabled);
    homeWidgets_ = homeWidgetsFrom(defaults_.stringArray(Keys::homeWidgets).value_or(QStringList()));
    // Not checked against HomeWidget: other views may select entries of their own.
    homeWidgetSelection_ =
        defaults_.stringValue(Keys::homeWidgetSelection).value_or(QStringLiteral("calendar"));
    remindersListID_ = defaults_.stringValue(Keys::remindersListID).value_or(QString());
    // Where vdirsyncer and khal keep calendars unless told otherwise.
    calendarFiles_ =
        defaults_.stringArray(Keys::calendarFiles).value_or(QStringList{QStringLiteral("~/.calendars")});
    lockScreenEnabled_ = readBool(Keys::lockScreenEnabled);
    for (const AgentKind kind : AgentKinds::all) {
        const auto stored = defaults_.object(agentEnabledKey(kind));
        agentsEnabled_.insert(kind, stored && stored->isBool() ? stored->toBool() : true);
    }
    islandStyle_ = IslandStyles::fromRawValue(defaults_.stringValue(Keys::islandStyle).value_or(QString()))
                       .value_or(IslandStyle::glass);
    usageAgents_ = agentKindsFrom(defaults_.stringArray(Keys::usageAgents).value_or(QStringList()));
    approveFromNotch_ = readBool(Keys::approveFromNotch);
    autoOpenOnAttention_ = readBool(Keys::autoOpenOnAttention);
    hideFinishedAfter_ = readDouble(Keys::hideFinishedAfter);
    // Belonged to a setting that no longer exists.
    defaults_.remove(Keys::claudeUsageFromKeychain);
    soundsEnabled_ = readBool(Keys::soundsEnabled);
    soundVolume_ = readDouble(Keys::soundVolume);
}

template <typename T>
void Preferences::assign(T& member, const T& value, QLatin1StringView key, const QJsonValue& stored,
                         void (Preferences::*notify)()) {
    const bool changed = !(member == value);
    member = value;
    // Written on every assignment, not only on a change: assigning is what replaces a stored value
    // that didn't read as itself, such as an unknown style.
    defaults_.set(key, stored);
    if (changed) {
        Q_EMIT(this->*notify)();
    }
}

void Preferences::setOpenOnHover(bool on) {
    assign(openOnHover_, on, Keys::openOnHover, on, &Preferences::openOnHoverChanged);
}

void Preferences::setHoverDelay(double seconds) {
    assign(hoverDelay_, seconds, Keys::hoverDelay, seconds, &Preferences::hoverDelayChanged);
}

void Preferences::setDisplayChoice(DisplayChoice choice) {
    assign(displayChoice_, choice, Keys::displayChoice, DisplayChoices::rawValue(choice),
           &Preferences::displayChoiceChanged);
}

void Preferences::setFakeNotchWidth(double width) {
    assign(fakeNotchWidth_, width, Keys::fakeNotchWidth, width, &Preferences::fakeNotchWidthChanged);
}

void Preferences::setHapticsEnabled(bool on) {
    assign(hapticsEnabled_, on, Keys::hapticsEnabled, on, &Preferences::hapticsEnabledChanged);
}

void Preferences::setNowPlayingEnabled(bool on) {
    assign(nowPlayingEnabled_, on, Keys::nowPlayingEnabled, on, &Preferences::nowPlayingEnabledChanged);
}

void Preferences::setHudEnabled(bool on) {
    assign(hudEnabled_, on, Keys::hudEnabled, on, &Preferences::hudEnabledChanged);
}

void Preferences::setBatteryEnabled(bool on) {
    assign(batteryEnabled_, on, Keys::batteryEnabled, on, &Preferences::batteryEnabledChanged);
}

void Preferences::setBluetoothEnabled(bool on) {
    assign(bluetoothEnabled_, on, Keys::bluetoothEnabled, on, &Preferences::bluetoothEnabledChanged);
}

void Preferences::setCalendarEnabled(bool on) {
    assign(calendarEnabled_, on, Keys::calendarEnabled, on, &Preferences::calendarEnabledChanged);
}

void Preferences::setShelfEnabled(bool on) {
    assign(shelfEnabled_, on, Keys::shelfEnabled, on, &Preferences::shelfEnabledChanged);
}

void Preferences::setHomeWidgets(const QList<HomeWidget>& widgets) {
    assign(homeWidgets_, widgets, Keys::homeWidgets, QJsonArray::fromStringList(homeWidgetNamesOf(widgets)),
           &Preferences::homeWidgetsChanged);
}

void Preferences::setHomeWidgetSelection(const QString& selection) {
    assign(homeWidgetSelection_, selection, Keys::homeWidgetSelection, selection,
           &Preferences::homeWidgetSelectionChanged);
}

void Preferences::setRemindersListID(const QString& listID) {
    assign(remindersListID_, listID, Keys::remindersListID, listID, &Preferences::remindersListIDChanged);
}

void Preferences::setCalendarFiles(const QStringList& paths) {
    assign(calendarFiles_, paths, Keys::calendarFiles, QJsonArray::fromStringList(paths),
           &Preferences::calendarFilesChanged);
}

void Preferences::setLockScreenEnabled(bool on) {
    assign(lockScreenEnabled_, on, Keys::lockScreenEnabled, on, &Preferences::lockScreenEnabledChanged);
}

void Preferences::setAgentsEnabled(const QMap<AgentKind, bool>& enabled) {
    const bool changed = agentsEnabled_ != enabled;
    agentsEnabled_ = enabled;
    {
        const UserDefaults::Batch batch(defaults_);
        for (auto it = enabled.begin(); it != enabled.end(); ++it) {
            defaults_.set(agentEnabledKey(it.key()), it.value());
        }
    }
    if (changed) {
        Q_EMIT agentsEnabledChanged();
    }
}

void Preferences::setAgentEnabled(AgentKind kind, bool on) {
    QMap<AgentKind, bool> enabled = agentsEnabled_;
    enabled.insert(kind, on);
    setAgentsEnabled(enabled);
}

void Preferences::setIslandStyle(IslandStyle style) {
    assign(islandStyle_, style, Keys::islandStyle, IslandStyles::rawValue(style),
           &Preferences::islandStyleChanged);
}

void Preferences::setUsageAgents(const QList<AgentKind>& agents) {
    assign(usageAgents_, agents, Keys::usageAgents, QJsonArray::fromStringList(agentNamesOf(agents)),
           &Preferences::usageAgentsChanged);
}

void Preferences::setApproveFromNotch(bool on) {
    assign(approveFromNotch_, on, Keys::approveFromNotch, on, &Preferences::approveFromNotchChanged);
}

void Preferences::setAutoOpenOnAttention(bool on) {
    assign(autoOpenOnAttention_, on, Keys::autoOpenOnAttention, on, &Preferences::autoOpenOnAttentionChanged);
}

void Preferences::setHideFinishedAfter(double seconds) {
    assign(hideFinishedAfter_, seconds, Keys::hideFinishedAfter, seconds,
           &Preferences::hideFinishedAfterChanged);
}

void Preferences::setSoundsEnabled(bool on) {
    assign(soundsEnabled_, on, Keys::soundsEnabled, on, &Preferences::soundsEnabledChanged);
}

void Preferences::setSoundVolume(double volume) {
    assign(soundVolume_, volume, Keys::soundVolume, volume, &Preferences::soundVolumeChanged);
}

bool Preferences::launchAtLogin() const {
    return launchAtLogin_.isEnabled();
}

void Preferences::setLaunchAtLogin(bool on) {
    const bool before = launchAtLogin();
    if (const auto error = launchAtLogin_.setEnabled(on)) {
        logLine(QStringLiteral("Mirrowisp: launch at login change failed: ") + *error);
    }
    if (launchAtLogin() != before) {
        Q_EMIT launchAtLoginChanged();
    }
}

QString Preferences::displayChoiceRaw() const {
    return DisplayChoices::rawValue(displayChoice_);
}

void Preferences::setDisplayChoiceRaw(const QString& raw) {
    setDisplayChoice(DisplayChoices::fromRawValue(raw).value_or(DisplayChoice::automatic));
}

QStringList Preferences::homeWidgetsRaw() const {
    return homeWidgetNamesOf(homeWidgets_);
}

void Preferences::setHomeWidgetsRaw(const QStringList& raw) {
    setHomeWidgets(homeWidgetsFrom(raw));
}

QVariantMap Preferences::agentsEnabledRaw() const {
    QVariantMap raw;
    for (auto it = agentsEnabled_.begin(); it != agentsEnabled_.end(); ++it) {
        raw.insert(AgentKinds::rawValue(it.key()), it.value());
    }
    return raw;
}

void Preferences::setAgentsEnabledRaw(const QVariantMap& raw) {
    QMap<AgentKind, bool> enabled;
    for (auto it = raw.begin(); it != raw.end(); ++it) {
        const auto kind = AgentKinds::fromRawValue(QStringView(it.key()));
        if (kind && it.value().typeId() == QMetaType::Bool) {
            enabled.insert(*kind, it.value().toBool());
        }
    }
    setAgentsEnabled(enabled);
}

QString Preferences::islandStyleRaw() const {
    return IslandStyles::rawValue(islandStyle_);
}

void Preferences::setIslandStyleRaw(const QString& raw) {
    setIslandStyle(IslandStyles::fromRawValue(raw).value_or(IslandStyle::glass));
}

QStringList Preferences::usageAgentsRaw() const {
    return agentNamesOf(usageAgents_);
}

void Preferences::setUsageAgentsRaw(const QStringList& raw) {
    setUsageAgents(agentKindsFrom(raw));
}

} // namespace mirrowisp
