#pragma once

#include <QByteArray>
#include <QHash>

namespace mirrowisp {

// The text chunks (tEXt, uncompressed iTXt) of a PNG before its pixels, by key. Qt's image reader cuts
// keys at their first colon, and thumbnail keys ("Thumb::MTime") are full of them. Anything that is not
// a PNG, or is cut short, gives what was read up to there.
QHash<QByteArray, QByteArray> pngTexts(const QByteArray& png);

} // namespace mirrowisp
