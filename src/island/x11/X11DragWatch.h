#pragma once

#include "island/DragPasteboard.h"

#include <QObject>
#include <QString>
#include <memory>

class QSocketNotifier;
struct xcb_connection_t;

namespace mirrowisp {

// Drags of every application on the display: a drag source takes the XDND selection when its drag
// begins, and XFixes tells us each time, so counting those moments tells a drag with content from a
// mere mouse drag. The types come from the source's XdndTypeList, read once per drag when first asked.
// Over a connection of its own; where XFixes is missing the count never moves and no drag opens the
// shelf (drops onto the island itself still land).
class X11DragWatch final : public QObject, public DragPasteboard {
    Q_OBJECT
public:
    // `display` as in DISPLAY; empty means the environment's.
    explicit X11DragWatch(const QString& display = {}, QObject* parent = nullptr);
    ~X11DragWatch() override;
    X11DragWatch(const X11DragWatch&) = delete;
    X11DragWatch& operator=(const X11DragWatch&) = delete;

    bool isAvailable() const { return connection_ != nullptr; }
    int changeCount() const override { return changeCount_; }
    std::optional<QStringList> types() const override;

Q_SIGNALS:
    // A drag with content began.
    void changed();

private:
    bool open(const QString& display);
    void close();
    void readEvents();

    xcb_connection_t* connection_ = nullptr;
    std::unique_ptr<QSocketNotifier> notifier_;
    uint32_t typeListAtom_ = 0;
    uint8_t firstEvent_ = 0;
    uint32_t owner_ = 0;
    int changeCount_ = 0;
    // The latest drag's types and the count they belong to.
    mutable std::optional<QStringList> types_;
    mutable int typesCount_ = -1;
};

} // namespace mirrowisp
