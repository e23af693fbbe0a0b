#include "gallery/digest.hpp"

#include "report/exit_codes.hpp"

#include <array>
#include <openssl/evp.h>

namespace veldan::kit {

std::string sha256(const std::vector<unsigned char>& bytes) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int length = 0;
    if (EVP_Digest(bytes.data(), bytes.size(), digest.data(), &length, EVP_sha256(), nullptr) != 1)
        throw CommandError(ExitCode::Internal, "SHA-256 is not available");
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (unsigned int i = 0; i < length; ++i) {
        text += digits[digest[i] >> 4];
        text += digits[digest[i] & 15];
    }
    return text;
}

} // namespace veldan::kit
