#include "photo/face_text.hpp"

#include <fmt/format.h>

namespace veldan::kit {

namespace {

std::string pointText(const VDFACEINFOEX& face, int k) {
    return fmt::format("({}, {})", face.keyPointX[k], face.keyPointY[k]);
}

Json pointsJson(const VDFACEINFOEX& face, int first, int count) {
    Json points = Json::array();
    for (int k = first; k < first + count; ++k)
        points.push_back({face.keyPointX[k], face.keyPointY[k]});
    return points;
}

} // namespace

std::string detectionText(const VDFACEINFOEX& face) {
    return fmt::format("{}  eye distance {}  eyes {} {}  nose {}  mouth {} {}", boxText(face), face.eyeDistance,
                       pointText(face, 0), pointText(face, 1), pointText(face, 2), pointText(face, 3),
                       pointText(face, 4));
}

std::string boxText(const VDFACEINFOEX& face) {
    return fmt::format("box ({}, {}) {} x {}", face.x, face.y, face.width, face.height);
}

Json detectionJson(const VDFACEINFOEX& face) {
    return {{"box", {{"x", face.x}, {"y", face.y}, {"width", face.width}, {"height", face.height}}},
            {"points", pointsJson(face, 0, face.keyPointNum)},
            {"eyeDistance", face.eyeDistance}};
}

const char* lightText(Light light) {
    return light == Light::NearInfrared ? "near-infrared" : "visible";
}

std::string judgementText(const JudgedFace& face, Light light) {
    std::string text = fmt::format("quality {}  {}  {}  {} ({})  {} ({}, {} light)", face.record.quality,
                                   face.sharp ? "sharp" : "not sharp", face.frontal ? "frontal" : "not frontal",
                                   face.masked ? "masked" : "no mask", face.record.maskScore,
                                   face.live ? "live" : "not live", face.record.liveness, lightText(light));
    if (face.masked)
        text += "  mask points " + pointText(face.record, 5) + " " + pointText(face.record, 6);
    return text;
}

Json judgementJson(const JudgedFace& face, Light light) {
    Json json = detectionJson(face.record);
    json["maskPoints"] = pointsJson(face.record, 5, 2);
    json["quality"] = face.record.quality;
    json["sharp"] = face.sharp;
    json["frontal"] = face.frontal;
    json["maskScore"] = face.record.maskScore;
    json["masked"] = face.masked;
    json["liveness"] = face.record.liveness;
    json["live"] = face.live;
    json["light"] = lightText(light);
    return json;
}

std::vector<std::string> judgementWords(const JudgedFace& face) {
    return {fmt::format("quality {}", face.record.quality),
            fmt::format("{}, {}", face.sharp ? "sharp" : "not sharp", face.frontal ? "frontal" : "not frontal"),
            fmt::format("{} {}, {} {}", face.masked ? "mask" : "no mask", face.record.maskScore,
                        face.live ? "live" : "not live", face.record.liveness)};
}

} // namespace veldan::kit
