#pragma once

#include <QObject>
#include <QString>
#include <memory>
#include <vector>

class QSocketNotifier;
struct xcb_connection_t;

namespace mirrowisp {

// The permission card's keys ("y" and "n") without taking the keyboard from the user's terminal: a
// passive grab on the root window, held only while the pointer rests on an open island that shows
// such a card. Its own connection, so Qt never sees (or drops) the grabbed presses.
class X11KeyGrab final : public QObject {
    Q_OBJECT

public:
    // `display` as in DISPLAY; empty means the environment's.
    explicit X11KeyGrab(const QString& display = {}, QObject* parent = nullptr);
    ~X11KeyGrab() override;
    X11KeyGrab(const X11KeyGrab&) = delete;
    X11KeyGrab& operator=(const X11KeyGrab&) = delete;

    bool isAvailable() const { return connection_ != nullptr; }
    bool isGrabbed() const { return grabbed_; }
    // Grabs or releases both keys; a no-op when nothing changes. False if the server refused the grab
    // (another client holds the key).
    bool setGrabbed(bool grabbed);

Q_SIGNALS:
    // "y" or "n".
    void pressed(const QString& key);

private:
    void readEvents();

    xcb_connection_t* connection_ = nullptr;
    std::unique_ptr<QSocketNotifier> notifier_;
    uint32_t root_ = 0;
    struct Key {
        uint8_t code;
        QString name;
    };
    std::vector<Key> keys_;
    bool grabbed_ = false;
};

} // namespace mirrowisp
