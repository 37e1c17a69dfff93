#include "island/MarkdownModel.h"

namespace mirrowisp {

using MarkdownView::Block;

MarkdownModel::MarkdownModel(QObject* parent) : QAbstractListModel(parent) {}

void MarkdownModel::setMarkdown(const QString& markdown) {
    if (markdown == markdown_) {
        return;
    }
    beginResetModel();
    markdown_ = markdown;
    blocks_ = MarkdownView::blocks(markdown);
    html_.clear();
    html_.reserve(blocks_.size());
    for (const Block& block : blocks_) {
        // Code shows as written: no inline Markdown inside a fence.
        html_.append(block.kind == Block::Kind::code ? MarkdownView::escapeHtml(block.text)
                                                     : MarkdownView::inlineHtml(block.text));
    }
    endResetModel();
    Q_EMIT markdownChanged();
}

QString MarkdownModel::kindName(Block::Kind kind) {
    switch (kind) {
    case Block::Kind::heading:
        return QStringLiteral("heading");
    case Block::Kind::bullet:
        return QStringLiteral("bullet");
    case Block::Kind::code:
        return QStringLiteral("code");
    case Block::Kind::quote:
        return QStringLiteral("quote");
    case Block::Kind::paragraph:
        return QStringLiteral("paragraph");
    case Block::Kind::rule:
        return QStringLiteral("rule");
    }
    return {};
}

int MarkdownModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : count();
}

QVariant MarkdownModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() < 0 || index.row() >= count()) {
        return {};
    }
    const Block& block = blocks_.at(index.row());
    switch (role) {
    case KindRole:
        return kindName(block.kind);
    case LevelRole:
        return block.level;
    case HtmlRole:
        return html_.at(index.row());
    case IndentRole:
        return block.indent;
    case MarkerRole:
        return block.marker;
    case TextRole:
    case Qt::DisplayRole:
        return block.text;
    default:
        return {};
    }
}

QHash<int, QByteArray> MarkdownModel::roleNames() const {
    return {{KindRole, "kind"},     {LevelRole, "level"},   {HtmlRole, "html"},
            {IndentRole, "indent"}, {MarkerRole, "marker"}, {TextRole, "text"}};
}

} // namespace mirrowisp
