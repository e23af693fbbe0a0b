#ifndef VELDAN_RECOG_GALLERY_SEARCH_HPP
#define VELDAN_RECOG_GALLERY_SEARCH_HPP

#include "recog/template_layout.hpp"

#include <cstdint>

namespace veldan {

struct GalleryKernel;

// What comparing a probe with every template of a gallery gives.
struct GalleryMatch {
    // Similarity of the best person, and its index; 0 and 0 when nothing is similar at all. Of equals the first one.
    float score = 0;
    int person = 0;
    // Whether a template could not be compared because it, or the probe, is damaged or of the other kind.
    bool refused = false;
};

// Compares the probe with all templates of a gallery: the templates of person 0, then those of person 1, and so on.
// Templates that cannot be compared, and similarities that are not a number, count as 0.
//
// templateNums: number of templates of each person, null for one each; a negative number counts as 0.
// percents: receives each person's best similarity times 100, cut off; may be null.
//
// Reads the gallery once, at about the speed of memory.
GalleryMatch searchGallery(int kind, const unsigned char* gallery, const int* templateNums, int personNum,
                           const unsigned char* probe, std::int32_t* percents);

// The definition of the search: every template decoded and compared, one after the other. The search above gives the
// same results to the last bit, and leaves probes to it that are damaged or out of proportion.
GalleryMatch searchGalleryPlainly(int kind, const unsigned char* gallery, const int* templateNums, int personNum,
                                  const unsigned char* probe, std::int32_t* percents);

// The search with one of the kernels of this processor, see gallery_kernels.hpp.
GalleryMatch searchGalleryWith(const GalleryKernel& kernel, int kind, const unsigned char* gallery,
                               const int* templateNums, int personNum, const unsigned char* probe,
                               std::int32_t* percents);

} // namespace veldan

#endif
