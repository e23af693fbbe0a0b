// Frames of any size and content through everything that is done with a frame, by the networks of the library.

#include "fuzz/input.hpp"
#include "fuzz/targets.hpp"
#include "support/frames.hpp"

#include <veldan/veldan.hpp>

#include <opencv2/imgcodecs.hpp>

#include <vector>

namespace veldan_fuzz {
namespace {

constexpr int mostPixels = 60000;

struct Studio {
    veldan::Instance instance{4};
    cv::Mat portrait = cv::imread(VELDAN_FUZZ_PHOTOS "/astronaut.jpg")(cv::Rect(107, 0, 240, 240));

    Studio() { require(!portrait.empty()); }
};

// A part of the portrait, with rectangles of one colour or of noise drawn over it.
cv::Mat frameFrom(Input& input, const cv::Mat& portrait) {
    const int width = 1 + (input.byte() + 256 * (input.byte() % 3)) % 600;
    const int height = std::min(1 + (input.byte() + 256 * (input.byte() % 3)) % 600, std::max(mostPixels / width, 1));
    const int x = input.byte() % 120;
    const int y = input.byte() % 120;
    const cv::Rect part(x, y, 40 + input.byte() % (200 - x), 40 + input.byte() % (200 - y));
    cv::Mat frame;
    cv::resize(portrait(part & cv::Rect({}, portrait.size())), frame, {width, height});
    while (input.left() > 0) {
        const cv::Rect place(input.byte() * width / 256, input.byte() * height / 256, 1 + input.byte(),
                             1 + input.byte());
        cv::Mat patch = frame(place & cv::Rect({}, frame.size()));
        const int how = input.byte();
        const double level = input.byte();
        if (how % 2 == 0)
            patch.setTo(cv::Scalar(level, how, 255 - level));
        else
            cv::RNG(static_cast<std::uint64_t>(how)).fill(patch, cv::RNG::UNIFORM, 0, level + 1);
    }
    return frame;
}

bool isPercent(int score) {
    return score >= 0 && score <= 100;
}

void checkFace(const VDFACEINFOEX& face, const cv::Mat& frame) {
    require(face.x >= 0 && face.y >= 0 && face.x + face.width <= frame.cols && face.y + face.height <= frame.rows);
    require(face.keyPointNum == 5);
    for (int k = 0; k < 5; ++k)
        require(face.keyPointX[k] >= 0 && face.keyPointX[k] <= frame.cols && face.keyPointY[k] >= 0 &&
                face.keyPointY[k] <= frame.rows);
}

} // namespace

void frames(const std::uint8_t* data, std::size_t size) {
    static Studio studio;
    veldan::Instance& instance = studio.instance;
    Input input(data, size);
    const cv::Mat frame = frameFrom(input, studio.portrait);
    // Also OpenCV and its networks must not read past the frame.
    veldan_tests::FrameAtTheEnd last(frame);
    const veldan::ImageView view{last.data(), frame.cols, frame.rows};
    if (frame.cols < 100 || frame.rows < 100) {
        int count = 7;
        VDFACEINFOEX none{};
        require(zzDetectFaceThread(instance.handle(), last.data(), frame.cols, frame.rows, &count, &none) == 27);
        require(count == 0);
        return;
    }
    std::vector<VDFACEINFOEX> faces = instance.detect(view);
    for (const VDFACEINFOEX& face : faces)
        checkFace(face, frame);
    veldan::Tracker tracker(instance);
    require(tracker.next(view).size() == std::min<std::size_t>(faces.size(), 100));
    if (faces.empty())
        return;
    instance.judgeQuality(view, faces);
    instance.judgeMask(view, faces);
    instance.judgeLiveness(view, faces);
    for (VDFACEINFOEX& face : faces) {
        require(isPercent(face.quality) && isPercent(face.maskScore) && isPercent(face.liveness));
        require(isPercent(instance.enrolmentQuality(view, face)));
    }
    instance.judgeNearInfraredLiveness(view, faces);
    for (const VDFACEINFOEX& face : faces)
        require(isPercent(face.liveness));
    // Extraction throws when what it made is no template.
    const veldan::Template bare = instance.extract(view, faces[0]);
    instance.extract(view, faces[0], veldan::Kind::Masked);
    const veldan::Template enrolled = instance.extractForEnrolment(view, faces[0], veldan::Kind::Masked);
    veldan::Gallery gallery;
    veldan::Gallery masked{veldan::Kind::Masked};
    gallery.add({bare});
    masked.add({enrolled});
    require(instance.identify(gallery, bare, 0.99F).first == 0);
    for (const VDFACEINFOEX& face : tracker.search(view, gallery, masked, 70, 77, 0))
        require(face.searchFlag == 0 || (face.searchFlag == 1 && face.searchId == 0));
    std::vector<VDFACEINFOEX> refined = faces;
    static_cast<VdFaceAPI*>(instance.handle())
        ->vdOnetLandmark(last.data(), frame.cols, frame.rows, static_cast<int>(refined.size()), refined.data());
}

} // namespace veldan_fuzz
