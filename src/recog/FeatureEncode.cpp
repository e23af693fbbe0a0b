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

// Over all bytes, without a branch: so the loop runs as vector code.
unsigned char sumOf(const unsigned char* buffer, int length) {
    unsigned char sum = 0;
    for (int i = 0; i < length; ++i)
        sum = static_cast<unsigned char>(sum ^ buffer[i]);
    return sum;
}

bool isInside(const unsigned char* buffer, int length, int position) {
    return buffer != nullptr && position >= 0 && position < length;
}

} // namespace

int AddSum(unsigned char* buffer, int length, int position) {
    if (!isInside(buffer, length, position))
        return 0;
    // The byte may be one that nobody has written yet.
    buffer[position] = 0;
    buffer[position] = sumOf(buffer, length);
    return 0;
}

int CheckSum(const unsigned char* buffer, int length, int position) {
    // The sum with its own byte vanishes.
    return isInside(buffer, length, position) && sumOf(buffer, length) == 0 ? 0 : damaged;
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
