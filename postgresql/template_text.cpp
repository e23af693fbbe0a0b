#include "template_text.h"

#include <veldan/model_store.hpp>
#include <veldan/template.hpp>

#include <algorithm>
#include <cstring>

static_assert(VELDAN_TEMPLATE_SIZE == veldan::templateBytes);

namespace {

using veldan::Kind;
using veldan::Template;

constexpr int checksumPosition = 7;
constexpr char family[] = {'V', 'D', '_', 'V'}; // every tag begins so, whatever the network
constexpr char digits[] = "0123456789abcdef";

bool isOfKind(const Template& one, Kind kind) {
    unsigned char feature[veldan::templateBytes];
    return TzDecode(static_cast<int>(kind), one.data(), static_cast<int>(one.size()), feature) == 0;
}

int valueOf(char digit) {
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    if (digit >= 'a' && digit <= 'f')
        return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F')
        return digit - 'A' + 10;
    return -1;
}

const char* fromHex(const char* text, unsigned char* out) {
    for (int i = 0; i < VELDAN_TEMPLATE_SIZE; ++i, text += 2) {
        const int high = valueOf(text[0]);
        const int low = valueOf(text[1]);
        if (high < 0 || low < 0)
            return "holds something else than hexadecimal digits after \\x";
        out[i] = static_cast<unsigned char>(high * 16 + low);
    }
    return nullptr;
}

const char* fromBase64(const char* text, unsigned char* out) {
    // The decoder writes whole groups.
    unsigned char bytes[VELDAN_BASE64_LENGTH / 4 * 3];
    if (B64Decode(text, VELDAN_BASE64_LENGTH, bytes) != VELDAN_TEMPLATE_SIZE)
        return "is neither hexadecimal digits after \\x nor base64 of 520 bytes";
    std::copy_n(bytes, VELDAN_TEMPLATE_SIZE, out);
    return nullptr;
}

} // namespace

extern "C" const char* veldan_template_flaw(const unsigned char* bytes, size_t size) {
    if (size != veldan::templateBytes)
        return "is not 520 bytes long";
    Template one;
    std::copy_n(bytes, one.size(), one.begin());
    // Whatever the damage, the kind can be told when the checksum is put right on a copy.
    Template mended = one;
    AddSum(mended.data(), static_cast<int>(mended.size()), checksumPosition);
    for (const Kind kind : {Kind::Bare, Kind::Masked})
        if (isOfKind(mended, kind)) {
            const char* flaw = veldan::flawOf(one, kind);
            return *flaw == '\0' ? nullptr : flaw;
        }
    if (std::memcmp(bytes, family, sizeof family) == 0)
        return "is of another network and cannot be compared with templates of this version";
    return "begins as no template does";
}

extern "C" int veldan_template_kind(const unsigned char* bytes) {
    Template one;
    std::copy_n(bytes, one.size(), one.begin());
    return static_cast<int>(isOfKind(one, Kind::Bare) ? Kind::Bare : Kind::Masked);
}

extern "C" const char* veldan_template_from_text(const char* text, size_t length, unsigned char* out) {
    const bool isHex = length >= 2 && text[0] == '\\' && text[1] == 'x';
    if (isHex && length != VELDAN_HEX_LENGTH)
        return "is not 1040 hexadecimal digits after \\x";
    if (!isHex && length != VELDAN_BASE64_LENGTH)
        return "is neither 1040 hexadecimal digits after \\x nor 696 characters of base64";
    if (const char* fault = isHex ? fromHex(text + 2, out) : fromBase64(text, out))
        return fault;
    return veldan_template_flaw(out, VELDAN_TEMPLATE_SIZE);
}

extern "C" void veldan_template_to_hex(const unsigned char* bytes, char* out) {
    *out++ = '\\';
    *out++ = 'x';
    for (const unsigned char* byte = bytes; byte != bytes + VELDAN_TEMPLATE_SIZE; ++byte) {
        *out++ = digits[*byte >> 4];
        *out++ = digits[*byte & 15];
    }
}

extern "C" void veldan_template_to_base64(const unsigned char* bytes, char* out) {
    B64Encode(bytes, VELDAN_TEMPLATE_SIZE, out, VELDAN_BASE64_LENGTH);
}
