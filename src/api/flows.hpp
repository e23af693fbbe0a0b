#ifndef VELDAN_API_FLOWS_HPP
#define VELDAN_API_FLOWS_HPP

#include <veldan/instance.hpp>

namespace veldan {

struct Frame {
    unsigned char* image;
    int width;
    int height;
};

// Who is in a gallery.
struct Persons {
    int galleryNum;
    int* templateNums;
    int personNum;
};

// Where the faces of a kind are searched, and the percent that they must reach.
struct SearchTarget {
    unsigned char* gallery;
    int threshold;
};

// zzSearchAllFaceThread() on an instance.
void searchAllFaces(VdFaceAPI& api, const Persons& persons, const SearchTarget& bare, const SearchTarget& masked,
                    int qualityThreshold, const Frame& frame, int faceNum, VDFACEINFOEX* faces);

} // namespace veldan

#endif
