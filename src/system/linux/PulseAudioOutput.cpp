#include "system/linux/PulseAudioOutput.h"

#include "base/MainQueue.h"

#include <QByteArray>
#include <algorithm>
#include <cmath>
#include <pulse/pulseaudio.h>

namespace mirrowisp {

namespace {

constexpr pa_usec_t retryDelay = 2 * PA_USEC_PER_SEC;

QString property(const pa_proplist* list, const char* key) {
    const char* value = pa_proplist_gets(list, key);
    return value != nullptr ? QString::fromUtf8(value) : QString();
}

QString bluetoothAddress(const pa_sink_info& info) {
    const bool bluetooth = property(info.proplist, "device.bus") == QLatin1String("bluetooth") ||
                           property(info.proplist, "device.api") == QLatin1String("bluez5");
    if (!bluetooth) {
        return {};
    }
    QString address = property(info.proplist, "api.bluez5.address");
    if (address.isEmpty()) {
        address = property(info.proplist, "device.string");
    }
    return address.left(17);
}

} // namespace

// Everything but the report and the locks runs on libpulse's own thread; the main thread takes the
// loop's lock for a write.
struct PulseAudioOutput::Loop {
    pa_threaded_mainloop* mainloop = nullptr;
    pa_context* context = nullptr;
    std::shared_ptr<Report> report;
    QByteArray sink;
    uint8_t channels = 0;
    bool retryPending = false;

    void post(std::optional<AudioState> state) {
        postToMain([weak = std::weak_ptr<Report>(report), state = std::move(state)] {
            if (auto alive = weak.lock()) {
                (*alive)(state);
            }
        });
    }

    void connect() {
        pa_mainloop_api* api = pa_threaded_mainloop_get_api(mainloop);
        context = pa_context_new(api, "Mirrowisp");
        pa_context_set_state_callback(context, &Loop::stateChanged, this);
        if (pa_context_connect(context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
            retryLater();
        }
    }

    void dropContext() {
        if (context != nullptr) {
            pa_context_set_state_callback(context, nullptr, nullptr);
            pa_context_set_subscribe_callback(context, nullptr, nullptr);
            pa_context_disconnect(context);
            pa_context_unref(context);
            context = nullptr;
        }
    }

    void retryLater() {
        sink.clear();
        if (retryPending) {
            return;
        }
        retryPending = true;
        pa_mainloop_api* api = pa_threaded_mainloop_get_api(mainloop);
        timeval when{};
        pa_timeval_add(pa_gettimeofday(&when), retryDelay);
        api->time_new(api, &when, &Loop::retry, this);
    }

    static void retry(pa_mainloop_api* api, pa_time_event* event, const timeval*, void* self) {
        api->time_free(event);
        auto* loop = static_cast<Loop*>(self);
        loop->retryPending = false;
        loop->dropContext();
        loop->connect();
    }

    static void stateChanged(pa_context* context, void* self) {
        auto* loop = static_cast<Loop*>(self);
        switch (pa_context_get_state(context)) {
        case PA_CONTEXT_READY: {
            pa_context_set_subscribe_callback(context, &Loop::event, self);
            const auto mask =
                static_cast<pa_subscription_mask_t>(PA_SUBSCRIPTION_MASK_SINK | PA_SUBSCRIPTION_MASK_SERVER);
            release(pa_context_subscribe(context, mask, nullptr, nullptr));
            loop->refresh();
            break;
        }
        case PA_CONTEXT_FAILED:
        case PA_CONTEXT_TERMINATED:
            loop->post(std::nullopt);
            loop->retryLater();
            break;
        default:
            break;
        }
    }

    static void event(pa_context*, pa_subscription_event_type_t, uint32_t, void* self) {
        static_cast<Loop*>(self)->refresh();
    }

    void refresh() { release(pa_context_get_server_info(context, &Loop::serverInfo, this)); }

    static void serverInfo(pa_context* context, const pa_server_info* info, void* self) {
        auto* loop = static_cast<Loop*>(self);
        if (info == nullptr || info->default_sink_name == nullptr) {
            loop->sink.clear();
            loop->post(std::nullopt);
            return;
        }
        release(pa_context_get_sink_info_by_name(context, info->default_sink_name, &Loop::sinkInfo, self));
    }

    static void sinkInfo(pa_context*, const pa_sink_info* info, int last, void* self) {
        if (last != 0 || info == nullptr) {
            return;
        }
        auto* loop = static_cast<Loop*>(self);
        loop->sink = QByteArray(info->name);
        loop->channels = info->volume.channels;
        AudioState state;
        state.device = QString::fromUtf8(info->name);
        state.volume =
            std::clamp(static_cast<double>(pa_cvolume_avg(&info->volume)) / PA_VOLUME_NORM, 0.0, 1.0);
        state.muted = info->mute != 0;
        state.bluetoothAddress = bluetoothAddress(*info);
        loop->post(state);
    }

    static void release(pa_operation* operation) {
        if (operation != nullptr) {
            pa_operation_unref(operation);
        }
    }
};

PulseAudioOutput::PulseAudioOutput() : loop_(std::make_unique<Loop>()) {}

PulseAudioOutput::~PulseAudioOutput() {
    if (loop_->mainloop == nullptr) {
        return;
    }
    pa_threaded_mainloop_stop(loop_->mainloop);
    loop_->dropContext();
    pa_threaded_mainloop_free(loop_->mainloop);
}

void PulseAudioOutput::start(Report report) {
    if (loop_->mainloop != nullptr) {
        return;
    }
    loop_->report = std::make_shared<Report>(std::move(report));
    loop_->mainloop = pa_threaded_mainloop_new();
    pa_threaded_mainloop_set_name(loop_->mainloop, "mirrowisp.audio");
    pa_threaded_mainloop_lock(loop_->mainloop);
    loop_->connect();
    pa_threaded_mainloop_unlock(loop_->mainloop);
    pa_threaded_mainloop_start(loop_->mainloop);
}

void PulseAudioOutput::setVolume(double volume) {
    if (loop_->mainloop == nullptr) {
        return;
    }
    pa_threaded_mainloop_lock(loop_->mainloop);
    if (loop_->context != nullptr && !loop_->sink.isEmpty() && loop_->channels > 0) {
        pa_cvolume levels;
        pa_cvolume_set(&levels, loop_->channels,
                       static_cast<pa_volume_t>(std::lround(volume * PA_VOLUME_NORM)));
        Loop::release(pa_context_set_sink_volume_by_name(loop_->context, loop_->sink.constData(), &levels,
                                                         nullptr, nullptr));
    }
    pa_threaded_mainloop_unlock(loop_->mainloop);
}

void PulseAudioOutput::setMuted(bool muted) {
    if (loop_->mainloop == nullptr) {
        return;
    }
    pa_threaded_mainloop_lock(loop_->mainloop);
    if (loop_->context != nullptr && !loop_->sink.isEmpty()) {
        Loop::release(pa_context_set_sink_mute_by_name(loop_->context, loop_->sink.constData(), muted ? 1 : 0,
                                                       nullptr, nullptr));
    }
    pa_threaded_mainloop_unlock(loop_->mainloop);
}

} // namespace mirrowisp
