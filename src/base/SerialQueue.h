#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace mirrowisp {

// One background thread that runs submitted work in order, one item at a time.
// Blocking work (child processes, file tails) goes here so the main thread never waits on it.
// The destructor finishes the work already queued, then joins the thread.
class SerialQueue {
public:
    explicit SerialQueue(std::string label);
    ~SerialQueue();
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    void async(std::function<void()> work);
    const std::string& label() const { return label_; }

private:
    void run();

    std::string label_;
    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<std::function<void()>> items_;
    bool stopping_ = false;
    std::thread thread_;
};

// Names the calling thread as it shows in ps, top and gdb (at most 15 bytes are kept).
void nameCurrentThread(const std::string& label);

} // namespace mirrowisp
