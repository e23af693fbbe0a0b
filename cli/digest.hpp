#ifndef VELDAN_CLI_DIGEST_HPP
#define VELDAN_CLI_DIGEST_HPP

#include <string>
#include <vector>

namespace veldan::cli {

/** The SHA-256 digest of the bytes as 64 lower-case hexadecimal digits, as sha256sum prints it. */
std::string sha256(const std::vector<unsigned char>& bytes);

} // namespace veldan::cli

#endif
