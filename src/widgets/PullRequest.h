#pragma once

#include <QJsonObject>
#include <QString>
#include <optional>

namespace mirrowisp {

// One pull request as the home tab lists it.
struct PullRequest {
    enum class Checks { passing, failing, pending, none };
    enum class Review { approved, changesRequested, required, none };

    int number = 0;
    QString title;
    QString url;
    QString repository; // owner/name
    bool isDraft = false;
    Checks checks = Checks::none;
    Review review = Review::none;

    // A node of the GraphQL reply; nothing when number, title or a valid url is missing.
    static std::optional<PullRequest> fromNode(const QJsonObject& node);
    // "passing", "failing", "pending", "none"; "approved", "changesRequested", "required", "none".
    static QString checksName(Checks checks);
    static QString reviewName(Review review);
    QJsonObject toJson() const;

    bool operator==(const PullRequest&) const = default;
};

} // namespace mirrowisp
