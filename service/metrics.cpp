#include "metrics.hpp"

#include "services.hpp"

#include <algorithm>
#include <fmt/format.h>
#include <fstream>
#include <iterator>
#include <unistd.h>

namespace veldan::service {

namespace {

std::string head(const char* name, const char* type, const char* help) {
    return fmt::format("# HELP {0} {1}\n# TYPE {0} {2}\n", name, help, type);
}

template <class Number>
std::string single(const char* name, const char* type, const char* help, Number value) {
    return head(name, type, help) + fmt::format("{} {}\n", name, value);
}

std::uint64_t residentBytes() {
    std::ifstream file("/proc/self/statm");
    std::uint64_t total = 0;
    std::uint64_t resident = 0;
    file >> total >> resident;
    return resident * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
}

} // namespace

void Metrics::countRequest(const std::string& method, const std::string& route, int status, double seconds) {
    const std::string labels = fmt::format("method=\"{}\",route=\"{}\"", method, route);
    const std::lock_guard<std::mutex> lock(mutex_);
    ++requests_[{labels, status}];
    Histogram& histogram = durations_[labels];
    const auto bucket = std::distance(bounds.begin(), std::lower_bound(bounds.begin(), bounds.end(), seconds));
    ++histogram.counts.at(static_cast<std::size_t>(bucket));
    histogram.sum += seconds;
}

std::string Metrics::text(const Services& services) {
    std::string text = single("veldan_faces_total", "counter", "Faces that were answered.", faces_.load());
    text += single("veldan_refused_tokens_total", "counter", "Requests with a wrong, expired or missing token.",
                   refusedTokens_.load());
    text +=
        single("veldan_turned_away_total", "counter", "Connections beyond the most there may be.", turnedAway_.load());
    text += single("veldan_connections", "gauge", "Open connections.", connections_.load());
    text += single("veldan_workers", "gauge", "Instances of the library.", services.workers.count());
    text += single("veldan_busy_workers", "gauge", "Instances at work.", services.workers.busy());
    text += single("veldan_queue_length", "gauge", "Requests that wait for a worker.", services.workers.waiting());
    text +=
        single("veldan_gallery_persons", "gauge", "Persons that searches look through.", services.gallery.persons());
    text += single("veldan_gallery_photos", "gauge", "Photos that searches look through.", services.gallery.photos());
    text += single("process_resident_memory_bytes", "gauge", "Resident memory.", residentBytes());

    const std::lock_guard<std::mutex> lock(mutex_);
    text += head("veldan_requests_total", "counter", "Requests by method, route and status.");
    for (const auto& [key, count] : requests_)
        text += fmt::format("veldan_requests_total{{{},status=\"{}\"}} {}\n", key.first, key.second, count);
    text += head("veldan_request_duration_seconds", "histogram", "From the end of a request's head to its answer.");
    for (const auto& [labels, histogram] : durations_) {
        std::uint64_t sum = 0;
        for (std::size_t i = 0; i < bounds.size(); ++i) {
            sum += histogram.counts.at(i);
            text +=
                fmt::format("veldan_request_duration_seconds_bucket{{{},le=\"{}\"}} {}\n", labels, bounds.at(i), sum);
        }
        sum += histogram.counts.back();
        text += fmt::format("veldan_request_duration_seconds_bucket{{{0},le=\"+Inf\"}} {1}\n"
                            "veldan_request_duration_seconds_sum{{{0}}} {2}\n"
                            "veldan_request_duration_seconds_count{{{0}}} {1}\n",
                            labels, sum, histogram.sum);
    }
    return text;
}

} // namespace veldan::service
