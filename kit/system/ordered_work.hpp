#ifndef VELDAN_KIT_SYSTEM_ORDERED_WORK_HPP
#define VELDAN_KIT_SYSTEM_ORDERED_WORK_HPP

#include <cstddef>
#include <functional>

namespace veldan::kit {

/** Many pieces of work, done on several threads, whose results are wanted in order. */
struct OrderedWork {
    std::size_t count = 0;
    /** Threads at work, from 1; with one everything happens on the calling thread. */
    std::size_t workers = 1;
    /** Most results that may wait for an earlier one, from workers on: what bounds the memory. */
    std::size_t window = 1;
    /** Does piece number index. worker, below workers, tells the thread: one piece of each worker at a time. */
    std::function<void(std::size_t index, std::size_t worker)> work;
    /** Takes a result, on the calling thread and in order. @return false to end; pieces begun are finished then */
    std::function<bool(std::size_t index)> deliver;

    /** Does it all. What work throws is thrown when it would have been delivered. */
    void run() const;
};

} // namespace veldan::kit

#endif
