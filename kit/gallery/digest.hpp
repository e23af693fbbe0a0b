#ifndef VELDAN_KIT_GALLERY_DIGEST_HPP
#define VELDAN_KIT_GALLERY_DIGEST_HPP

#include <string>
#include <vector>

namespace veldan::kit {

/** The SHA-256 digest of the bytes as 64 lower-case hexadecimal digits, as sha256sum prints it. */
std::string sha256(const std::vector<unsigned char>& bytes);

} // namespace veldan::kit

#endif
