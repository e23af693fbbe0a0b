#include "recog/template_layout.hpp"

#include <veldan/feature_template.hpp>

#include <algorithm>
#include <cstring>

namespace {

using veldan::bareKind;
constexpr int tagLength = veldan::templateTagLength;
constexpr int headLength = veldan::templateHeadLength;
constexpr int sumPosition = tagLength;

constexpr int damaged = -1;
constexpr int otherKind = -2;

const char* tagOf(int kind) {
    return kind == bareKind ? "VD_V5.0" : "VD_V5.4";
}

// The sum over all bytes, the one in question taken out again: so the loop has no branch and runs as vector code.
unsigned char sumWithout(const unsigned char* buffer, int length, int position) {
    unsigned char sum = 0;
    for (int i = 0; i < length; ++i)
        sum = static_cast<unsigned char>(sum ^ buffer[i]);
    return static_cast<unsigned char>(sum ^ buffer[position]);
}

bool isInside(const unsigned char* buffer, int length, int position) {
    return buffer != nullptr && position >= 0 && position < length;
}

} // namespace

int AddSum(unsigned char* buffer, int length, int position) {
    if (isInside(buffer, length, position))
        buffer[position] = sumWithout(buffer, length, position);
    return 0;
}

int CheckSum(const unsigned char* buffer, int length, int position) {
    return isInside(buffer, length, position) && sumWithout(buffer, length, position) == buffer[position] ? 0 : damaged;
}

int TzEncode(int kind, const unsigned char* feature, int featureLength, unsigned char* out) {
    if (featureLength < 0 || (feature == nullptr && featureLength > 0) || out == nullptr)
        return damaged;
    std::memcpy(out, tagOf(kind), tagLength);
    std::copy_n(feature, featureLength, out + headLength);
    return AddSum(out, featureLength + headLength, sumPosition);
}

int TzDecode(int kind, const unsigned char* data, int templateLength, unsigned char* feature) {
    if (data == nullptr || templateLength < headLength || (feature == nullptr && templateLength > headLength))
        return damaged;
    if (CheckSum(data, templateLength, sumPosition) != 0)
        return damaged;
    if (std::memcmp(data, tagOf(kind), tagLength) != 0)
        return otherKind;
    std::copy_n(data + headLength, templateLength - headLength, feature);
    return 0;
}
