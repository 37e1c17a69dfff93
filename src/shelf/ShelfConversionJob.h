#pragma once

#include "shelf/ShelfConverter.h"

#include <QList>
#include <QObject>
#include <memory>

namespace mirrowisp {

// A conversion on a worker thread, followed from the thread that started it: what a tile needs for a
// progress bar, a cancel button and the words for a failure. Deleting the job cancels its work.
class ShelfConversionJob : public QObject {
    Q_OBJECT

public:
    ShelfConversionJob(ShelfConverter::Conversion conversion, QStringList sources, QObject* parent = nullptr);
    ~ShelfConversionJob() override;

    void start();
    // Stops the work as soon as it looks: ffmpeg is killed and its partial file removed; files already
    // made are still reported.
    void cancel();

    const QStringList& sources() const { return sources_; }
    // Each source's share done, 0..1, and the whole: their mean.
    double fraction(int source) const;
    double fraction() const;
    bool isFinished() const { return finished_; }

Q_SIGNALS:
    void progressed(int source, double fraction);
    void finished(const mirrowisp::ShelfConverter::Report& report);

private:
    struct Shared;
    ShelfConverter::Conversion conversion_;
    QStringList sources_;
    QList<double> fractions_;
    std::shared_ptr<Shared> shared_;
    bool started_ = false;
    bool finished_ = false;
};

} // namespace mirrowisp
