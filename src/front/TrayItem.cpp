#include "front/TrayItem.h"

#include "base/Log.h"

#include <QAction>
#include <QIcon>
#include <QMenu>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <QSystemTrayIcon>

namespace mirrowisp {

namespace {

// The image is laid out on an 18-unit square and drawn at each size a panel may ask for.
QPixmap drawStatusImage(int pixels) {
    QPixmap pixmap(pixels, pixels);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.scale(pixels / 18.0, pixels / 18.0);
    QPainterPath frame;
    frame.addRoundedRect(QRectF(2.2, 2.2, 13.6, 13.6), 3.6, 3.6);
    QPainterPath bar;
    bar.addRoundedRect(QRectF(5.4, 5.6, 7.2, 2.8), 1.4, 1.4);
    // A dark edge under the light strokes keeps the shape on a light panel.
    const QColor edge(0, 0, 0, 150);
    const QColor ink(0xf2, 0xf2, 0xf2);
    painter.setPen(QPen(edge, 2.6, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    painter.setBrush(Qt::NoBrush);
    painter.drawPath(frame);
    painter.setPen(QPen(edge, 1.2));
    painter.setBrush(edge);
    painter.drawPath(bar);
    painter.setPen(QPen(ink, 1.4, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    painter.setBrush(Qt::NoBrush);
    painter.drawPath(frame);
    painter.setPen(Qt::NoPen);
    painter.setBrush(ink);
    painter.drawPath(bar);
    return pixmap;
}

QAction* addItem(QMenu& menu, const QString& title, const char* themeIcon,
                 const std::function<void()>& action) {
    QAction* item = menu.addAction(QIcon::fromTheme(QLatin1StringView(themeIcon)), title);
    QObject::connect(item, &QAction::triggered, &menu, [action] {
        if (action) {
            action();
        }
    });
    return item;
}

} // namespace

TrayItem::TrayItem(Actions actions, QObject* parent)
    : QObject(parent), actions_(std::move(actions)), menu_(std::make_unique<QMenu>()) {
    addItem(*menu_, QStringLiteral("Settings…"), "preferences-system", actions_.openSettings);
    addItem(*menu_, QStringLiteral("Setup Guide…"), "view-list-details", actions_.openSetupGuide);
    addItem(*menu_, QStringLiteral("About Mirrowisp"), "help-about", actions_.openAbout);
    whatsNewItem_ = addItem(*menu_, QStringLiteral("What's New…"), "emblem-new", [this] {
        if (actions_.openWhatsNew && !whatsNewVersion_.isEmpty()) {
            actions_.openWhatsNew(whatsNewVersion_);
        }
    });
    addItem(*menu_, QStringLiteral("Send Feedback…"), "mail-message-new", actions_.sendFeedback);
    menu_->addSeparator();
    addItem(*menu_, QStringLiteral("Quit Mirrowisp"), "application-exit", actions_.quit);
    connect(menu_.get(), &QMenu::aboutToShow, this, &TrayItem::menuWillOpen);
    menuWillOpen();
}

TrayItem::~TrayItem() {
    // The icon goes before the menu it shows.
    icon_.reset();
}

bool TrayItem::install() {
    if (icon_) {
        return true;
    }
    if (!QSystemTrayIcon::isSystemTrayAvailable()) {
        logLine(QStringLiteral("Mirrowisp: the desktop has no tray; the island's menu has the settings"));
        return false;
    }
    icon_ = std::make_unique<QSystemTrayIcon>(statusIcon());
    icon_->setToolTip(QStringLiteral("Mirrowisp"));
    icon_->setContextMenu(menu_.get());
    // A plain click on the item is the usual way to the settings.
    connect(icon_.get(), &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger && actions_.openSettings) {
            actions_.openSettings();
        }
    });
    icon_->show();
    return true;
}

bool TrayItem::isInstalled() const {
    return icon_ != nullptr;
}

QIcon TrayItem::statusIcon() {
    QIcon icon;
    for (int pixels : {16, 18, 22, 24, 32, 36, 48, 64}) {
        icon.addPixmap(drawStatusImage(pixels));
    }
    return icon;
}

void TrayItem::menuWillOpen() {
    const std::optional<QString> version = actions_.recentUpdate ? actions_.recentUpdate() : std::nullopt;
    whatsNewVersion_ = version.value_or(QString());
    whatsNewItem_->setText(QStringLiteral("What's New in ") + whatsNewVersion_);
    whatsNewItem_->setVisible(version.has_value());
}

} // namespace mirrowisp
