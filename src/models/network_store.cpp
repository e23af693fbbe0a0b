#include "models/network_store.hpp"

#include <veldan/model_store.hpp>

#include <algorithm>
#include <cstring>
#include <memory>

namespace veldan {

int decodeStoredNetwork(const char* const* chunks, int chunkCount, int base64Length, int length, unsigned char* out) {
    if (base64Length < 0 || length < 0 || out == nullptr)
        return -1;
    // Plain arrays instead of vectors: zeroing megabytes that are overwritten at once would cost as much as decoding.
    const auto textSize = static_cast<std::size_t>(base64Length);
    const std::unique_ptr<char[]> text(new char[textSize]);
    std::size_t used = 0;
    for (int i = 0; i < chunkCount; ++i) {
        const std::size_t size = std::strlen(chunks[i]);
        if (size > textSize - used)
            return -1;
        std::memcpy(text.get() + used, chunks[i], size);
        used += size;
    }
    // Too little text is not noticed as such: the zeros are no base64, so decoding fails.
    std::memset(text.get() + used, 0, textSize - used);

    // Large enough for whatever the text decodes to, also when the stored length says less.
    const std::unique_ptr<unsigned char[]> bytes(new unsigned char[std::max(textSize / 4 * 3, std::size_t{1})]);
    const int decoded = B64Decode(text.get(), base64Length, bytes.get());
    if (decoded != length)
        return -1;
    std::memcpy(out, bytes.get(), static_cast<std::size_t>(length));
    return 0;
}

} // namespace veldan
