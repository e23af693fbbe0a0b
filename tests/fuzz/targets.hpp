#ifndef VELDAN_TESTS_FUZZ_TARGETS_HPP
#define VELDAN_TESTS_FUZZ_TARGETS_HPP

#include <cstddef>
#include <cstdint>
#include <vector>

namespace veldan_fuzz {

// One input through one reader, as the fuzzer and the replay of its corpus run it. A broken promise ends in std::abort,
// a bad access in a report of AddressSanitizer. README.md tells what each target holds its reader to.
struct Target {
    const char* name;
    void (*run)(const std::uint8_t* data, std::size_t size);
};

// Those of this program: the library's, or those of the kit.
const std::vector<Target>& targets();

void bmpToRaw(const std::uint8_t* data, std::size_t size);
void imageDecode(const std::uint8_t* data, std::size_t size);
void base64(const std::uint8_t* data, std::size_t size);
void storedNetwork(const std::uint8_t* data, std::size_t size);
void networkLoading(const std::uint8_t* data, std::size_t size);
void featureTemplate(const std::uint8_t* data, std::size_t size);
void templateText(const std::uint8_t* data, std::size_t size);
void gallerySearch(const std::uint8_t* data, std::size_t size);
void maxFaceRecog(const std::uint8_t* data, std::size_t size);
void frames(const std::uint8_t* data, std::size_t size);

} // namespace veldan_fuzz

#endif
