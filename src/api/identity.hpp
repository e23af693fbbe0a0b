#ifndef VELDAN_API_IDENTITY_HPP
#define VELDAN_API_IDENTITY_HPP

#include <veldan/face_record.h>

namespace veldan {

// Who a face is, and what is known of it: from its record of the frame before.
inline void inheritIdentity(const VDFACEINFOEX& before, VDFACEINFOEX& face) {
    face.trackId = before.trackId;
    face.searchFlag = before.searchFlag;
    face.searchId = before.searchId;
    face.searchScore = before.searchScore;
    face.strangerFlag = before.strangerFlag;
}

} // namespace veldan

#endif
