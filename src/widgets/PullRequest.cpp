#include "widgets/PullRequest.h"

#include <QJsonArray>
#include <QUrl>

namespace mirrowisp {

namespace {

PullRequest::Checks checksOf(const QJsonObject& node) {
    const QJsonArray commits =
        node.value(QLatin1String("commits")).toObject().value(QLatin1String("nodes")).toArray();
    const QString state = commits.first()
                              .toObject()
                              .value(QLatin1String("commit"))
                              .toObject()
                              .value(QLatin1String("statusCheckRollup"))
                              .toObject()
                              .value(QLatin1String("state"))
                              .toString();
    if (state == QLatin1String("SUCCESS")) {
        return PullRequest::Checks::passing;
    }
    if (state == QLatin1String("FAILURE") || state == QLatin1String("ERROR")) {
        return PullRequest::Checks::failing;
    }
    if (state == QLatin1String("PENDING") || state == QLatin1String("EXPECTED")) {
        return PullRequest::Checks::pending;
    }
    return PullRequest::Checks::none;
}

PullRequest::Review reviewOf(const QString& decision) {
    if (decision == QLatin1String("APPROVED")) {
        return PullRequest::Review::approved;
    }
    if (decision == QLatin1String("CHANGES_REQUESTED")) {
        return PullRequest::Review::changesRequested;
    }
    if (decision == QLatin1String("REVIEW_REQUIRED")) {
        return PullRequest::Review::required;
    }
    return PullRequest::Review::none;
}

} // namespace

std::optional<PullRequest> PullRequest::fromNode(const QJsonObject& node) {
    const QJsonValue number = node.value(QLatin1String("number"));
    const QJsonValue title = node.value(QLatin1String("title"));
    const QJsonValue url = node.value(QLatin1String("url"));
    if (!number.isDouble() || !title.isString() || !url.isString()) {
        return std::nullopt;
    }
    const QUrl address(url.toString(), QUrl::StrictMode);
    if (!address.isValid() || address.scheme().isEmpty()) {
        return std::nullopt;
    }
    PullRequest pr;
    pr.number = number.toInt();
    pr.title = title.toString();
    pr.url = url.toString();
    pr.repository =
        node.value(QLatin1String("repository")).toObject().value(QLatin1String("nameWithOwner")).toString();
    pr.isDraft = node.value(QLatin1String("isDraft")).toBool(false);
    pr.checks = checksOf(node);
    pr.review = reviewOf(node.value(QLatin1String("reviewDecision")).toString());
    return pr;
}

QString PullRequest::checksName(Checks checks) {
    switch (checks) {
    case Checks::passing:
        return QStringLiteral("passing");
    case Checks::failing:
        return QStringLiteral("failing");
    case Checks::pending:
        return QStringLiteral("pending");
    case Checks::none:
        break;
    }
    return QStringLiteral("none");
}

QString PullRequest::reviewName(Review review) {
    switch (review) {
    case Review::approved:
        return QStringLiteral("approved");
    case Review::changesRequested:
        return QStringLiteral("changesRequested");
    case Review::required:
        return QStringLiteral("required");
    case Review::none:
        break;
    }
    return QStringLiteral("none");
}

QJsonObject PullRequest::toJson() const {
    return {{QStringLiteral("number"), number},
            {QStringLiteral("title"), title},
            {QStringLiteral("url"), url},
            {QStringLiteral("repository"), repository},
            {QStringLiteral("isDraft"), isDraft},
            {QStringLiteral("checks"), checksName(checks)},
            {QStringLiteral("review"), reviewName(review)}};
}

} // namespace mirrowisp
