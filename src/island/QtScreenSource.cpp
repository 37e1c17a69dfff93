#include "island/QtScreenSource.h"

#include <QGuiApplication>
#include <QScreen>

namespace mirrowisp {

QtScreenSource::QtScreenSource(QObject* parent) : QObject(parent) {
    settle_.setSingleShot(true);
    settle_.setInterval(0);
    connect(&settle_, &QTimer::timeout, this, [this] {
        if (onChange_) {
            onChange_();
        }
    });
    const auto changed = [this] { settle_.start(); };
    connect(qGuiApp, &QGuiApplication::screenAdded, this, [this, changed](QScreen* screen) {
        watch(screen);
        changed();
    });
    connect(qGuiApp, &QGuiApplication::screenRemoved, this, changed);
    connect(qGuiApp, &QGuiApplication::primaryScreenChanged, this, changed);
    for (QScreen* screen : QGuiApplication::screens()) {
        watch(screen);
    }
}

void QtScreenSource::watch(QScreen* screen) {
    const auto changed = [this] { settle_.start(); };
    connect(screen, &QScreen::geometryChanged, this, changed);
    connect(screen, &QScreen::availableGeometryChanged, this, changed);
}

QList<NotchScreen> QtScreenSource::screens() const {
    QList<NotchScreen> list;
    QScreen* primary = QGuiApplication::primaryScreen();
    if (primary) {
        list.append(describe(*primary));
    }
    for (QScreen* screen : QGuiApplication::screens()) {
        if (screen != primary) {
            list.append(describe(*screen));
        }
    }
    return list;
}

std::optional<NotchScreen> QtScreenSource::primaryScreen() const {
    if (QScreen* primary = QGuiApplication::primaryScreen()) {
        return describe(*primary);
    }
    return std::nullopt;
}

void QtScreenSource::setOnChange(std::function<void()> onChange) {
    onChange_ = std::move(onChange);
}

NotchScreen QtScreenSource::describe(const QScreen& screen) {
    return {displayID(screen.name()), screen.geometry(), screen.availableGeometry(), 0, screen.name()};
}

quint32 QtScreenSource::displayID(const QString& name) {
    if (name.isEmpty()) {
        return 0;
    }
    // FNV-1a over the UTF-8 name: the same connector gets the same number in every run.
    quint32 hash = 2166136261u;
    for (const char byte : name.toUtf8()) {
        hash ^= static_cast<quint8>(byte);
        hash *= 16777619u;
    }
    return hash;
}

} // namespace mirrowisp
