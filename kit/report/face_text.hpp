#ifndef VELDAN_KIT_REPORT_FACE_TEXT_HPP
#define VELDAN_KIT_REPORT_FACE_TEXT_HPP

#include <veldan/face_record.h>

#include <nlohmann/json.hpp>

#include <cstddef>
#include <string>

namespace veldan::kit {

using Json = nlohmann::ordered_json;

/** "no face", "1 face", "2 faces" and so on. */
std::string faceCount(std::size_t count);

/** Key point k of the record as text, "(x, y)". */
std::string pointText(const VDFACEINFOEX& face, int k);

/** Key points first to first + count - 1 of the record as an array of [x, y]. */
Json pointsJson(const VDFACEINFOEX& face, int first, int count);

/** What detection says about a face, on one line without its end. */
std::string detectionText(const VDFACEINFOEX& face);

/** The same as an object. */
Json detectionJson(const VDFACEINFOEX& face);

} // namespace veldan::kit

#endif
