#include "shelf/ShelfConversionJob.h"

#include "base/MainQueue.h"

#include <QPointer>
#include <QThreadPool>
#include <atomic>

namespace mirrowisp {

namespace {

// The conversions' own threads, so a long video never holds up the program's other background work.
// At exit whatever still runs is cancelled and waited for: no ffmpeg outlives the program.
struct ConversionThreads {
    QThreadPool pool;
    std::atomic<bool> stopping = false;

    ConversionThreads() { pool.setMaxThreadCount(2); }
    ~ConversionThreads() {
        stopping = true;
        pool.waitForDone();
    }
};

ConversionThreads& conversionThreads() {
    static ConversionThreads threads;
    return threads;
}

} // namespace

struct ShelfConversionJob::Shared {
    std::atomic<bool> cancelled = false;
};

ShelfConversionJob::ShelfConversionJob(ShelfConverter::Conversion conversion, QStringList sources,
                                       QObject* parent)
    : QObject(parent), conversion_(std::move(conversion)), sources_(std::move(sources)),
      fractions_(sources_.size(), 0.0), shared_(std::make_shared<Shared>()) {}

ShelfConversionJob::~ShelfConversionJob() {
    cancel();
}

void ShelfConversionJob::start() {
    if (started_) {
        return;
    }
    started_ = true;
    const QPointer<ShelfConversionJob> job(this);
    ConversionThreads& threads = conversionThreads();
    threads.pool.start([&threads, job, shared = shared_, conversion = conversion_, sources = sources_] {
        const ShelfConverter::Control control{
            [job](int source, double fraction) {
                postToMain([job, source, fraction] {
                    if (job && !job->finished_ && job->fractions_.value(source, -1) < fraction) {
                        job->fractions_[source] = fraction;
                        Q_EMIT job->progressed(source, fraction);
                    }
                });
            },
            [&threads, shared] { return shared->cancelled.load() || threads.stopping.load(); }};
        ShelfConverter::Report report = ShelfConverter::convert(conversion, sources, control);
        postToMain([job, report = std::move(report)] {
            if (job) {
                job->finished_ = true;
                Q_EMIT job->finished(report);
            }
        });
    });
}

void ShelfConversionJob::cancel() {
    shared_->cancelled = true;
}

double ShelfConversionJob::fraction(int source) const {
    return fractions_.value(source, 0.0);
}

double ShelfConversionJob::fraction() const {
    if (fractions_.isEmpty()) {
        return finished_ ? 1.0 : 0.0;
    }
    double sum = 0;
    for (double f : fractions_) {
        sum += f;
    }
    return sum / double(fractions_.size());
}

} // namespace mirrowisp
