#include "shelf/ShelfPdfBuilder.h"

#include <QFile>
#include <QPageSize>
#include <QPdfWriter>
#include <algorithm>
#include <poppler-qt6.h>

namespace mirrowisp {

namespace {

// Sharp enough to print, bounded so a poster-sized page doesn't take gigabytes.
constexpr double renderDpi = 150;
constexpr double longestRenderedSide = 4000;

} // namespace

ShelfPdfBuilder::ShelfPdfBuilder(QString path) : path_(std::move(path)), file_(path_) {}

ShelfPdfBuilder::~ShelfPdfBuilder() {
    if (writer_) {
        painter_.end();
        writer_.reset();
        file_.close();
        file_.remove(); // never finished: not a file anyone should find
    }
}

bool ShelfPdfBuilder::addPage(const QImage& image, QSizeF points) {
    if (failed_ || image.isNull() || points.isEmpty()) {
        return false;
    }
    const QPageSize size(points, QPageSize::Point);
    if (!writer_) {
        // A file that appeared under this name meanwhile is not ours to replace.
        if (!file_.open(QIODevice::WriteOnly | QIODevice::NewOnly)) {
            failed_ = true;
            return false;
        }
        writer_ = std::make_unique<QPdfWriter>(&file_);
        writer_->setResolution(72); // painter units are points
        writer_->setPageMargins(QMarginsF(0, 0, 0, 0));
        writer_->setPageSize(size);
        if (!painter_.begin(writer_.get())) {
            failed_ = true;
            return false;
        }
    } else {
        writer_->setPageSize(size);
        if (!writer_->newPage()) {
            failed_ = true;
            return false;
        }
    }
    painter_.drawImage(QRectF(QPointF(0, 0), points), image);
    ++pages_;
    return true;
}

bool ShelfPdfBuilder::addImage(const QImage& image) {
    return addPage(image, QSizeF(image.size()));
}

std::optional<QString> ShelfPdfBuilder::addPDF(const QString& path, const std::function<bool()>& cancelled) {
    // Poppler rebuilds a damaged file's index by reading all of it; what doesn't even begin as a PDF
    // (a 2 GB file of anything named .pdf) is refused before that.
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || !file.read(1024).contains("%PDF-")) {
        return QStringLiteral("not a PDF");
    }
    file.close();
    const std::unique_ptr<Poppler::Document> document = Poppler::Document::load(path);
    if (!document) {
        return QStringLiteral("a PDF Poppler cannot read");
    }
    if (document->isLocked()) {
        return QStringLiteral("the PDF is protected by a password");
    }
    document->setRenderHint(Poppler::Document::Antialiasing);
    document->setRenderHint(Poppler::Document::TextAntialiasing);
    int added = 0;
    for (int i = 0; i < document->numPages() && !(cancelled && cancelled()); ++i) {
        const std::unique_ptr<Poppler::Page> page = document->page(i);
        if (!page) {
            continue;
        }
        const QSizeF points = page->pageSizeF();
        const double longest = std::max(points.width(), points.height());
        if (longest <= 0) {
            continue;
        }
        const double dpi = std::min(renderDpi, longestRenderedSide * 72 / longest);
        if (addPage(page->renderToImage(dpi, dpi), points)) {
            ++added;
        }
    }
    if (added == 0) {
        return QStringLiteral("no page of the PDF could be rendered");
    }
    return std::nullopt;
}

bool ShelfPdfBuilder::finish() {
    if (!writer_) {
        return false;
    }
    const bool ok = painter_.end() && !failed_;
    writer_.reset();
    // The PDF engine doesn't tell of a full disk; the file does, once closed (by the engine or here).
    file_.close();
    if (!ok || file_.error() != QFileDevice::NoError) {
        file_.remove();
        return false;
    }
    return true;
}

} // namespace mirrowisp
