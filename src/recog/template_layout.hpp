#ifndef VELDAN_RECOG_TEMPLATE_LAYOUT_HPP
#define VELDAN_RECOG_TEMPLATE_LAYOUT_HPP

namespace veldan {

// What a template consists of: the tag of its kind, a checksum, and the feature's 128 floats.

constexpr int bareKind = 1;
constexpr int maskedKind = 2;

constexpr int featureLength = 128;
constexpr int templateTagLength = 7;
constexpr int templateHeadLength = 8; // tag and checksum
constexpr int templateSize = templateHeadLength + featureLength * static_cast<int>(sizeof(float));
static_assert(templateSize == 520, "templates are stored by others and never change their size");

} // namespace veldan

#endif
