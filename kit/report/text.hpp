#ifndef VELDAN_KIT_REPORT_TEXT_HPP
#define VELDAN_KIT_REPORT_TEXT_HPP

#include <cstddef>
#include <string>

namespace veldan::kit {

/** "no face", "1 face", "2 faces" and so on. */
std::string faceCount(std::size_t count);

/** "1 photo", "2 photos", "0 photos". */
std::string counted(std::size_t count, const std::string& what);

/** A number with so many decimals, such as "0.720". */
std::string fixed(double number, int decimals);

/** "similarity 0.720" */
std::string similarityText(double similarity);

/** Of a SHA-256 digest as many digits as tell photos apart. */
std::string shortDigest(const std::string& digest);

} // namespace veldan::kit

#endif
