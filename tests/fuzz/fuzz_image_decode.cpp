#include "fuzz/targets.hpp"

#include <cstdlib>
#include <unistd.h>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** argv) {
    // A few bytes may announce a gigabyte of pixels, and OpenCV makes room for them. That is its right and the fuzzer's
    // loss of time. OpenCV reads the limit while it is being loaded: it must stand before the program starts.
    if (std::getenv("OPENCV_IO_MAX_IMAGE_PIXELS") == nullptr) {
        setenv("OPENCV_IO_MAX_IMAGE_PIXELS", "1048576", 1);
        setenv("OPENCV_LOG_LEVEL", "SILENT", 1);
        execv("/proc/self/exe", *argv);
        std::abort();
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    veldan_fuzz::imageDecode(data, size);
    return 0;
}
