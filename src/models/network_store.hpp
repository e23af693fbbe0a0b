#ifndef VELDAN_MODELS_NETWORK_STORE_HPP
#define VELDAN_MODELS_NETWORK_STORE_HPP

#include <cstddef>

namespace veldan {

// Most characters in one chunk of a stored network; every chunk but the last holds exactly as many.
constexpr std::size_t networkChunkSize = 15360;

// What a generated data_NAME() does: joins the chunks, decodes them and copies the bytes to out.
// Returns 0, or -1 without touching out when the text does not decode to exactly length bytes.
int decodeStoredNetwork(const char* const* chunks, int chunkCount, int base64Length, int length, unsigned char* out);

} // namespace veldan

#endif
