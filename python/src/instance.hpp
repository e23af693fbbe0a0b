#ifndef VELDAN_PYTHON_INSTANCE_HPP
#define VELDAN_PYTHON_INSTANCE_HPP

#include "errors.hpp"

#include <veldan/veldan.hpp>

#include <mutex>
#include <optional>
#include <pybind11/pybind11.h>

namespace veldan::python {

/**
 * An instance that Python may touch from several threads: calls that come while another one is at work wait for it, and
 * those that come after close() are refused.
 */
class SharedInstance {
public:
    explicit SharedInstance(int capacity) : instance_(std::in_place, capacity) {}

    /** Runs work(instance) without Python's lock. */
    template <class Work>
    auto use(const char* what, const Work& work) {
        // In this order: whoever waits for the instance must not keep Python from going on.
        const pybind11::gil_scoped_release release;
        const std::lock_guard<std::mutex> lock(mutex_);
        if (!instance_)
            fail(what, VD_ERR_HANDLE, "the engine was closed");
        return work(*instance_);
    }

    void close() {
        const pybind11::gil_scoped_release release;
        const std::lock_guard<std::mutex> lock(mutex_);
        instance_.reset();
    }

    /** Without waiting for a call that is at work. */
    bool closed() const { return !instance_; }

private:
    std::mutex mutex_;
    std::optional<Instance> instance_;
};

void bindInstance(pybind11::module_& module);

} // namespace veldan::python

#endif
