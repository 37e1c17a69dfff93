#include "island/PngText.h"

namespace mirrowisp {

QHash<QByteArray, QByteArray> pngTexts(const QByteArray& png) {
    QHash<QByteArray, QByteArray> texts;
    static const QByteArray signature("\x89PNG\r\n\x1a\n", 8);
    if (!png.startsWith(signature)) {
        return texts;
    }
    qsizetype at = signature.size();
    while (at + 8 <= png.size()) {
        const auto* head = reinterpret_cast<const uchar*>(png.constData() + at);
        const qint64 length = (qint64{head[0]} << 24) | (head[1] << 16) | (head[2] << 8) | head[3];
        const QByteArray type = png.mid(at + 4, 4);
        if (type == "IDAT" || type == "IEND" || at + 12 + length > png.size()) {
            break;
        }
        const QByteArray data = png.mid(at + 8, length);
        const qsizetype nul = data.indexOf('\0');
        if (nul > 0 && type == "tEXt") {
            texts.insert(data.left(nul), data.mid(nul + 1));
        } else if (nul > 0 && type == "iTXt" && data.size() > nul + 2 && data[nul + 1] == 0) {
            // Uncompressed international text: flag, method, language and translated key come first.
            const qsizetype language = data.indexOf('\0', nul + 3);
            const qsizetype translated = language < 0 ? -1 : data.indexOf('\0', language + 1);
            if (translated >= 0) {
                texts.insert(data.left(nul), data.mid(translated + 1));
            }
        }
        at += 12 + length;
    }
    return texts;
}

} // namespace mirrowisp
