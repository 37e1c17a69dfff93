#include "front/SettingsModel.h"

#include "app/AppModel.h"
#include "app/BuildInfo.h"
#include "app/Preferences.h"
#include "base/MainQueue.h"
#include "base/RegularFile.h"
#include "front/DesktopActions.h"
#include "front/SettingsAgentList.h"
#include "front/SettingsRemoteHosts.h"

#include <QColor>
#include <QPointer>
#include <QThreadPool>

namespace mirrowisp {

namespace {

// The project's licence as it came with this copy: beside the installed program or in the checkout.
QString readLicence() {
    for (const QString& name : {QStringLiteral("LICENSE"), QStringLiteral("COPYING")}) {
        const FileRead read = readRegularFile(BuildInfo::sourceDirectory() + u'/' + name, 1 << 20);
        if (read.ok()) {
            return QString::fromUtf8(read.bytes);
        }
    }
    return QStringLiteral("No licence file came with this copy of Mirrowisp.");
}

} // namespace

SettingsModel::~SettingsModel() = default;

SettingsModel::SettingsModel(SettingsServices services, Parts parts, QObject* parent)
    : QObject(parent), services_(std::move(services)), parts_(parts),
      remoteHosts_(std::make_unique<SettingsRemoteHosts>(services_)) {
    UsageTracker& usage = services_.model.usage();
    for (auto changed :
         {&UsageTracker::claudeChanged, &UsageTracker::codexChanged, &UsageTracker::extraChanged}) {
        connect(&usage, changed, this, &SettingsModel::usageRowsChanged);
    }
    QPointer<SettingsModel> self(this);
    QThreadPool::globalInstance()->start([self] {
        postToMain([self, text = readLicence()] {
            if (self) {
                self->licence_ = text;
                Q_EMIT self->licenceChanged();
            }
        });
    });
}

QObject* SettingsModel::prefs() const {
    return &services_.model.prefs();
}

QVariant SettingsModel::usageRows() const {
    const Timestamp now = services_.clock.now();
    QVariantList rows;
    for (const AgentKind kind : AgentKinds::all) {
        QVariantList meters;
        for (const UsageMeter& meter : UsageTracker::fresh(services_.model.usage().meters(kind), now)) {
            meters.append(QVariantMap{{QStringLiteral("label"), meter.label},
                                      {QStringLiteral("percent"), meter.percent},
                                      {QStringLiteral("text"), meter.text.value_or(QString())}});
        }
        const AccentColor accent = AgentKinds::accent(kind);
        rows.append(
            QVariantMap{{QStringLiteral("agent"), AgentKinds::rawValue(kind)},
                        {QStringLiteral("name"), AgentKinds::displayName(kind)},
                        {QStringLiteral("accent"),
                         QColor::fromRgbF(float(accent.red), float(accent.green), float(accent.blue)).name()},
                        {QStringLiteral("meters"), meters},
                        {QStringLiteral("noData"), UsageTracker::noDataText(kind)}});
    }
    return rows;
}

void SettingsModel::setPage(const QString& page) {
    if (pages.contains(page) && page != page_) {
        page_ = page;
        Q_EMIT pageChanged();
    }
}

QString SettingsModel::version() const {
    return BuildInfo::version();
}

QString SettingsModel::build() const {
    return BuildInfo::build();
}

void SettingsModel::sendFeedback() {
    DesktopActions::sendFeedback();
}

void SettingsModel::openChangelog() {
    DesktopActions::openChangelog(BuildInfo::version());
}

void SettingsModel::previewCue(int cue) {
    services_.model.previewCue(cue);
}

} // namespace mirrowisp
