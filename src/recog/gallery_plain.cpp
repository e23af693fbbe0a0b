#include "engine/rounding.hpp"
#include "recog/gallery_search.hpp"
#include "recog/similarity.hpp"
#include "recog/template_layout.hpp"

#include <veldan/feature_template.hpp>

#include <cstddef>

namespace veldan {

GalleryMatch searchGalleryPlainly(int kind, const unsigned char* gallery, const int* templateNums, int personNum,
                                  const unsigned char* probe, std::int32_t* percents) {
    float wanted[featureLength];
    float feature[featureLength];
    const bool usable = TzDecode(kind, probe, templateSize, reinterpret_cast<unsigned char*>(wanted)) == 0;
    GalleryMatch match;
    const unsigned char* next = gallery;
    for (int person = 0; person < personNum; ++person) {
        float best = 0;
        const int count = templateNums != nullptr ? templateNums[person] : 1;
        for (int k = 0; k < count; ++k, next += templateSize) {
            if (!usable || TzDecode(kind, next, templateSize, reinterpret_cast<unsigned char*>(feature)) != 0) {
                match.refused = true;
                continue;
            }
            const auto score = static_cast<float>(similarity(feature, wanted));
            if (score > best)
                best = score;
        }
        if (best > match.score) {
            match.score = best;
            match.person = person;
        }
        if (percents != nullptr)
            percents[person] = percent(best);
    }
    return match;
}

} // namespace veldan
