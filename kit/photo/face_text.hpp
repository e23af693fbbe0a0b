#ifndef VELDAN_KIT_PHOTO_FACE_TEXT_HPP
#define VELDAN_KIT_PHOTO_FACE_TEXT_HPP

#include "photo/judge.hpp"
#include "report/json.hpp"

#include <veldan/face_record.h>

#include <string>
#include <vector>

namespace veldan::kit {

/** What detection says about a face, on one line without its end. */
std::string detectionText(const VDFACEINFOEX& face);

/** Where it is, "box (x, y) width x height". */
std::string boxText(const VDFACEINFOEX& face);

/** What detection says as an object. */
Json detectionJson(const VDFACEINFOEX& face);

/** "visible" or "near-infrared". */
const char* lightText(Light light);

/** @name What judging says about a face: on one line, as an object together with its detection, in words for a picture
 */
///@{
std::string judgementText(const JudgedFace& face, Light light);
Json judgementJson(const JudgedFace& face, Light light);
std::vector<std::string> judgementWords(const JudgedFace& face);
///@}

} // namespace veldan::kit

#endif
