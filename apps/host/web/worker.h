// One thread for what takes longer than a web server may wait.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace fleifeisa::host {

class Worker {
 public:
    explicit Worker(std::size_t most_waiting) : most_(most_waiting), thread_([this] { run(); }) {}
    /// What has not begun yet is left out.
    ~Worker() {
        {
            const std::lock_guard lock(mutex_);
            stopping_ = true;
        }
        changed_.notify_all();
        thread_.join();
    }
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    /// False where too much waits. @param job  must not throw
    bool post(std::function<void()> job) {
        const std::lock_guard lock(mutex_);
        if (jobs_.size() >= most_) return false;
        jobs_.push_back(std::move(job));
        changed_.notify_one();
        return true;
    }

 private:
    void run() {
        std::unique_lock lock(mutex_);
        while (true) {
            changed_.wait(lock, [this] { return stopping_ || !jobs_.empty(); });
            if (stopping_) return;
            const std::function<void()> job = std::move(jobs_.front());
            jobs_.pop_front();
            lock.unlock();
            job();
            lock.lock();
        }
    }

    const std::size_t most_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::function<void()>> jobs_;
    bool stopping_ = false;
    std::thread thread_;
};

}  // namespace fleifeisa::host
