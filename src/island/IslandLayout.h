#pragma once

#include "app/TransientActivity.h"
#include "island/NotchTab.h"
#include "island/SecondaryActivity.h"

#include <QList>
#include <QSizeF>
#include <optional>
#include <vector>

namespace mirrowisp {

class AgentSession;
class ClosedContent;

// Which side of the closed island a bubble stands on.
enum class BubbleSide { left, right };

// Where one bubble stands: `x` is its left edge measured from the island's horizontal centre, its
// top is the screen's top.
struct BubblePlacement {
    SecondaryActivity activity;
    BubbleSide side = BubbleSide::left;
    double x = 0;
    double width = 0;
    double height = 0;

    QString identity() const;
    bool operator==(const BubblePlacement&) const = default;
};

// The numbers of the closed island: how wide its wings are, how big it is, where its bubbles stand,
// and which tab a plain open selects.
namespace IslandLayout {

// Each wing's width: 0 for nothing, wide for the level bars and the trial notice, 40 otherwise.
double wingWidth(const ClosedContent& content);
double wingWidth(TransientActivity::Case transient);

// The notch plus both wings and a small gap, grown a little while the pointer is on it.
QSizeF closedSize(const ClosedContent& content, QSizeF notchSize, bool isHovering);

// The tab a plain open selects; none keeps the current tab.
std::optional<NotchTab> openingTab(const ClosedContent& content, bool hasUnseenFinish);

// Home and Agents always, Shelf only when the user keeps one.
QList<NotchTab> tabs(bool shelfEnabled);
// The agents tab counts every waiting decision of every session.
qsizetype agentsBadge(const std::vector<const AgentSession*>& sessions);

// The clear space between the wings, kept free where the camera is.
double spacerWidth(QSizeF notchSize);
// The inset on each wing's outer edge, which centres 16-high content in a taller notch.
double outerInset(QSizeF notchSize);

// As high as the notch and 2 narrower than high, 6 beyond the closed island's edge. The first
// bubble stands left, the second right.
QList<BubblePlacement> bubbles(const QList<SecondaryActivity>& activities, QSizeF closedSize,
                               QSizeF notchSize);

} // namespace IslandLayout

} // namespace mirrowisp
