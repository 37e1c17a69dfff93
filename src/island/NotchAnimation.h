#pragma once

#include "island/Spring.h"

#include <QEasingCurve>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantMap>
#include <QtQml/qqmlregistration.h>
#include <optional>

namespace mirrowisp {

// The island's named motions. Six springs move the island itself ("open", "close", "hover",
// "hoverOut", "resize", "activity"); the rest stagger what moves inside it ("header", "content",
// "tabContent", "bubble", "wingReturn") or ease things out ("reveal", "bubbleOut", "wingCollapse").
// QML plays them as a duration, a delay and an easing curve over that duration.
class NotchAnimation : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    Q_PROPERTY(QStringList names READ names CONSTANT)

public:
    explicit NotchAnimation(QObject* parent = nullptr);

    // The spring of that name, or none for an eased motion or an unknown name.
    static std::optional<Spring> spring(QStringView name);
    // Milliseconds until the motion has settled within 0.1 %, bounded to a sane span; none for an
    // unknown name.
    static std::optional<int> durationOf(QStringView name);
    static std::optional<int> delayOf(QStringView name);
    // Maps progress over the duration to the motion's value; none for an unknown name.
    static std::optional<QEasingCurve> curveOf(QStringView name);
    static QStringList names();

    // For QML, where an unknown name plays as an instant linear change.
    Q_INVOKABLE int duration(const QString& name) const;
    Q_INVOKABLE int delay(const QString& name) const;
    Q_INVOKABLE QEasingCurve curve(const QString& name) const;
    // The open panel's reveal at `progress`: blur, scale (anchored at the top) and y.
    Q_INVOKABLE QVariantMap reveal(double progress) const;
    // A wing while the island is open: scale (at its centre) and x, towards the notch.
    Q_INVOKABLE QVariantMap wingCollapse(bool collapsed, double wingWidth, bool leftWing) const;
};

} // namespace mirrowisp
