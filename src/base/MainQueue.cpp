#include "base/MainQueue.h"

#include <QCoreApplication>
#include <QMetaObject>

namespace mirrowisp {

void postToMain(std::function<void()> work) {
    QCoreApplication* app = QCoreApplication::instance();
    if (app == nullptr || !work) {
        return;
    }
    QMetaObject::invokeMethod(app, std::move(work), Qt::QueuedConnection);
}

} // namespace mirrowisp
