#pragma once

#include "system/MediaKeyTap.h"

#include <QObject>
#include <QString>
#include <functional>
#include <memory>
#include <vector>

class QSocketNotifier;
struct xcb_connection_t;

namespace mirrowisp {

// The XF86 volume, brightness and keyboard light keys, plain and with Shift+Alt, grabbed on the
// root window and handed on as MediaKeyTap's events. Its own connection, so Qt never sees them.
class X11MediaKeyGrab final : public QObject {
    Q_OBJECT

public:
    enum class Result { grabbed, heldByAnother, unavailable };

    // `display` as in DISPLAY; empty means the environment's.
    explicit X11MediaKeyGrab(const QString& display = {}, QObject* parent = nullptr);
    ~X11MediaKeyGrab() override;
    X11MediaKeyGrab(const X11MediaKeyGrab&) = delete;
    X11MediaKeyGrab& operator=(const X11MediaKeyGrab&) = delete;

    bool isAvailable() const { return connection_ != nullptr; }
    // Holds exactly these keys (none releases all). When another client holds one of them, holds
    // none and says so.
    Result grab(const std::vector<MediaKeyTap::Key>& keys);
    const std::vector<MediaKeyTap::Key>& grabbed() const { return grabbed_; }

    // data1 and flags as MediaKeyTap::process takes them.
    std::function<void(uint32_t, uint32_t)> onKey;

private:
    struct Code {
        uint8_t code;
        MediaKeyTap::Key key;
    };
    void readEvents();
    void ungrabAll();
    void emitKey(const Code& code, uint32_t state, bool repeat, uint16_t modifiers);

    xcb_connection_t* connection_ = nullptr;
    std::unique_ptr<QSocketNotifier> notifier_;
    uint32_t root_ = 0;
    std::vector<Code> codes_;
    std::vector<MediaKeyTap::Key> grabbed_;
    std::vector<uint8_t> down_;
};

} // namespace mirrowisp
