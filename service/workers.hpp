#ifndef VELDAN_SERVICE_WORKERS_HPP
#define VELDAN_SERVICE_WORKERS_HPP

#include "photo/face_api.hpp"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace veldan::service {

/** Threads with an instance of the library each, and a queue of fixed length in front of them. Any thread may ask. */
class Workers {
public:
    using Work = std::function<void(kit::FaceApi& api)>;

    /** Throws CommandError (Library) when an instance does not start. */
    Workers(std::size_t count, std::size_t queue);
    ~Workers();
    Workers(const Workers&) = delete;
    Workers& operator=(const Workers&) = delete;

    /**
     * Has work done and waits for its end. Throws what the work throws, and Problem: 503 when the queue is full, or
     * when no worker is free within the time.
     */
    void run(const Work& work, std::chrono::milliseconds patience);

    std::size_t waiting() const;
    std::size_t busy() const;
    std::size_t count() const { return threads_.size(); }

private:
    struct Task;

    void work(std::unique_ptr<kit::FaceApi> api);

    const std::size_t longest_;
    mutable std::mutex mutex_;
    std::condition_variable arrived_;
    std::deque<std::shared_ptr<Task>> queue_;
    std::size_t busy_ = 0;
    bool stopping_ = false;
    std::vector<std::thread> threads_;
};

} // namespace veldan::service

#endif
