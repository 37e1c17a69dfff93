// libFuzzer target: an agent's plan, split into blocks and each block's inline text rendered.
#include "island/MarkdownView.h"

#include <QRegularExpression>
#include <QStringList>
#include <cstdint>
#include <cstdlib>

namespace {

// Our own tags must nest, and nothing the agent wrote may open a tag of its own.
void checkMarkup(const QString& html) {
    static const QRegularExpression tag(QStringLiteral(R"(<(/?)(b|i|a|font|br)\b[^>]*>)"));
    QStringList open;
    qsizetype textFrom = 0;
    QRegularExpressionMatchIterator it = tag.globalMatch(html);
    while (it.hasNext()) {
        const QRegularExpressionMatch match = it.next();
        if (html.mid(textFrom, match.capturedStart() - textFrom).contains(QLatin1Char('<'))) {
            std::abort();
        }
        textFrom = match.capturedEnd();
        const QString name = match.captured(2);
        if (name == QLatin1String("br")) {
            continue;
        }
        if (match.captured(1).isEmpty()) {
            open.append(name);
        } else if (open.isEmpty() || open.takeLast() != name) {
            std::abort();
        }
    }
    if (!open.isEmpty() || html.mid(textFrom).contains(QLatin1Char('<'))) {
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QString markdown =
        QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    for (const mirrowisp::MarkdownView::Block& block : mirrowisp::MarkdownView::blocks(markdown)) {
        checkMarkup(mirrowisp::MarkdownView::inlineHtml(block.text));
    }
    checkMarkup(mirrowisp::MarkdownView::inlineHtml(markdown));
    return 0;
}
