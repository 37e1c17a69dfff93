#pragma once

#include <QObject>
#include <QString>
#include <functional>
#include <memory>
#include <optional>

class QAction;
class QIcon;
class QMenu;
class QSystemTrayIcon;

namespace mirrowisp {

// The app's item in the desktop's tray (a StatusNotifierItem with its menu over D-Bus, or an XEmbed
// icon), with the app's menu. Where no tray exists it stays away; the island's menu has the way in.
class TrayItem : public QObject {
    Q_OBJECT

public:
    struct Actions {
        std::function<void()> openSettings;
        std::function<void()> openSetupGuide;
        std::function<void()> openAbout;
        std::function<void(const QString& version)> openWhatsNew;
        std::function<void()> sendFeedback;
        std::function<void()> quit;
        // The version of an update of the last three days, asked each time the menu opens.
        std::function<std::optional<QString>()> recentUpdate;
    };

    explicit TrayItem(Actions actions, QObject* parent = nullptr);
    ~TrayItem() override;

    // Shows the item; false (and one line in the log) when the desktop has no tray.
    bool install();
    bool isInstalled() const;

    // The status image: a rounded frame holding a bar, drawn at `size` pixels in a light colour
    // with a dark edge, so it reads on light and dark panels alike.
    static QIcon statusIcon();

    QMenu* menu() const { return menu_.get(); }

private:
    // Retitles the items as the menu opens: "What's New in X" shows only after a recent update.
    void menuWillOpen();

    Actions actions_;
    std::unique_ptr<QMenu> menu_;
    std::unique_ptr<QSystemTrayIcon> icon_;
    QAction* whatsNewItem_ = nullptr;
    QString whatsNewVersion_;
};

} // namespace mirrowisp
