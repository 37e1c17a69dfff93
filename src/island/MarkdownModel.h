#pragma once

#include "island/MarkdownView.h"

#include <QAbstractListModel>
#include <QtQml/qqmlregistration.h>

namespace mirrowisp {

// The blocks of a plan for QML, one row each, with the inline text already turned into StyledText.
class MarkdownModel : public QAbstractListModel {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(QString markdown READ markdown WRITE setMarkdown NOTIFY markdownChanged)
    Q_PROPERTY(int count READ count NOTIFY markdownChanged)

public:
    enum Role { KindRole = Qt::UserRole + 1, LevelRole, HtmlRole, IndentRole, MarkerRole, TextRole };
    Q_ENUM(Role)

    explicit MarkdownModel(QObject* parent = nullptr);

    const QString& markdown() const { return markdown_; }
    void setMarkdown(const QString& markdown);
    int count() const { return static_cast<int>(blocks_.size()); }
    const QList<MarkdownView::Block>& blocks() const { return blocks_; }

    // The kind as QML compares it: "heading", "bullet", "code", "quote", "paragraph", "rule".
    static QString kindName(MarkdownView::Block::Kind kind);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

Q_SIGNALS:
    void markdownChanged();

private:
    QString markdown_;
    QList<MarkdownView::Block> blocks_;
    QStringList html_; // rendered once per text, not on every delegate binding
};

} // namespace mirrowisp
