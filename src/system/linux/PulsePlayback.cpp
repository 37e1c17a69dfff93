#include "system/linux/PulsePlayback.h"

#include "base/Log.h"

#include <atomic>
#include <pulse/pulseaudio.h>

namespace mirrowisp {

namespace {

constexpr uint32_t fallbackRate = 44100;
// Enough to ride out a busy moment, little enough for a cue to start promptly.
constexpr pa_usec_t bufferUsec = 60 * PA_USEC_PER_MSEC;

void release(pa_operation* operation) {
    if (operation != nullptr) {
        pa_operation_unref(operation);
    }
}

} // namespace

// Everything but open, pause and resume runs on libpulse's thread; those take the loop's lock.
struct PulsePlayback::Loop {
    pa_threaded_mainloop* mainloop = nullptr;
    pa_context* context = nullptr;
    pa_stream* stream = nullptr;
    Render render;
    double rate = fallbackRate;
    bool corked = true;
    std::atomic<bool> failed{false};

    void fail(const char* what) {
        const char* reason = context != nullptr ? pa_strerror(pa_context_errno(context)) : "no sound server";
        logLine(QStringLiteral("Mirrowisp sound engine failed: ") + QLatin1String(what) +
                QStringLiteral(": ") + QString::fromUtf8(reason));
        failed = true;
    }

    void drop() {
        if (stream != nullptr) {
            pa_stream_set_state_callback(stream, nullptr, nullptr);
            pa_stream_set_write_callback(stream, nullptr, nullptr);
            pa_stream_disconnect(stream);
            pa_stream_unref(stream);
            stream = nullptr;
        }
        if (context != nullptr) {
            pa_context_set_state_callback(context, nullptr, nullptr);
            pa_context_disconnect(context);
            pa_context_unref(context);
            context = nullptr;
        }
    }

    static void contextState(pa_context* context, void* self) {
        auto* loop = static_cast<Loop*>(self);
        switch (pa_context_get_state(context)) {
        case PA_CONTEXT_READY:
            release(pa_context_get_server_info(context, &Loop::serverInfo, self));
            break;
        case PA_CONTEXT_FAILED:
        case PA_CONTEXT_TERMINATED:
            loop->fail("connection");
            break;
        default:
            break;
        }
    }

    static void serverInfo(pa_context* context, const pa_server_info* info, void* self) {
        auto* loop = static_cast<Loop*>(self);
        const uint32_t rate =
            info != nullptr && info->sample_spec.rate > 0 ? info->sample_spec.rate : fallbackRate;
        loop->rate = rate;
        const pa_sample_spec format{PA_SAMPLE_FLOAT32NE, rate, 1};
        loop->stream = pa_stream_new(context, "Mirrowisp cues", &format, nullptr);
        if (loop->stream == nullptr) {
            loop->fail("stream");
            return;
        }
        pa_stream_set_state_callback(loop->stream, &Loop::streamState, self);
        pa_stream_set_write_callback(loop->stream, &Loop::write, self);
        pa_buffer_attr attr{};
        attr.maxlength = static_cast<uint32_t>(-1);
        attr.tlength = static_cast<uint32_t>(pa_usec_to_bytes(bufferUsec, &format));
        attr.prebuf = static_cast<uint32_t>(-1);
        attr.minreq = static_cast<uint32_t>(-1);
        attr.fragsize = static_cast<uint32_t>(-1);
        const auto flags = static_cast<pa_stream_flags_t>(PA_STREAM_ADJUST_LATENCY |
                                                          (loop->corked ? PA_STREAM_START_CORKED : 0));
        if (pa_stream_connect_playback(loop->stream, nullptr, &attr, flags, nullptr, nullptr) < 0) {
            loop->fail("stream");
        }
    }

    static void streamState(pa_stream* stream, void* self) {
        const auto state = pa_stream_get_state(stream);
        if (state == PA_STREAM_FAILED || state == PA_STREAM_TERMINATED) {
            static_cast<Loop*>(self)->fail("stream");
        }
    }

    static void write(pa_stream* stream, size_t bytes, void* self) {
        auto* loop = static_cast<Loop*>(self);
        void* data = nullptr;
        if (pa_stream_begin_write(stream, &data, &bytes) < 0 || data == nullptr) {
            return;
        }
        loop->render(static_cast<float*>(data), bytes / sizeof(float), loop->rate);
        pa_stream_write(stream, data, bytes - bytes % sizeof(float), nullptr, 0, PA_SEEK_RELATIVE);
    }

    void cork(bool value) {
        corked = value;
        if (stream != nullptr && pa_stream_get_state(stream) == PA_STREAM_READY) {
            release(pa_stream_cork(stream, value ? 1 : 0, nullptr, nullptr));
        }
    }
};

PulsePlayback::PulsePlayback() : loop_(std::make_unique<Loop>()) {}

PulsePlayback::~PulsePlayback() {
    if (loop_->mainloop == nullptr) {
        return;
    }
    pa_threaded_mainloop_stop(loop_->mainloop);
    loop_->drop();
    pa_threaded_mainloop_free(loop_->mainloop);
}

bool PulsePlayback::open(Render render) {
    if (loop_->mainloop == nullptr) {
        loop_->mainloop = pa_threaded_mainloop_new();
        if (loop_->mainloop == nullptr || pa_threaded_mainloop_start(loop_->mainloop) < 0) {
            return false;
        }
        pa_threaded_mainloop_set_name(loop_->mainloop, "mirrowisp.sound");
    }
    pa_threaded_mainloop_lock(loop_->mainloop);
    loop_->drop();
    loop_->failed = false;
    loop_->render = std::move(render);
    loop_->context = pa_context_new(pa_threaded_mainloop_get_api(loop_->mainloop), "Mirrowisp");
    bool began = loop_->context != nullptr;
    if (began) {
        pa_context_set_state_callback(loop_->context, &Loop::contextState, loop_.get());
        began = pa_context_connect(loop_->context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) >= 0;
    }
    if (!began) {
        loop_->fail("connection");
    }
    pa_threaded_mainloop_unlock(loop_->mainloop);
    return began;
}

bool PulsePlayback::isOpen() const {
    return loop_->mainloop != nullptr && loop_->context != nullptr && !loop_->failed;
}

void PulsePlayback::resume() {
    if (loop_->mainloop == nullptr) {
        return;
    }
    pa_threaded_mainloop_lock(loop_->mainloop);
    loop_->cork(false);
    pa_threaded_mainloop_unlock(loop_->mainloop);
}

void PulsePlayback::pause() {
    if (loop_->mainloop == nullptr) {
        return;
    }
    pa_threaded_mainloop_lock(loop_->mainloop);
    loop_->cork(true);
    pa_threaded_mainloop_unlock(loop_->mainloop);
}

} // namespace mirrowisp
