#include "front/DesktopActions.h"

#include "app/Feedback.h"
#include "app/WhatsNew.h"
#include "base/Log.h"
#include "base/MainQueue.h"

#include <QDesktopServices>
#include <QThreadPool>

namespace mirrowisp::DesktopActions {

void sendFeedback(std::function<void(bool opened)> opened) {
    // Which agents are connected is read from their files.
    QThreadPool::globalInstance()->start([opened = std::move(opened)]() mutable {
        const QString details = Feedback::details(Feedback::connectedAgents());
        postToMain([details, opened = std::move(opened)] {
            const bool ok = QDesktopServices::openUrl(Feedback::draftURL(details));
            if (!ok) {
                logLine(QStringLiteral("Mirrowisp: no mail handler took the feedback draft"));
            }
            if (opened) {
                opened(ok);
            }
        });
    });
}

bool openChangelog(const QString& version) {
    const bool ok = QDesktopServices::openUrl(WhatsNew::changelogURL(version));
    if (!ok) {
        logLine(QStringLiteral("Mirrowisp: nothing opened the changelog"));
    }
    return ok;
}

} // namespace mirrowisp::DesktopActions
