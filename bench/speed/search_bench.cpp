// Search of a gallery: ours beside a plain read of the same bytes, the definition, and Faiss over the same features.

#include "options.hpp"
#include "recog/gallery_kernels.hpp"
#include "recog/gallery_search.hpp"
#include "recog/template_layout.hpp"

#include <veldan/feature_template.hpp>

#include <benchmark/benchmark.h>
#ifdef VELDAN_BENCH_FAISS
#include <faiss/IndexFlat.h>
#include <omp.h>
#endif

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <vector>

namespace {

using veldan::bareKind;
constexpr int templatesOfPerson = 3; // where there are several of a person

struct Free {
    void operator()(unsigned char* bytes) const { std::free(bytes); }
};

// A gallery of random features, and a probe that is near one of them. It lies at the start of a cache line.
class Gallery {
public:
    explicit Gallery(int count_) : count(count_) {
        const std::size_t lines = (size() + 63) / 64;
        bytes.reset(static_cast<unsigned char*>(std::aligned_alloc(64, 64 * lines)));
        if (bytes == nullptr)
            throw std::bad_alloc();
        std::minstd_rand random(1);
        const auto next = [&] { return static_cast<float>(random()) / 1073741824.0F - 1; };
        float feature[veldan::featureLength];
        for (int i = 0; i < count; ++i) {
            for (float& value : feature)
                value = next();
            encode(feature, bytes.get() + static_cast<std::ptrdiff_t>(i) * veldan::templateSize);
            if (i == count / 4 * 3)
                std::memcpy(wanted, feature, sizeof wanted);
        }
        for (float& value : wanted)
            value += 0.2F * next();
        encode(wanted, probe);
    }

    std::size_t size() const { return static_cast<std::size_t>(count) * veldan::templateSize; }

    const int count;
    std::unique_ptr<unsigned char, Free> bytes;
    unsigned char probe[veldan::templateSize];
    float wanted[veldan::featureLength];

private:
    static void encode(const float* feature, unsigned char* out) {
        TzEncode(bareKind, reinterpret_cast<const unsigned char*>(feature), sizeof(float) * veldan::featureLength, out);
    }
};

// Benchmarks of one size follow one another; only the latest gallery is kept.
const Gallery& galleryOf(int count) {
    static std::unique_ptr<Gallery> latest;
    if (latest == nullptr || latest->count != count) {
        latest.reset();
        latest = std::make_unique<Gallery>(count);
    }
    return *latest;
}

void report(benchmark::State& state, int count, std::size_t bytes) {
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
    state.counters["template"] =
        benchmark::Counter(count, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// As fast as the processor reads: 64 bytes at a time in whatever vectors it has, four sums under way.
using Line __attribute__((vector_size(64), may_alias)) = std::uint64_t;

#if defined(__x86_64__)
__attribute__((target_clones("avx512f", "avx2", "default")))
#endif
std::uint64_t
readAll(const unsigned char* bytes, std::size_t size) {
    const auto* const lines = reinterpret_cast<const Line*>(bytes);
    const std::size_t count = size / sizeof(Line) / 4 * 4;
    Line a{};
    Line b{};
    Line c{};
    Line d{};
    for (std::size_t i = 0; i < count; i += 4) {
        a ^= lines[i];
        b ^= lines[i + 1];
        c ^= lines[i + 2];
        d ^= lines[i + 3];
    }
    a ^= b ^ c ^ d;
    std::uint64_t sum = 0;
    for (int i = 0; i < 8; ++i)
        sum ^= a[i];
    for (std::size_t i = count * sizeof(Line); i < size; ++i)
        sum ^= bytes[i];
    return sum;
}

// What the compiler makes of a simple loop for any x86-64.
std::uint64_t readSimply(const unsigned char* bytes, std::size_t size) {
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i + sizeof sum <= size; i += sizeof sum) {
        std::uint64_t word;
        std::memcpy(&word, bytes + i, sizeof word);
        sum ^= word;
    }
    return sum;
}

template <class Read>
void readWith(benchmark::State& state, int count, const Read& read) {
    const Gallery& gallery = galleryOf(count);
    for (auto _ : state)
        benchmark::DoNotOptimize(read(gallery.bytes.get(), gallery.size()));
    report(state, count, gallery.size());
}

template <class Search>
void searchWith(benchmark::State& state, int count, int templatesEach, const Search& search) {
    const Gallery& gallery = galleryOf(count);
    const int personNum = (count + templatesEach - 1) / templatesEach;
    std::vector<int> nums(static_cast<std::size_t>(personNum), templatesEach);
    nums.back() = count - templatesEach * (personNum - 1);
    std::vector<std::int32_t> percents(nums.size());
    veldan::GalleryMatch match;
    for (auto _ : state) {
        match = search(bareKind, gallery.bytes.get(), templatesEach == 1 ? nullptr : nums.data(), personNum,
                       gallery.probe, percents.data());
        benchmark::ClobberMemory();
    }
    if (match.refused || match.person != count / 4 * 3 / templatesEach)
        state.SkipWithError("the search found another person");
    report(state, count, gallery.size());
}

#ifdef VELDAN_BENCH_FAISS
void faissSearch(benchmark::State& state, int count) {
    const Gallery& gallery = galleryOf(count);
    omp_set_num_threads(1);
    // Features are added in pieces: a copy of them all beside the gallery and the index would be a waste.
    faiss::IndexFlatIP index(veldan::featureLength);
    std::vector<float> feature(veldan::featureLength);
    index.codes.reserve(static_cast<std::size_t>(count) * sizeof(float) * veldan::featureLength);
    for (int i = 0; i < count; ++i) {
        std::memcpy(feature.data(), gallery.bytes.get() + static_cast<std::ptrdiff_t>(i) * veldan::templateSize + 8,
                    sizeof(float) * veldan::featureLength);
        index.add(1, feature.data());
    }
    float score = 0;
    faiss::Index::idx_t found = 0;
    for (auto _ : state)
        index.search(1, gallery.wanted, 1, &score, &found);
    if (found != count / 4 * 3)
        state.SkipWithError("the search found another template");
    report(state, count, static_cast<std::size_t>(count) * sizeof(float) * veldan::featureLength);
}
#endif

} // namespace

void registerSearchBenchmarks() {
    for (const int count : {1000, 15000, 100000, 1000000}) {
        const auto add = [count](const std::string& name, auto run) {
            benchmark::RegisterBenchmark(("Search/" + std::to_string(count) + "/" + name).c_str(), run)
                ->Unit(benchmark::kMicrosecond);
        };
        add("read", [count](benchmark::State& state) { readWith(state, count, readAll); });
        add("read_simple_loop", [count](benchmark::State& state) { readWith(state, count, readSimply); });
        add("ours", [count](benchmark::State& state) { searchWith(state, count, 1, veldan::searchGallery); });
        add("ours_by_person",
            [count](benchmark::State& state) { searchWith(state, count, templatesOfPerson, veldan::searchGallery); });
        for (const veldan::GalleryKernel& kernel : veldan::galleryKernels())
            add(std::string("ours_") + kernel.name, [count, kernel](benchmark::State& state) {
                searchWith(state, count, 1,
                           [&kernel](auto... arguments) { return veldan::searchGalleryWith(kernel, arguments...); });
            });
        add("plain", [count](benchmark::State& state) { searchWith(state, count, 1, veldan::searchGalleryPlainly); });
#ifdef VELDAN_BENCH_FAISS
        add("faiss", [count](benchmark::State& state) { faissSearch(state, count); });
#endif
    }
}
