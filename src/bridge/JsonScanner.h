#pragma once

#include <QByteArray>
#include <QByteArrayView>

namespace mirrowisp {

// A strict, pull-style JSON reader over UTF-8 bytes (RFC 8259: no comments, no trailing commas,
// valid UTF-8 only, no lone surrogates). The bridge reads request lines of up to 32 MiB with it:
// string values come back as views into the line when they hold no escapes, so a large Base64
// payload is never copied into a UTF-16 string on its way to being decoded.
class JsonScanner {
public:
    enum class Type { object, array, string, number, boolean, null, invalid };
    enum class Next { key, end, error };

    explicit JsonScanner(QByteArrayView text) : text_(text) {}

    Type peek();
    bool beginObject();
    // After beginObject: reads the next key (and its colon), or the closing brace. `first` is the
    // caller's cursor for this object: true before its first member.
    Next nextKey(QByteArray& key, bool& first);
    // A string value; `view` points into the input, or into `storage` when escapes had to be decoded.
    bool readString(QByteArrayView& view, QByteArray& storage);
    bool readString(QByteArray& out);
    bool readBool(bool& out);
    bool readNull();
    bool readNumber(double& out);
    bool skipValue();
    // True when only whitespace is left.
    bool finish();

    static constexpr int maxDepth = 512;

private:
    void skipWhitespace();
    bool scanString(QByteArrayView& view, QByteArray& storage, bool decode);
    bool skipValue(int depth);
    bool expectLiteral(QByteArrayView literal);
    bool scanNumber();

    QByteArrayView text_;
    qsizetype pos_ = 0;
};

} // namespace mirrowisp
