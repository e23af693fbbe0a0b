#ifndef VELDAN_KIT_SYSTEM_FOREIGN_NOISE_HPP
#define VELDAN_KIT_SYSTEM_FOREIGN_NOISE_HPP

#include <string>

namespace veldan::kit {

/**
 * From now on nothing that foreign libraries write to the streams of standard error is seen: libjpeg, libpng, FFmpeg,
 * OpenCV and others tell there what the program cannot learn otherwise, in words that mean nothing to its user. What
 * the program itself writes to std::cerr still comes out. Call once, before threads are started.
 */
void muteForeignNoise();

/** While it lives, what this thread writes to the streams of standard error is kept. */
class NoiseCapture {
public:
    NoiseCapture();
    ~NoiseCapture();
    NoiseCapture(const NoiseCapture&) = delete;
    NoiseCapture& operator=(const NoiseCapture&) = delete;

    bool contains(const char* words) const { return text_.find(words) != std::string::npos; }

private:
    std::string text_;
    std::string* outer_;
};

} // namespace veldan::kit

#endif
