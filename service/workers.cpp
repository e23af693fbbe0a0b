#include "workers.hpp"

#include "problem.hpp"

#include <algorithm>
#include <exception>
#include <utility>

namespace veldan::service {

struct Workers::Task {
    explicit Task(const Work& its) : work(its) {}

    const Work& work; // of the thread that waits, which does not go before it is done or withdrawn
    std::condition_variable done;
    bool finished = false;
    std::exception_ptr failure;
};

Workers::Workers(std::size_t count, std::size_t queue) : longest_(queue) {
    std::vector<std::unique_ptr<kit::FaceApi>> instances;
    for (std::size_t i = 0; i < count; ++i)
        instances.push_back(std::make_unique<kit::FaceApi>(0));
    for (std::unique_ptr<kit::FaceApi>& instance : instances)
        threads_.emplace_back([this, api = std::move(instance)]() mutable { work(std::move(api)); });
}

Workers::~Workers() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    arrived_.notify_all();
    for (std::thread& thread : threads_)
        thread.join();
}

void Workers::run(const Work& work, std::chrono::milliseconds patience) {
    const auto task = std::make_shared<Task>(work);
    std::unique_lock<std::mutex> lock(mutex_);
    if (queue_.size() + busy_ >= longest_ + threads_.size())
        throw Problem(503, "all workers are busy and the queue is full");
    queue_.push_back(task);
    arrived_.notify_one();
    if (!task->done.wait_for(lock, patience, [&] { return task->finished; })) {
        if (const auto place = std::find(queue_.begin(), queue_.end(), task); place != queue_.end()) {
            queue_.erase(place);
            throw Problem(503, "no worker was free in time");
        }
        task->done.wait(lock, [&] { return task->finished; });
    }
    if (task->failure)
        std::rethrow_exception(task->failure);
}

std::size_t Workers::waiting() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return queue_.size();
}

std::size_t Workers::busy() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return busy_;
}

void Workers::work(std::unique_ptr<kit::FaceApi> api) {
    std::unique_lock<std::mutex> lock(mutex_);
    while (true) {
        arrived_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
        if (queue_.empty())
            return;
        const std::shared_ptr<Task> task = queue_.front();
        queue_.pop_front();
        ++busy_;
        lock.unlock();
        std::exception_ptr failure;
        try {
            if (api == nullptr)
                api = std::make_unique<kit::FaceApi>(0);
            task->work(*api);
        } catch (const kit::CommandError&) {
            failure = std::current_exception();
        } catch (const Problem&) {
            failure = std::current_exception();
        } catch (...) {
            // Nobody knows what an instance is like that was left in the middle of something.
            failure = std::current_exception();
            api.reset();
        }
        lock.lock();
        --busy_;
        task->failure = std::move(failure);
        task->finished = true;
        task->done.notify_one();
    }
}

} // namespace veldan::service
