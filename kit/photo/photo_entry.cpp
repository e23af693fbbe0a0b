#include "photo/photo_entry.hpp"

#include "photo/face_text.hpp"
#include "report/exit_codes.hpp"
#include "report/text.hpp"

#include <string>

namespace veldan::kit {

void putPicture(Json& entry, const Photo& photo) {
    entry["width"] = photo.width;
    entry["height"] = photo.height;
    if (photo.flaw != PhotoFlaw::None)
        entry[photo.flaw == PhotoFlaw::Truncated ? "truncated" : "damaged"] = true;
}

void putFaces(Json& entry, double milliseconds) {
    entry["milliseconds"] = milliseconds;
    entry["faces"] = Json::array();
}

Json largestFaceJson(const LargestFace& largest) {
    const JudgedFace& face = largest.face;
    Json json = detectionJson(face.record);
    json["quality"] = face.record.quality;
    json["maskScore"] = face.record.maskScore;
    json["masked"] = face.masked;
    json["largestOf"] = largest.of;
    return json;
}

void refuseCrowd(std::size_t count) {
    if (count > VELDAN_MAX_FACES)
        throw CommandError(ExitCode::TooManyFaces, faceCount(count) + ", more than the " +
                                                       std::to_string(VELDAN_MAX_FACES) + " that the library follows");
}

} // namespace veldan::kit
