#pragma once

#include "island/ScreenSource.h"

#include <QObject>
#include <QTimer>

class QScreen;

namespace mirrowisp {

// The screens Qt knows, kept up to date as monitors come, go and change their arrangement.
class QtScreenSource final : public QObject, public ScreenSource {
    Q_OBJECT

public:
    explicit QtScreenSource(QObject* parent = nullptr);

    QList<NotchScreen> screens() const override;
    std::optional<NotchScreen> primaryScreen() const override;
    void setOnChange(std::function<void()> onChange) override;

    static NotchScreen describe(const QScreen& screen);
    // A stable number for a screen's connector name ("DP-1"); 0 for a screen without a name.
    static quint32 displayID(const QString& name);

private:
    void watch(QScreen* screen);

    std::function<void()> onChange_;
    // A hot-plug arrives as a burst of signals; one call after the burst is enough.
    QTimer settle_;
};

} // namespace mirrowisp
