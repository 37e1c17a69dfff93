#pragma once

#include "front/SettingsCalendars.h"
#include "front/SettingsRemoteHosts.h"
#include "front/SettingsServices.h"

#include <QObject>
#include <QVariantList>
#include <QtQml/qqmlregistration.h>
#include <memory>

namespace mirrowisp {

class SettingsAgentHealth;
class SettingsAgentList;
class SettingsDecisions;

// What the settings window's pages read beside the preferences themselves: the agents and their
// health, the decision log and rules, today's usage meters, and the about page's facts and actions.
class SettingsModel : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("the settings window makes it")
    // The Preferences object; every control reads and writes its properties directly.
    Q_PROPERTY(QObject* prefs READ prefs CONSTANT)
    Q_PROPERTY(mirrowisp::SettingsAgentList* agents READ agents CONSTANT)
    Q_PROPERTY(mirrowisp::SettingsAgentHealth* health READ health CONSTANT)
    Q_PROPERTY(mirrowisp::SettingsDecisions* decisions READ decisions CONSTANT)
    Q_PROPERTY(mirrowisp::SettingsRemoteHosts* remoteHosts READ remoteHosts CONSTANT)
    Q_PROPERTY(mirrowisp::SettingsCalendars* calendars READ calendars CONSTANT)
    // One row per agent kind: agent, name, accent, meters (label, percent, text).
    Q_PROPERTY(QVariant usageRows READ usageRows NOTIFY usageRowsChanged)
    Q_PROPERTY(QString page READ page WRITE setPage NOTIFY pageChanged)
    Q_PROPERTY(QString version READ version CONSTANT)
    Q_PROPERTY(QString build READ build CONSTANT)
    Q_PROPERTY(QString licence READ licence NOTIFY licenceChanged)

public:
    // The window's parts beside the agents' rows.
    struct Parts {
        SettingsAgentList& agents;
        SettingsAgentHealth& health;
        SettingsDecisions& decisions;
    };
    SettingsModel(SettingsServices services, Parts parts, QObject* parent = nullptr);
    ~SettingsModel() override;

    static inline const QStringList pages = {QStringLiteral("general"),   QStringLiteral("agents"),
                                             QStringLiteral("decisions"), QStringLiteral("usage"),
                                             QStringLiteral("island"),    QStringLiteral("calendar"),
                                             QStringLiteral("about")};

    QObject* prefs() const;
    SettingsAgentList* agents() const { return &parts_.agents; }
    SettingsAgentHealth* health() const { return &parts_.health; }
    SettingsDecisions* decisions() const { return &parts_.decisions; }
    SettingsRemoteHosts* remoteHosts() const { return remoteHosts_.get(); }
    SettingsCalendars* calendars() { return &calendars_; }
    QVariant usageRows() const;
    QString page() const { return page_; }
    // An unknown page keeps the one shown.
    void setPage(const QString& page);
    QString version() const;
    QString build() const;
    QString licence() const { return licence_; }

    Q_INVOKABLE void sendFeedback();
    Q_INVOKABLE void openChangelog();
    // In the order of the app's cues: session start, attention, done, low battery, connected, charging.
    Q_INVOKABLE void previewCue(int cue);

Q_SIGNALS:
    void usageRowsChanged();
    void pageChanged();
    void licenceChanged();

private:
    SettingsServices services_;
    Parts parts_;
    std::unique_ptr<SettingsRemoteHosts> remoteHosts_;
    SettingsCalendars calendars_{services_.model};
    QString page_ = pages.first();
    QString licence_;
};

} // namespace mirrowisp
