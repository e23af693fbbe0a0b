#include "fuzz/targets.hpp"

namespace veldan_fuzz {

const std::vector<Target>& targets() {
    static const std::vector<Target> all = {
        {"base64", base64},
        {"bmp_to_raw", bmpToRaw},
        {"frames", frames},
        {"gallery_search", gallerySearch},
        {"image_decode", imageDecode},
        {"max_face_recog", maxFaceRecog},
        {"network_loading", networkLoading},
        {"stored_network", storedNetwork},
        {"template", featureTemplate},
        {"template_text", templateText},
    };
    return all;
}

} // namespace veldan_fuzz
