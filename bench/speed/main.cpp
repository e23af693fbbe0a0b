// Measures the speed of detection and of the engines that judge a face, one thread. See bench/README.md.

#include "options.hpp"

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>

#include <cstdlib>
#include <iostream>
#include <string>

int main(int argc, char** argv) {
    BenchOptions options;
    options.photos = VELDAN_PHOTO_DIR;
    if (const char* yunet = std::getenv("VELDAN_YUNET"))
        options.yunet = yunet;

    benchmark::Initialize(&argc, argv);
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        const auto value = [&](const std::string& name, std::string& out) {
            if (argument.compare(0, name.size() + 1, name + "=") != 0)
                return false;
            out = argument.substr(name.size() + 1);
            return true;
        };
        if (value("--photos", options.photos) || value("--yunet", options.yunet))
            continue;
        std::cerr << "veldan_bench: " << argument << " is no option of this program\n"
                  << "options: --photos=DIR, --yunet=FILE, and those of Google Benchmark (--help)\n";
        return 2;
    }

    cv::setNumThreads(1);
    benchmark::AddCustomContext("opencv", cv::getVersionString());
    benchmark::AddCustomContext("threads of OpenCV", std::to_string(cv::getNumThreads()));
    try {
        registerDetectorBenchmarks(options);
        registerFaceBenchmarks(options);
        registerSuppressionBenchmarks();
        registerStoreBenchmarks();
        registerSearchBenchmarks();
        registerYuNetBenchmarks(options);
    } catch (const std::exception& error) {
        std::cerr << "veldan_bench: " << error.what() << '\n';
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
