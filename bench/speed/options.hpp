#ifndef VELDAN_BENCH_OPTIONS_HPP
#define VELDAN_BENCH_OPTIONS_HPP

#include <string>

// What the command line says beyond Google Benchmark's own options.
struct BenchOptions {
    std::string photos; // folder of the bundled photos
    std::string yunet;  // file of the YuNet network, empty when there is none
};

void registerDetectorBenchmarks(const BenchOptions& options);
void registerFaceBenchmarks(const BenchOptions& options);
void registerSearchBenchmarks();
void registerSuppressionBenchmarks();
void registerStoreBenchmarks();
void registerYuNetBenchmarks(const BenchOptions& options);

#endif
