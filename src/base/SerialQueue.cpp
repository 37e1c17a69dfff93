#include "base/SerialQueue.h"

#include <pthread.h>

namespace mirrowisp {

void nameCurrentThread(const std::string& label) {
    pthread_setname_np(pthread_self(), label.substr(0, 15).c_str());
}

SerialQueue::SerialQueue(std::string label) : label_(std::move(label)), thread_([this] { run(); }) {}

SerialQueue::~SerialQueue() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_one();
    thread_.join();
}

void SerialQueue::async(std::function<void()> work) {
    {
        std::lock_guard lock(mutex_);
        items_.push_back(std::move(work));
    }
    wake_.notify_one();
}

void SerialQueue::run() {
    nameCurrentThread(label_);
    for (;;) {
        std::function<void()> work;
        {
            std::unique_lock lock(mutex_);
            wake_.wait(lock, [this] { return stopping_ || !items_.empty(); });
            if (items_.empty()) {
                return;
            }
            work = std::move(items_.front());
            items_.pop_front();
        }
        work();
    }
}

} // namespace mirrowisp
