#include "library.hpp"

#include <veldan/face_api.h>
#include <veldan/face_mask.hpp>
#include <veldan/instance.hpp>
#include <veldan/quality_evaluation.hpp>
#include <veldan/spoof_detection.hpp>

#include <opencv2/dnn.hpp>

#include <chrono>
#include <cstddef>
#include <stdexcept>
#include <string>

namespace veldan {

/** The engine's friend: lets a measurement put another network in. */
struct EngineAccess {
    static cv::dnn::Net& visible(vdSpoofDetection& engine) { return engine.rgbNet; }
};

} // namespace veldan

namespace veldan::eval {

namespace {

/** Runs an operation of the engine in this slot of the instance. */
template <typename Engine>
void judge(void* handle, Engine* VdFaceAPI::*slot,
           int (Engine::*operation)(unsigned char*, int, int, int, VDFACEINFOEX*), cv::Mat& picture,
           VDFACEINFOEX& face) {
    Engine* engine = static_cast<VdFaceAPI*>(handle)->*slot;
    if (engine == nullptr)
        throw std::runtime_error("the library has no engine for this");
    if (const int code = (engine->*operation)(picture.data, picture.cols, picture.rows, 1, &face); code != VD_OK)
        throw std::runtime_error("an engine failed with code " + std::to_string(code));
}

} // namespace

Library::Library() : records_(VELDAN_DETECT_CAPACITY) {
    int code = 0;
    handle_ = zzInitAlgThread(nullptr, &code);
    if (handle_ == nullptr)
        throw std::runtime_error("the library did not start: code " + std::to_string(code));
}

Library::~Library() {
    zzFreeAlgThread(handle_);
}

Library::Answer Library::detect(cv::Mat& picture) {
    int count = 0;
    const auto start = std::chrono::steady_clock::now();
    const int code = zzDetectFaceThread(handle_, picture.data, picture.cols, picture.rows, &count, records_.data());
    const std::chrono::duration<double, std::milli> elapsed = std::chrono::steady_clock::now() - start;
    Answer answer;
    answer.milliseconds = elapsed.count();
    if (code == VD_ERR_IMAGE_TOO_SMALL) {
        answer.refused = true;
        return answer;
    }
    if (code == VD_ERR_NO_FACE)
        return answer;
    if (code != VD_OK && code != VD_ERR_TOO_MANY_FACES)
        throw std::runtime_error("detection failed with code " + std::to_string(code));
    answer.faces.assign(records_.begin(), records_.begin() + count);
    for (VDFACEINFOEX& face : answer.faces)
        face.maskScore = -1; // not judged: alignment takes the face as bare
    return answer;
}

void Library::scoreMask(cv::Mat& picture, VDFACEINFOEX& face) {
    judge(handle_, &VdFaceAPI::faceMask, &vdFaceMask::maskEvaluation, picture, face);
}

void Library::scoreQuality(cv::Mat& picture, VDFACEINFOEX& face) {
    judge(handle_, &VdFaceAPI::faceQuality, &QUALITYEVALUATION::mqQualityEvaluation, picture, face);
}

void Library::scoreLiveness(cv::Mat& picture, VDFACEINFOEX& face) {
    judge(handle_, &VdFaceAPI::livenessDetector, &vdSpoofDetection::vdSpoofRGBEvaluation, picture, face);
}

void Library::scoreInfraredLiveness(cv::Mat& picture, VDFACEINFOEX& face) {
    judge(handle_, &VdFaceAPI::livenessDetector, &vdSpoofDetection::vdSpoofNIREvaluation, picture, face);
}

void Library::useLivenessNetwork(const std::filesystem::path& file) {
    vdSpoofDetection* engine = static_cast<VdFaceAPI*>(handle_)->livenessDetector;
    if (engine == nullptr)
        throw std::runtime_error("the library has no engine for this");
    try {
        EngineAccess::visible(*engine) = cv::dnn::readNetFromTensorflow(file.string());
    } catch (const cv::Exception& error) {
        throw std::runtime_error(file.string() + ": " + error.what());
    }
}

Library::Template Library::extract(cv::Mat& picture, VDFACEINFOEX& face, Extraction how) {
    Template result(static_cast<std::size_t>(zzGetFeatureSizeThread(handle_)));
    const auto operation = how == Extraction::Bare     ? zzExtractFeatureThread
                           : how == Extraction::Masked ? zzMaskExtractFeatureThread
                                                       : zzMaskExtractFeature4RegThread;
    const int code = operation(handle_, picture.data, picture.cols, picture.rows, 1, &face, result.data());
    if (code != VD_OK)
        throw std::runtime_error("extraction failed with code " + std::to_string(code));
    return result;
}

float Library::match(const Template& a, const Template& b, bool bare) {
    float score = 0;
    const auto operation = bare ? zzMatchFeatureThread : zzMaskMatchFeatureThread;
    const int code =
        operation(handle_, const_cast<unsigned char*>(a.data()), const_cast<unsigned char*>(b.data()), &score);
    if (code != VD_OK)
        throw std::runtime_error("matching failed with code " + std::to_string(code));
    return score;
}

Box boxOf(const VDFACEINFOEX& face) {
    return {static_cast<double>(face.x), static_cast<double>(face.y), static_cast<double>(face.width),
            static_cast<double>(face.height)};
}

std::vector<VDFACEINFOEX*> matchFaces(std::vector<VDFACEINFOEX>& found, const std::vector<Box>& wanted,
                                      double leastOverlap) {
    std::vector<Box> boxes;
    boxes.reserve(found.size());
    for (const VDFACEINFOEX& face : found)
        boxes.push_back(boxOf(face));
    std::vector<VDFACEINFOEX*> match(wanted.size(), nullptr);
    const auto assignment = assignBoxes(boxes, wanted, leastOverlap);
    for (std::size_t i = 0; i < assignment.size(); ++i) {
        if (assignment[i])
            match[*assignment[i]] = &found[i];
    }
    return match;
}

FivePoints pointsOf(const VDFACEINFOEX& face) {
    FivePoints points;
    for (std::size_t k = 0; k < points.size(); ++k)
        points[k] = {static_cast<double>(face.keyPointX[k]), static_cast<double>(face.keyPointY[k])};
    return points;
}

} // namespace veldan::eval
