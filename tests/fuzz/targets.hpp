#ifndef VELDAN_TESTS_FUZZ_TARGETS_HPP
#define VELDAN_TESTS_FUZZ_TARGETS_HPP

#include <cstddef>
#include <cstdint>

namespace veldan_fuzz {

// One input through one function, as the fuzzer and the replay of its corpus run it. A broken promise ends in
// std::abort, a bad access in a report of AddressSanitizer.

// BMPToRaw, and the way back through RawToBMP.
void bmpToRaw(const std::uint8_t* data, std::size_t size);

// ImageDecode: sizes first, then pixels, as an application calls it.
void imageDecode(const std::uint8_t* data, std::size_t size);

} // namespace veldan_fuzz

#endif
