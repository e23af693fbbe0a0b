// The model store: how fast an embedded network comes out of its text.

#include "options.hpp"

#include <veldan/model_store.hpp>

#include <benchmark/benchmark.h>

#include <vector>

namespace {

std::vector<unsigned char> network() {
    std::vector<unsigned char> bytes(static_cast<std::size_t>(length_VELDAN_V5_1_0_FaceDetectO()));
    data_VELDAN_V5_1_0_FaceDetectO(bytes.data());
    return bytes;
}

// Everything that an engine waits for: joining the chunks, decoding, copying. Bytes are those of the base64 text.
void fetch(benchmark::State& state) {
    std::vector<unsigned char> bytes = network();
    for (auto _ : state) {
        data_VELDAN_V5_1_0_FaceDetectO(bytes.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>((bytes.size() + 2) / 3 * 4));
}

// The codec alone, on the same text.
void decode(benchmark::State& state) {
    const std::vector<unsigned char> bytes = network();
    const int size = static_cast<int>(bytes.size());
    std::vector<char> text((bytes.size() + 2) / 3 * 4);
    B64Encode(bytes.data(), size, text.data(), static_cast<int>(text.size()));
    std::vector<unsigned char> out(text.size());
    for (auto _ : state) {
        B64Decode(text.data(), static_cast<int>(text.size()), out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

} // namespace

void registerStoreBenchmarks() {
    benchmark::RegisterBenchmark("Store/FetchOutputNetwork", fetch);
    benchmark::RegisterBenchmark("Store/B64Decode", decode);
}
