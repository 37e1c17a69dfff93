#pragma once

#include "app/AppModel.h"
#include "app/Preferences.h"
#include "base/UserDefaults.h"
#include "island/DelayedTasks.h"
#include "island/DragPasteboard.h"
#include "island/IslandEnvironment.h"
#include "island/IslandPanel.h"
#include "island/NotchScreen.h"
#include "island/PointerSource.h"
#include "island/ScreenSource.h"
#include "support/NoLaunchAtLogin.h"
#include "support/TestSupport.h"

#include <algorithm>
#include <memory>
#include <tuple>
#include <vector>

namespace mirrowisp::test {

// Delayed work that runs only when the test moves the clock: each task at its own due time, in
// order, including tasks that earlier ones schedule within the same step.
class ManualDelayedTasks final : public DelayedTasks {
public:
    explicit ManualDelayedTasks(ManualClock& clock) : clock_(clock) {}

    TaskHandle schedule(double seconds, std::function<void()> work) override {
        TaskHandle handle = TaskHandle::make(std::move(work));
        queue_.push_back({clock_.now() + std::max(0.0, seconds), next_++, handle});
        return handle;
    }

    void advance(double seconds) {
        const Timestamp end = clock_.now() + seconds;
        for (;;) {
            const auto due =
                std::min_element(queue_.begin(), queue_.end(), [](const Entry& a, const Entry& b) {
                    return std::tie(a.at, a.order) < std::tie(b.at, b.order);
                });
            if (due == queue_.end() || due->at > end) {
                break;
            }
            Entry entry = *due;
            queue_.erase(due);
            clock_.set(std::max(clock_.now(), entry.at));
            entry.handle.run();
        }
        clock_.set(end);
    }

    int pendingCount() const {
        return static_cast<int>(
            std::count_if(queue_.begin(), queue_.end(), [](const Entry& e) { return e.handle.isPending(); }));
    }

private:
    struct Entry {
        Timestamp at;
        long order;
        TaskHandle handle;
    };
    ManualClock& clock_;
    std::vector<Entry> queue_;
    long next_ = 0;
};

// A drag pasteboard the test fills: `begin` is another application starting a drag.
class FakeDragPasteboard final : public DragPasteboard {
public:
    int changeCount() const override { return count_; }
    std::optional<QStringList> types() const override { return types_; }
    void begin(std::optional<QStringList> types) {
        ++count_;
        types_ = std::move(types);
    }

private:
    int count_ = 0;
    std::optional<QStringList> types_;
};

// What a fake window went through; outlives the window so tests can look after it is gone.
struct PanelLog {
    quint32 screenID = 0;
    QRect frame;
    QList<QRegion> regions;
    bool visible = false;
    bool alive = true;
    bool keyboard = false;
    int keyboardReleases = 0;

    QRegion region() const { return regions.isEmpty() ? QRegion() : regions.last(); }
};

class FakePanel final : public IslandPanel {
public:
    explicit FakePanel(std::shared_ptr<PanelLog> log) : log_(std::move(log)) {}
    ~FakePanel() override { log_->alive = false; }
    void setFrame(const QRect& frame) override { log_->frame = frame; }
    void setInputRegion(const QRegion& region) override { log_->regions.append(region); }
    void show() override { log_->visible = true; }
    void hide() override { log_->visible = false; }
    bool hasKeyboardFocus() const override { return log_->keyboard; }
    void releaseKeyboardFocus() override {
        log_->keyboard = false;
        ++log_->keyboardReleases;
    }

private:
    std::shared_ptr<PanelLog> log_;
};

class FakeScreenSource final : public ScreenSource {
public:
    QList<NotchScreen> screens() const override { return screens_; }
    std::optional<NotchScreen> primaryScreen() const override {
        return screens_.isEmpty() ? std::nullopt : std::optional(screens_.first());
    }
    void setOnChange(std::function<void()> onChange) override { onChange_ = std::move(onChange); }

    // Rearranges the screens, the primary one first, as a hot-plug would.
    void set(QList<NotchScreen> screens) {
        screens_ = std::move(screens);
        if (onChange_) {
            onChange_();
        }
    }

private:
    QList<NotchScreen> screens_;
    std::function<void()> onChange_;
};

// A screen `width` wide at `x`, under a top panel `panel` high.
inline NotchScreen makeScreen(quint32 id, int x, int width = 1920, int height = 1080, int panel = 30) {
    return {id, QRect(x, 0, width, height), QRect(x, panel, width, height - panel), 0,
            QStringLiteral("screen-%1").arg(id)};
}

// Everything an island reads, with settings in a temporary home, a hand-driven clock and fake
// windows.
class IslandWorld {
public:
    IslandWorld()
        : defaults(home.path() + QStringLiteral("/defaults.json")), prefs(defaults, login),
          app(prefs, defaults, clock, noClaude()) {
        prefs.setHoverDelay(0.05);
        prefs.setOpenOnHover(true);
        prefs.setFakeNotchWidth(140);
    }

    IslandEnvironment env() { return {prefs, app, tasks, pointer, &drags}; }

    IslandPanelFactory factory() {
        return [this](const NotchScreen& screen, NotchViewModel&) {
            auto log = std::make_shared<PanelLog>();
            log->screenID = screen.displayID;
            panels.push_back(log);
            return std::make_unique<FakePanel>(log);
        };
    }

    std::shared_ptr<PanelLog> panelFor(quint32 screenID) const {
        for (auto it = panels.rbegin(); it != panels.rend(); ++it) {
            if ((*it)->screenID == screenID) {
                return *it;
            }
        }
        return nullptr;
    }

    TemporaryHome home;
    UserDefaults defaults;
    NoLaunchAtLogin login;
    Preferences prefs;
    ManualClock clock;
    AppModel app;
    ManualDelayedTasks tasks{clock};
    PointerTracker pointer;
    FakeDragPasteboard drags;
    std::vector<std::shared_ptr<PanelLog>> panels;

private:
    static ClaudeProbeRunner noClaude() {
        return {[] { return std::optional<QString>(); },
                [](const QString&) { return ClaudeUsageProbe::FetchResult{}; }};
    }
};

} // namespace mirrowisp::test
