#ifndef VELDAN_SERVICE_SERVICES_HPP
#define VELDAN_SERVICE_SERVICES_HPP

#include "audit.hpp"
#include "metrics.hpp"
#include "options.hpp"
#include "shared_gallery.hpp"
#include "tokens.hpp"
#include "workers.hpp"

#include <atomic>

namespace veldan::service {

/** What the handlers of a server share. */
struct Services {
    explicit Services(const Options& its)
        : options(its), tokens(its.tokens), audit(its.audit), gallery(its.gallery), workers(its.workers, its.queue) {}

    const Options& options;
    Tokens tokens;
    Audit audit;
    SharedGallery gallery;
    Metrics metrics;
    std::atomic<bool> stopping{false};
    Workers workers; // last: what it works on goes after it
};

} // namespace veldan::service

#endif
