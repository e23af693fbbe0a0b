#include "report/face_text.hpp"

#include <sstream>

namespace veldan::kit {

std::string faceCount(std::size_t count) {
    if (count == 0)
        return "no face";
    return std::to_string(count) + (count == 1 ? " face" : " faces");
}

std::string pointText(const VDFACEINFOEX& face, int k) {
    return "(" + std::to_string(face.keyPointX[k]) + ", " + std::to_string(face.keyPointY[k]) + ")";
}

Json pointsJson(const VDFACEINFOEX& face, int first, int count) {
    Json points = Json::array();
    for (int k = first; k < first + count; ++k)
        points.push_back({face.keyPointX[k], face.keyPointY[k]});
    return points;
}

std::string detectionText(const VDFACEINFOEX& face) {
    std::ostringstream text;
    text << "box (" << face.x << ", " << face.y << ") " << face.width << " x " << face.height << "  eye distance "
         << face.eyeDistance << "  eyes " << pointText(face, 0) << ' ' << pointText(face, 1) << "  nose "
         << pointText(face, 2) << "  mouth " << pointText(face, 3) << ' ' << pointText(face, 4);
    return text.str();
}

Json detectionJson(const VDFACEINFOEX& face) {
    return {{"box", {{"x", face.x}, {"y", face.y}, {"width", face.width}, {"height", face.height}}},
            {"points", pointsJson(face, 0, face.keyPointNum)},
            {"eyeDistance", face.eyeDistance}};
}

} // namespace veldan::kit
