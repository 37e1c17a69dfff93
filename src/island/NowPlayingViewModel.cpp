#include "island/NowPlayingViewModel.h"

#include "media/NowPlayingService.h"

#include <QQmlEngine>
#include <QQuickImageProvider>

namespace mirrowisp {

namespace {

QPointer<NowPlayingService> shared;

// Hands the service's cover to Image items, scaled to the size they ask for.
class ArtworkProvider final : public QQuickImageProvider {
public:
    ArtworkProvider() : QQuickImageProvider(QQuickImageProvider::Image) {}
    QImage requestImage(const QString&, QSize* size, const QSize& requested) override {
        if (shared == nullptr || !shared->artwork()) {
            return {};
        }
        QImage image = *shared->artwork();
        if (requested.isValid() && !requested.isEmpty()) {
            image = image.scaled(requested, Qt::KeepAspectRatioByExpanding, Qt::SmoothTransformation);
        }
        *size = image.size();
        return image;
    }
};

const QString providerName = QStringLiteral("nowplaying");

} // namespace

NowPlayingViewModel::NowPlayingViewModel(NowPlayingService* service, QObject* parent)
    : QObject(parent), service_(service) {
    if (service_ != nullptr) {
        connect(service_, &NowPlayingService::trackChanged, this, &NowPlayingViewModel::changed);
        connect(service_, &NowPlayingService::artworkChanged, this, [this] {
            ++artworkSerial_;
            Q_EMIT artworkChanged();
        });
    }
}

void NowPlayingViewModel::setShared(NowPlayingService* service) {
    shared = service;
}

NowPlayingViewModel* NowPlayingViewModel::create(QQmlEngine* engine, QJSEngine*) {
    if (engine->imageProvider(providerName) == nullptr) {
        engine->addImageProvider(providerName, new ArtworkProvider); // the engine owns it
    }
    return new NowPlayingViewModel(shared); // the engine owns it
}

bool NowPlayingViewModel::hasTrack() const {
    return service_ != nullptr && service_->track().has_value();
}

QString NowPlayingViewModel::title() const {
    return hasTrack() ? service_->track()->title : QString();
}

QString NowPlayingViewModel::artist() const {
    return hasTrack() ? service_->track()->artist : QString();
}

bool NowPlayingViewModel::isPlaying() const {
    return hasTrack() && service_->track()->isPlaying;
}

double NowPlayingViewModel::duration() const {
    return hasTrack() ? service_->track()->duration : 0;
}

bool NowPlayingViewModel::canRepeat() const {
    return hasTrack() && service_->track()->canRepeat;
}

QString NowPlayingViewModel::repeatMode() const {
    switch (hasTrack() ? service_->track()->repeatMode : RepeatMode::off) {
    case RepeatMode::all:
        return QStringLiteral("all");
    case RepeatMode::one:
        return QStringLiteral("one");
    case RepeatMode::off:
        break;
    }
    return QStringLiteral("off");
}

QString NowPlayingViewModel::artworkUrl() const {
    if (service_ == nullptr || !service_->artwork()) {
        return {};
    }
    return QStringLiteral("image://") + providerName + QStringLiteral("/cover/") +
           QString::number(artworkSerial_);
}

QColor NowPlayingViewModel::accent() const {
    return service_ != nullptr ? service_->accentColor() : QColor(Qt::white);
}

QColor NowPlayingViewModel::secondColor() const {
    return service_ != nullptr && service_->palette().size() > 1 ? service_->palette().at(1) : accent();
}

double NowPlayingViewModel::positionNow() const {
    return service_ != nullptr ? service_->interpolatedPosition() : 0;
}

void NowPlayingViewModel::playPause() {
    if (service_ != nullptr) {
        service_->send(QStringLiteral("playpause"));
    }
}

void NowPlayingViewModel::next() {
    if (service_ != nullptr) {
        service_->send(QStringLiteral("next track"));
    }
}

void NowPlayingViewModel::previous() {
    if (service_ != nullptr) {
        service_->send(QStringLiteral("previous track"));
    }
}

void NowPlayingViewModel::seek(double seconds) {
    if (service_ != nullptr) {
        service_->seek(seconds);
    }
}

void NowPlayingViewModel::cycleRepeat() {
    if (service_ != nullptr) {
        service_->cycleRepeat();
    }
}

void NowPlayingViewModel::openPlayer() {
    if (service_ != nullptr) {
        service_->openPlayer();
    }
}

} // namespace mirrowisp
