#include "nearest.h"

#include "comparison.h"
#include "recog/gallery_kernels.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <new>

namespace {

// Whether one is to be named before the other: a total order, so that results do not depend on who scanned what first.
bool before(const veldan_match& a, const veldan_match& b) {
    if (a.similarity != b.similarity)
        return a.similarity > b.similarity;
    return a.person != b.person ? a.person < b.person : a.photo < b.photo;
}

} // namespace

// Templates are gathered into blocks for the library's kernel, whose scores are right within a known error; what may be
// among the best is then compared exactly. The matches behind the state are a heap with the worst of them first.
struct veldan_nearest {
    veldan::GalleryProbe forKernel;
    veldan_probe probe;
    const veldan::GalleryKernel kernel = veldan::fastestGalleryKernel();
    int count = 0;
    float threshold = 0;
    int found = 0;
    int waiting = 0;
    std::int64_t persons[veldan::galleryBlock];
    std::int64_t photos[veldan::galleryBlock];
    unsigned char block[veldan::galleryBlock * veldan::templateSize];

    veldan_match* matches() { return reinterpret_cast<veldan_match*>(this + 1); }

    void scoreBlock() {
        veldan::GalleryScores scores;
        // Equals count as well, so what is to be beaten lies below the similarity that is needed.
        const float needed = found == count ? std::max(threshold, matches()->similarity) : threshold;
        const float toBeat = std::nextafter(needed, -std::numeric_limits<float>::infinity());
        kernel.score(block, waiting, forKernel, toBeat, scores);
        for (std::uint64_t left = (scores.contending | scores.unsafe) & ~scores.refused; left != 0; left &= left - 1) {
            const int i = __builtin_ctzll(left);
            offer({persons[i], photos[i], veldan_similarity(block + i * veldan::templateSize, &probe)});
        }
        waiting = 0;
    }

    void offer(const veldan_match& match) {
        if (!(match.similarity >= threshold) || (found == count && !before(match, *matches())))
            return;
        veldan_match* const end = matches() + found;
        veldan_match* const same =
            std::find_if(matches(), end, [&](const veldan_match& other) { return other.person == match.person; });
        if (same != end) {
            if (before(match, *same)) {
                *same = match;
                std::make_heap(matches(), end, before);
            }
        } else if (found < count) {
            *end = match;
            std::push_heap(matches(), matches() + ++found, before);
        } else {
            std::pop_heap(matches(), end, before);
            end[-1] = match;
            std::push_heap(matches(), end, before);
        }
    }
};

extern "C" size_t veldan_nearest_size(int count) {
    return alignof(veldan_nearest) + sizeof(veldan_nearest) + static_cast<std::size_t>(count) * sizeof(veldan_match);
}

extern "C" veldan_nearest* veldan_nearest_start(void* memory, const unsigned char* probe, int count, float threshold) {
    // The kernels want more alignment than the server gives.
    std::size_t room = alignof(veldan_nearest) + sizeof(veldan_nearest);
    auto* const search = new (std::align(alignof(veldan_nearest), sizeof(veldan_nearest), memory, room)) veldan_nearest;
    search->count = count;
    search->threshold = threshold;
    veldan_prepare_probe(&search->probe, probe);
    const double scale = 0.5 / search->probe.norm;
    float feature[veldan::featureLength];
    std::memcpy(feature, probe + veldan::templateHeadLength, sizeof feature);
    for (int j = 0; j < veldan::featureLength; ++j)
        search->forKernel.halfDirection[j] = static_cast<float>(static_cast<double>(feature[j]) * scale);
    std::memcpy(search->forKernel.tag, probe, sizeof search->forKernel.tag);
    return search;
}

extern "C" bool veldan_nearest_is(const veldan_nearest* search, const unsigned char* probe, int count,
                                  float threshold) {
    return search->count == count && search->threshold == threshold &&
           std::memcmp(search->probe.bytes, probe, sizeof search->probe.bytes) == 0;
}

extern "C" void veldan_nearest_add(veldan_nearest* search, int64_t person, int64_t photo, const unsigned char* bytes) {
    std::memcpy(search->block + search->waiting * veldan::templateSize, bytes, veldan::templateSize);
    search->persons[search->waiting] = person;
    search->photos[search->waiting] = photo;
    if (++search->waiting == veldan::galleryBlock)
        search->scoreBlock();
}

extern "C" void veldan_nearest_offer(veldan_nearest* search, const veldan_match* match) {
    search->offer(*match);
}

extern "C" const veldan_match* veldan_nearest_finish(veldan_nearest* search, int* number) {
    if (search->waiting > 0)
        search->scoreBlock();
    std::sort_heap(search->matches(), search->matches() + search->found, before);
    *number = search->found;
    return search->matches();
}

extern "C" const unsigned char* veldan_nearest_probe(const veldan_nearest* search) {
    return search->probe.bytes;
}

extern "C" int veldan_nearest_count(const veldan_nearest* search) {
    return search->count;
}

extern "C" float veldan_nearest_threshold(const veldan_nearest* search) {
    return search->threshold;
}
