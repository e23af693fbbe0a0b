#include "system/ordered_work.hpp"

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace veldan::kit {

namespace {

class Crew {
public:
    explicit Crew(const OrderedWork& order)
        : order_(order), window_(std::max(order.window, order.workers)), results_(window_) {
        for (std::size_t worker = 0; worker < order.workers; ++worker)
            threads_.emplace_back([this, worker] { work(worker); });
    }

    ~Crew() {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            ended_ = true;
        }
        room_.notify_all();
        for (std::thread& thread : threads_)
            thread.join();
    }

    Crew(const Crew&) = delete;
    Crew& operator=(const Crew&) = delete;

    void deliver() {
        for (std::size_t index = 0; index < order_.count; ++index) {
            std::exception_ptr failure;
            {
                std::unique_lock<std::mutex> lock(mutex_);
                Result& result = results_[index % window_];
                done_.wait(lock, [&] { return result.ready; });
                failure = result.failure;
            }
            if (failure)
                std::rethrow_exception(failure);
            if (!order_.deliver(index))
                return;
            {
                const std::lock_guard<std::mutex> lock(mutex_);
                results_[index % window_] = {};
                ++delivered_;
            }
            room_.notify_all();
        }
    }

private:
    struct Result {
        bool ready = false;
        std::exception_ptr failure;
    };

    void work(std::size_t worker) {
        for (;;) {
            std::size_t index = 0;
            {
                std::unique_lock<std::mutex> lock(mutex_);
                room_.wait(lock, [&] { return ended_ || next_ == order_.count || next_ < delivered_ + window_; });
                if (ended_ || next_ == order_.count)
                    return;
                index = next_++;
            }
            Result result{true, nullptr};
            try {
                order_.work(index, worker);
            } catch (...) {
                result.failure = std::current_exception();
            }
            {
                const std::lock_guard<std::mutex> lock(mutex_);
                results_[index % window_] = result;
            }
            done_.notify_one();
        }
    }

    const OrderedWork& order_;
    const std::size_t window_;
    std::mutex mutex_;
    std::condition_variable room_;
    std::condition_variable done_;
    std::vector<Result> results_;
    std::size_t next_ = 0;
    std::size_t delivered_ = 0;
    bool ended_ = false;
    std::vector<std::thread> threads_;
};

} // namespace

void OrderedWork::run() const {
    if (workers > 1) {
        Crew(*this).deliver();
        return;
    }
    for (std::size_t index = 0; index < count; ++index) {
        work(index, 0);
        if (!deliver(index))
            return;
    }
}

} // namespace veldan::kit
