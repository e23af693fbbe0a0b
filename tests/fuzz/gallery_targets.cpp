// Galleries that a caller hands in: a search by every kernel against the plain one, and the flow that stops at a
// damaged template.

#include "fuzz/input.hpp"
#include "fuzz/targets.hpp"
#include "recog/gallery_kernels.hpp"
#include "recog/gallery_search.hpp"
#include "support/averaging_network.hpp"
#include "support/engines.hpp"
#include "support/frames.hpp"

#include <veldan/face_api.h>
#include <veldan/feature_template.hpp>
#include <veldan/instance.hpp>
#include <veldan/mask_recognizer.hpp>
#include <veldan/recognizer.hpp>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

namespace veldan_fuzz {
namespace {

constexpr std::size_t templateBytes = 520;
// More than the block of 64 that a search scores at once.
constexpr int mostTemplates = 80;

struct Feature {
    float values[128];
};

void encode(int kind, const Feature& feature, unsigned char* out) {
    TzEncode(kind, reinterpret_cast<const unsigned char*>(feature.values), sizeof feature.values, out);
}

// A feature that the input describes in few bytes, or spells out.
Feature featureFrom(Input& input, int how, const Feature& like) {
    Feature feature{};
    if (how == 0) {
        const int scale = input.signedByte();
        const int away = input.signedByte();
        const float factor = std::ldexp(1.0F, scale);
        for (int k = 0; k < 128; ++k)
            feature.values[k] = (like.values[k] + static_cast<float>((k * away) % 7) * 0.1F) * factor;
    } else if (how == 1) {
        const auto value = input.take<float>();
        for (float& v : feature.values)
            v = value;
    } else if (how == 2) {
        feature = like;
        feature.values[input.byte() % 128] = input.take<float>();
    } else {
        input.take(feature.values, sizeof feature.values);
    }
    return feature;
}

struct Gallery {
    std::vector<int> counts;
    int total = 0;
    std::unique_ptr<unsigned char[]> templates;
    int persons() const { return static_cast<int>(counts.size()); }
};

Gallery galleryFrom(Input& input, int kind, const Feature& like) {
    Gallery gallery;
    int& total = gallery.total;
    for (int left = input.byte() % 80; left > 0 && total < mostTemplates; --left) {
        // Mostly one to three templates, at times none, a negative number or more than a block.
        const int drawn = input.signedByte();
        const int count = std::min(drawn < 120 ? drawn % 4 : 65, mostTemplates - total);
        gallery.counts.push_back(count);
        total += std::max(count, 0);
    }
    gallery.templates.reset(new unsigned char[static_cast<std::size_t>(total) * templateBytes]);
    for (int t = 0; t < total; ++t) {
        unsigned char* const out = gallery.templates.get() + static_cast<std::size_t>(t) * templateBytes;
        const int how = input.byte();
        encode((how & 16) != 0 ? 3 - kind : kind, featureFrom(input, how % 4, like), out);
        if ((how & 32) != 0)
            out[input.take<std::uint16_t>() % templateBytes] ^= static_cast<unsigned char>(input.byte());
    }
    return gallery;
}

Feature steadyFeature() {
    Feature feature{};
    for (int k = 0; k < 128; ++k)
        feature.values[k] = static_cast<float>(k % 11) - 4.5F;
    return feature;
}

std::uint32_t bitsOf(float value) {
    std::uint32_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

// An instance whose networks average, so that thousands of inputs a second go through the whole flow.
struct SmallInstance {
    VdFaceAPI api{};
    cv::Mat frame = veldan_tests::noiseFrame(160, 120, 5, 31);

    SmallInstance() {
        api.faceQuality = new QUALITYEVALUATION;
        api.faceMask = new vdFaceMask;
        api.faceRecognizer = new MOBILEFACENET;
        api.maskFaceRecognizer = new MASKMOBILEFACENET;
        veldan_tests::loadAverages(veldan::EngineAccess::net(*api.faceRecognizer), "fc1_scale");
        veldan_tests::loadAverages(veldan::EngineAccess::net(*api.maskFaceRecognizer), "pre_fc1");
        veldan_tests::loadInto(veldan::EngineAccess::net(*api.faceQuality),
                               veldan_tests::scoreNetwork("softmax/Softmax", {24 * 24 * 3, {0.0F, 0.805F}}));
        // More masked the brighter the crop is.
        veldan_tests::LinearLayer brightness(48 * 48 * 3, {0.0F, 0.4F});
        for (std::size_t k = 1; k < brightness.weights.size(); k += 2)
            brightness.weights[k] = 0.002F;
        veldan_tests::loadInto(veldan::EngineAccess::net(*api.faceMask),
                               veldan_tests::scoreNetwork("Softmax", brightness));
    }
    ~SmallInstance() { api.vdFreeAlg(); }
};

} // namespace

void gallerySearch(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const int kind = 1 + input.byte() % 2;
    const int how = input.byte();
    const Feature feature = featureFrom(input, how % 4, steadyFeature());
    unsigned char probe[templateBytes];
    encode((how & 16) != 0 ? 3 - kind : kind, feature, probe);
    if ((how & 32) != 0)
        probe[input.take<std::uint16_t>() % templateBytes] ^= static_cast<unsigned char>(input.byte());
    Gallery gallery = galleryFrom(input, kind, feature);
    // Without counts everybody has one template.
    const bool oneEach = (how & 64) != 0;
    const bool scored = (how & 128) == 0;
    if (oneEach)
        gallery.counts.assign(static_cast<std::size_t>(gallery.total), 1);
    const int* const counts = oneEach ? nullptr : gallery.counts.data();

    std::vector<std::int32_t> plainPercents(gallery.counts.size(), -1);
    const veldan::GalleryMatch plain = veldan::searchGalleryPlainly(kind, gallery.templates.get(), counts,
                                                                    gallery.persons(), probe, plainPercents.data());
    for (const veldan::GalleryKernel& kernel : veldan::galleryKernels()) {
        std::vector<std::int32_t> percents(gallery.counts.size(), -1);
        const veldan::GalleryMatch match =
            veldan::searchGalleryWith(kernel, kind, gallery.templates.get(), counts, gallery.persons(), probe,
                                      scored ? percents.data() : nullptr);
        require(bitsOf(match.score) == bitsOf(plain.score) && match.person == plain.person &&
                match.refused == plain.refused);
        require(!scored || percents == plainPercents);
    }
}

void maxFaceRecog(const std::uint8_t* data, std::size_t size) {
    static SmallInstance instance;
    Input input(data, size);
    VDFACEINFOEX face{};
    face.x = input.byte() % 100;
    face.y = input.byte() % 70;
    face.width = 1 + input.byte() % 100;
    face.height = 1 + input.byte() % 100;
    for (int k = 0; k < 7; ++k) {
        face.keyPointX[k] = face.x + input.signedByte();
        face.keyPointY[k] = face.y + input.signedByte();
    }
    const int threshold = input.signedByte();

    // What the flow is going to compare, to make a gallery that is like it.
    VDFACEINFOEX judged = face;
    cv::Mat& frame = instance.frame;
    zzFaceMaskThread(&instance.api, frame.data, frame.cols, frame.rows, 1, &judged);
    const bool masked = judged.maskScore >= 41;
    const int kind = masked ? 2 : 1;
    unsigned char probe[templateBytes];
    (masked ? zzMaskExtractFeatureThread : zzExtractFeatureThread)(&instance.api, frame.data, frame.cols, frame.rows, 1,
                                                                   &judged, probe);
    Feature like;
    std::memcpy(like.values, probe + 8, sizeof like.values);
    Gallery gallery = galleryFrom(input, kind, like);

    // The flow by its definition.
    float best = 0;
    int person = 0;
    bool refused = false;
    const unsigned char* next = gallery.templates.get();
    for (int p = 0; p < gallery.persons(); ++p)
        for (int t = 0; t < gallery.counts[static_cast<std::size_t>(p)] && !refused; ++t, next += templateBytes) {
            float score = 0;
            refused = (masked ? zzMaskMatchFeatureThread : zzMatchFeatureThread)(
                          &instance.api, const_cast<unsigned char*>(next), probe, &score) != 0;
            if (!refused && score > best) {
                best = score;
                person = p;
            }
        }
    unsigned char* const searched = gallery.templates.get();
    const int code = zzMaxFaceRecogThread(&instance.api, masked ? nullptr : searched, masked ? searched : nullptr, 0,
                                          gallery.counts.data(), gallery.persons(), threshold, threshold, 60,
                                          frame.data, frame.cols, frame.rows, 1, &face);
    if (refused) {
        require(code == 17 && face.searchFlag == -1 && face.searchId == -100 && face.searchScore == 0);
        return;
    }
    // Forged values may be more similar than 1, without a bound.
    const int percent = best >= 1e7F ? std::numeric_limits<int>::max() : static_cast<int>(100.0F * best);
    const bool found = percent >= threshold;
    require(code == 0 && face.searchScore == percent && face.searchFlag == (found ? 1 : -1));
    require(face.searchId == (found ? person : -1));
}

} // namespace veldan_fuzz
