#pragma once

#include <QObject>
#include <QString>
#include <memory>
#include <vector>

class QSocketNotifier;
struct xcb_connection_t;

namespace mirrowisp {

// A few plain keys without taking the keyboard from the user's terminal: the permission card's "y"
// and "n", or space for play and pause. A passive grab on the root window, held only while the
// island wants the keys. Its own connection, so Qt never sees (or drops) the grabbed presses. A key
// held down reports its first press only; its repeats and release go with it.
class X11KeyGrab final : public QObject {
    Q_OBJECT

public:
    // `keys`: the characters to take, one key each; `display` as in DISPLAY, empty for the environment's.
    explicit X11KeyGrab(const QString& keys = QStringLiteral("yn"), const QString& display = {},
                        QObject* parent = nullptr);
    ~X11KeyGrab() override;
    X11KeyGrab(const X11KeyGrab&) = delete;
    X11KeyGrab& operator=(const X11KeyGrab&) = delete;

    bool isAvailable() const { return connection_ != nullptr; }
    bool isGrabbed() const { return grabbed_; }
    // Grabs or releases both keys; a no-op when nothing changes. False if the server refused the grab
    // (another client holds the key).
    bool setGrabbed(bool grabbed);

Q_SIGNALS:
    // The key's character, as given to the constructor.
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
    // The server's auto-repeat sends a release and a press of the same time: that press is no fresh one.
    uint32_t lastRelease_ = 0;
};

} // namespace mirrowisp
