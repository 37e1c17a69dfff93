#include "island/NotchAnimation.h"

#include "base/Log.h"
#include "island/RevealEffect.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace mirrowisp {

namespace {

struct NamedSpring {
    const char* name;
    Spring spring;
};

constexpr std::array namedSprings{
    NamedSpring{"open", {0.46, 0.74, 0}},        NamedSpring{"close", {0.34, 1.0, 0}},
    NamedSpring{"hover", {0.26, 0.72, 0}},       NamedSpring{"hoverOut", {0.24, 1.0, 0}},
    NamedSpring{"resize", {0.36, 0.86, 0}},      NamedSpring{"activity", {0.4, 0.72, 0}},
    NamedSpring{"header", {0.36, 0.86, 0.04}},   NamedSpring{"content", {0.42, 0.84, 0.09}},
    NamedSpring{"tabContent", {0.28, 1.0, 0}},   NamedSpring{"bubble", {0.42, 0.68, 0.14}},
    NamedSpring{"wingReturn", {0.4, 0.72, 0.1}},
};

// What leaves the screen eases instead of springing: nothing should bounce on its way out.
struct NamedEase {
    const char* name;
    QEasingCurve::Type type;
    int milliseconds;
};

constexpr std::array namedEases{
    NamedEase{"reveal", QEasingCurve::OutQuad, 100},
    NamedEase{"bubbleOut", QEasingCurve::InQuad, 180},
    NamedEase{"wingCollapse", QEasingCurve::InQuad, 160},
};

constexpr int shortestMs = 16; // one frame
constexpr int longestMs = 3000;

template <typename Table> std::optional<size_t> indexIn(const Table& table, QStringView name) {
    for (size_t i = 0; i < table.size(); ++i) {
        if (name == QLatin1StringView(table[i].name)) {
            return i;
        }
    }
    return std::nullopt;
}

double settlingSeconds(size_t index) {
    // Each spring settles once per run; the curves ask for this at every frame.
    static const auto times = [] {
        std::array<double, namedSprings.size()> seconds{};
        for (size_t i = 0; i < namedSprings.size(); ++i) {
            seconds[i] =
                std::clamp(namedSprings[i].spring.settlingTime(), shortestMs / 1000.0, longestMs / 1000.0);
        }
        return seconds;
    }();
    return times[index];
}

// QEasingCurve takes a plain function, so each spring gets its own instance.
template <size_t Index> qreal springCurve(qreal progress) {
    if (progress >= 1) {
        return 1; // land exactly on the target, not within the tolerance of it
    }
    return namedSprings[Index].spring.value(progress * settlingSeconds(Index));
}

template <size_t... Indices>
constexpr std::array<QEasingCurve::EasingFunction, sizeof...(Indices)>
makeCurves(std::index_sequence<Indices...>) {
    return {&springCurve<Indices>...};
}

constexpr auto springCurves = makeCurves(std::make_index_sequence<namedSprings.size()>{});

} // namespace

NotchAnimation::NotchAnimation(QObject* parent) : QObject(parent) {}

std::optional<Spring> NotchAnimation::spring(QStringView name) {
    if (const auto index = indexIn(namedSprings, name)) {
        return namedSprings[*index].spring;
    }
    return std::nullopt;
}

std::optional<int> NotchAnimation::durationOf(QStringView name) {
    if (const auto index = indexIn(namedSprings, name)) {
        return static_cast<int>(std::lround(settlingSeconds(*index) * 1000));
    }
    if (const auto index = indexIn(namedEases, name)) {
        return namedEases[*index].milliseconds;
    }
    return std::nullopt;
}

std::optional<int> NotchAnimation::delayOf(QStringView name) {
    if (const auto index = indexIn(namedSprings, name)) {
        return static_cast<int>(std::lround(namedSprings[*index].spring.delay * 1000));
    }
    if (indexIn(namedEases, name)) {
        return 0;
    }
    return std::nullopt;
}

std::optional<QEasingCurve> NotchAnimation::curveOf(QStringView name) {
    if (const auto index = indexIn(namedSprings, name)) {
        QEasingCurve curve;
        curve.setCustomType(springCurves[*index]);
        return curve;
    }
    if (const auto index = indexIn(namedEases, name)) {
        return QEasingCurve(namedEases[*index].type);
    }
    return std::nullopt;
}

QStringList NotchAnimation::names() {
    QStringList list;
    for (const auto& named : namedSprings) {
        list.append(QLatin1StringView(named.name));
    }
    for (const auto& named : namedEases) {
        list.append(QLatin1StringView(named.name));
    }
    return list;
}

int NotchAnimation::duration(const QString& name) const {
    if (const auto ms = durationOf(name)) {
        return *ms;
    }
    logLine(QStringLiteral("Mirrowisp island: no motion named ") + name);
    return 0;
}

int NotchAnimation::delay(const QString& name) const {
    return delayOf(name).value_or(0);
}

QEasingCurve NotchAnimation::curve(const QString& name) const {
    return curveOf(name).value_or(QEasingCurve(QEasingCurve::Linear));
}

QVariantMap NotchAnimation::reveal(double progress) const {
    const RevealEffect effect{progress};
    return {{QStringLiteral("blur"), effect.blurRadius()},
            {QStringLiteral("scale"), effect.scale()},
            {QStringLiteral("y"), effect.yOffset()}};
}

QVariantMap NotchAnimation::wingCollapse(bool collapsed, double wingWidth, bool leftWing) const {
    const WingCollapse collapse{collapsed};
    // The left wing's notch lies to its right.
    return {{QStringLiteral("scale"), collapse.scale()},
            {QStringLiteral("x"), collapse.xOffset(wingWidth, leftWing)}};
}

} // namespace mirrowisp
