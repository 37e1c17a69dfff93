#include "shelf/ShelfHeif.h"

#include <QFile>
#include <cstring>
#include <libheif/heif.h>
#include <memory>
#include <mutex>

namespace mirrowisp::ShelfHeif {

namespace {

// As much as Qt's own readers allocate for one image by default.
constexpr qint64 maxPixels = 256LL * 1024 * 1024 / 4;

void initialise() {
    // Newer libheif finds its codecs as plugins, loaded here; the reference is held for good.
    static std::once_flag once;
    std::call_once(once, [] { heif_init(nullptr); });
}

template <typename T, void (*release)(T*)> struct Releaser {
    void operator()(T* p) const { release(p); }
};
template <typename T, void (*release)(T*)> using Owned = std::unique_ptr<T, Releaser<T, release>>;

using Context = Owned<heif_context, heif_context_free>;
using Handle = Owned<const heif_image_handle, heif_image_handle_release>;
using Image = Owned<const heif_image, heif_image_release>;
using Encoder = Owned<heif_encoder, heif_encoder_release>;

QString message(const heif_error& error) {
    return QString::fromUtf8(error.message != nullptr ? error.message : "unknown error");
}

} // namespace

bool canRead() {
    initialise();
    return heif_have_decoder_for_format(heif_compression_HEVC) != 0;
}

bool canWrite() {
    initialise();
    return heif_have_encoder_for_format(heif_compression_HEVC) != 0;
}

Decoded read(const QString& path) {
    initialise();
    const Context context(heif_context_alloc());
    heif_error error =
        heif_context_read_from_file(context.get(), QFile::encodeName(path).constData(), nullptr);
    if (error.code != heif_error_Ok) {
        return {{}, QStringLiteral("not a HEIC image libheif can read (") + message(error) + u')'};
    }
    heif_image_handle* rawHandle = nullptr;
    error = heif_context_get_primary_image_handle(context.get(), &rawHandle);
    const Handle handle(rawHandle);
    if (error.code != heif_error_Ok) {
        return {{}, QStringLiteral("no image in the HEIC file (") + message(error) + u')'};
    }
    const qint64 pixels =
        qint64(heif_image_handle_get_width(handle.get())) * heif_image_handle_get_height(handle.get());
    if (pixels > maxPixels) {
        return {{}, QStringLiteral("the image is too large")};
    }
    const bool alpha = heif_image_handle_has_alpha_channel(handle.get()) != 0;
    heif_image* rawImage = nullptr;
    error = heif_decode_image(handle.get(), &rawImage, heif_colorspace_RGB,
                              alpha ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB, nullptr);
    const Image image(rawImage);
    if (error.code != heif_error_Ok) {
        return {{}, QStringLiteral("the HEIC image does not decode (") + message(error) + u')'};
    }
    int stride = 0;
    const uint8_t* data = heif_image_get_plane_readonly(image.get(), heif_channel_interleaved, &stride);
    const int width = heif_image_get_width(image.get(), heif_channel_interleaved);
    const int height = heif_image_get_height(image.get(), heif_channel_interleaved);
    if (data == nullptr || width <= 0 || height <= 0) {
        return {{}, QStringLiteral("the HEIC image does not decode")};
    }
    // Copied: the pixels belong to libheif's image, released on return.
    return {
        QImage(data, width, height, stride, alpha ? QImage::Format_RGBA8888 : QImage::Format_RGB888).copy(),
        {}};
}

std::optional<QString> write(const QImage& source, const QString& path, int quality) {
    initialise();
    const bool alpha = source.hasAlphaChannel();
    const QImage pixels = source.convertToFormat(alpha ? QImage::Format_RGBA8888 : QImage::Format_RGB888);
    const Context context(heif_context_alloc());
    heif_encoder* rawEncoder = nullptr;
    heif_error error = heif_context_get_encoder_for_format(context.get(), heif_compression_HEVC, &rawEncoder);
    const Encoder encoder(rawEncoder);
    if (error.code != heif_error_Ok) {
        return QStringLiteral("no HEIC encoder (") + message(error) + u')';
    }
    heif_encoder_set_lossy_quality(encoder.get(), quality);
    heif_image* rawImage = nullptr;
    error = heif_image_create(pixels.width(), pixels.height(), heif_colorspace_RGB,
                              alpha ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB, &rawImage);
    const Image image(rawImage);
    if (error.code != heif_error_Ok) {
        return message(error);
    }
    error = heif_image_add_plane(rawImage, heif_channel_interleaved, pixels.width(), pixels.height(), 8);
    if (error.code != heif_error_Ok) {
        return message(error);
    }
    int stride = 0;
    uint8_t* plane = heif_image_get_plane(rawImage, heif_channel_interleaved, &stride);
    const qsizetype rowBytes = qsizetype(pixels.width()) * (alpha ? 4 : 3);
    for (int y = 0; y < pixels.height(); ++y) {
        std::memcpy(plane + qsizetype(y) * stride, pixels.constScanLine(y), static_cast<size_t>(rowBytes));
    }
    error = heif_context_encode_image(context.get(), rawImage, encoder.get(), nullptr, nullptr);
    if (error.code != heif_error_Ok) {
        return QStringLiteral("the image could not be encoded (") + message(error) + u')';
    }
    // Written through a file of our own, which tells of a full disk once closed.
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly)) {
        return QStringLiteral("could not write ") + path + QStringLiteral(" (") + file.errorString() + u')';
    }
    heif_writer writer{};
    writer.writer_api_version = 1;
    writer.write = [](heif_context*, const void* data, size_t size, void* target) {
        auto* out = static_cast<QFile*>(target);
        const qint64 length = static_cast<qint64>(size);
        if (out->write(static_cast<const char*>(data), length) != length) {
            return heif_error{heif_error_Encoding_error, heif_suberror_Cannot_write_output_data,
                              "write failed"};
        }
        return heif_error{heif_error_Ok, heif_suberror_Unspecified, "ok"};
    };
    error = heif_context_write(context.get(), &writer, &file);
    file.close();
    if (error.code != heif_error_Ok || file.error() != QFileDevice::NoError) {
        const QString why = file.error() != QFileDevice::NoError ? file.errorString() : message(error);
        file.remove();
        return QStringLiteral("the HEIC file could not be written (") + why + u')';
    }
    return std::nullopt;
}

} // namespace mirrowisp::ShelfHeif
