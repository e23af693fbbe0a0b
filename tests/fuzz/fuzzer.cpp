// The libFuzzer program: fuzz --target=NAME and the options of libFuzzer. run.sh calls it.

#include "fuzz/targets.hpp"

#include <opencv2/core.hpp>

#include <cstdlib>
#include <iostream>
#include <string>
#include <unistd.h>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

const veldan_fuzz::Target* chosen = nullptr;

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    // A few bytes may announce a gigabyte of pixels, and OpenCV makes room for them. That is its right and the fuzzer's
    // loss of time. OpenCV reads the limit while it is being loaded: it must stand before the program starts.
    if (std::getenv("OPENCV_IO_MAX_IMAGE_PIXELS") == nullptr) {
        setenv("OPENCV_IO_MAX_IMAGE_PIXELS", "1048576", 1);
        setenv("OPENCV_LOG_LEVEL", "SILENT", 1);
        execv("/proc/self/exe", *argv);
        std::abort();
    }
    cv::setNumThreads(1);
    const std::string option = "--target=";
    for (int i = 1; i < *argc; ++i)
        for (const veldan_fuzz::Target& target : veldan_fuzz::targets())
            if ((*argv)[i] == option + target.name)
                chosen = &target;
    if (chosen != nullptr)
        return 0;
    std::cerr << "choose a target:";
    for (const veldan_fuzz::Target& target : veldan_fuzz::targets())
        std::cerr << ' ' << option << target.name;
    std::cerr << '\n';
    std::exit(2);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    chosen->run(data, size);
    return 0;
}
