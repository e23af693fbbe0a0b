#ifndef VELDAN_SERVICE_METRICS_HPP
#define VELDAN_SERVICE_METRICS_HPP

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <utility>

namespace veldan::service {

struct Services;

/** What the server counts. Any thread may count. */
class Metrics {
public:
    void countRequest(const std::string& method, const std::string& route, int status, double seconds);
    void countFaces(std::size_t faces) { faces_ += faces; }
    void countRefusedToken() { ++refusedTokens_; }
    void countTurnedAway() { ++turnedAway_; }
    void setConnections(std::size_t connections) { connections_ = connections; }

    /** All figures in the text format of Prometheus. */
    std::string text(const Services& services);

private:
    static constexpr std::array<double, 11> bounds = {0.005, 0.01, 0.025, 0.05, 0.1, 0.25, 0.5, 1, 2.5, 5, 10};

    struct Histogram {
        std::array<std::uint64_t, bounds.size() + 1> counts{};
        double sum = 0;
    };

    std::mutex mutex_;
    std::map<std::pair<std::string, int>, std::uint64_t> requests_; // by labels and status
    std::map<std::string, Histogram> durations_;
    std::atomic<std::uint64_t> faces_{0};
    std::atomic<std::uint64_t> refusedTokens_{0};
    std::atomic<std::uint64_t> turnedAway_{0};
    std::atomic<std::size_t> connections_{0};
};

} // namespace veldan::service

#endif
