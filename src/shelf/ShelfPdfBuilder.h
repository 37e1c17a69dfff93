#pragma once

#include <QFile>
#include <QImage>
#include <QPainter>
#include <QString>
#include <functional>
#include <memory>
#include <optional>

class QPdfWriter;

namespace mirrowisp {

// Writes a PDF page by page, each page as large as what it shows, so a long document never has to be
// held in memory whole. The file is complete only once `finish` answers true; else it is removed.
class ShelfPdfBuilder {
public:
    explicit ShelfPdfBuilder(QString path);
    ~ShelfPdfBuilder();
    ShelfPdfBuilder(const ShelfPdfBuilder&) = delete;
    ShelfPdfBuilder& operator=(const ShelfPdfBuilder&) = delete;

    // An image on a page of its size in points.
    bool addImage(const QImage& image);
    // Another PDF's pages, each rendered onto a page of its own size; why not, when none was added.
    std::optional<QString> addPDF(const QString& path, const std::function<bool()>& cancelled);
    int pageCount() const { return pages_; }
    bool finish();

private:
    bool addPage(const QImage& image, QSizeF points);

    QString path_;
    QFile file_;
    std::unique_ptr<QPdfWriter> writer_;
    QPainter painter_;
    int pages_ = 0;
    bool failed_ = false;
};

} // namespace mirrowisp
