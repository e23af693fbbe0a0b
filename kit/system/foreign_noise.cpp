#include "system/foreign_noise.hpp"

#include "system/file_bytes.hpp"

#include <opencv2/core/utils/logger.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <iostream>
#include <streambuf>
#include <sys/types.h>
#include <unistd.h>

namespace veldan::kit {

namespace {

constexpr std::size_t mostNoise = 1 << 16; // a library may complain about every line of a picture

thread_local std::string* noise = nullptr;

void keep(const char* text, std::size_t size) {
    if (noise != nullptr)
        noise->append(text, std::min(size, mostNoise - std::min(mostNoise, noise->size())));
}

ssize_t keepWritten(void* /*cookie*/, const char* text, std::size_t size) {
    keep(text, size);
    return static_cast<ssize_t>(size);
}

/** Behind std::cerr: OpenCV uses it as we do, but only within a capture. */
class Messages : public std::streambuf {
protected:
    int_type overflow(int_type letter) override {
        const char text = traits_type::to_char_type(letter);
        return xsputn(&text, 1) == 1 ? letter : traits_type::eof();
    }

    std::streamsize xsputn(const char* text, std::streamsize size) override {
        const auto length = static_cast<std::size_t>(size);
        if (noise != nullptr)
            keep(text, length);
        else if (!writeAll(STDERR_FILENO, reinterpret_cast<const unsigned char*>(text), length))
            return 0;
        return size;
    }
};

} // namespace

void muteForeignNoise() {
    cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
    if (FILE* const stream = ::fopencookie(nullptr, "w", {nullptr, keepWritten, nullptr, nullptr})) {
        std::setvbuf(stream, nullptr, _IONBF, 0);
        stderr = stream; // glibc allows it
    }
    static Messages* const messages = new Messages; // never destroyed: others write to std::cerr to the very end
    std::cerr.rdbuf(messages);
}

NoiseCapture::NoiseCapture() : outer_(noise) {
    noise = &text_;
}

NoiseCapture::~NoiseCapture() {
    noise = outer_;
}

} // namespace veldan::kit
