#ifndef VELDAN_RECOG_GALLERY_KERNEL_NEON_HPP
#define VELDAN_RECOG_GALLERY_KERNEL_NEON_HPP

#include "recog/gallery_kernels.hpp"

// Every 64-bit ARM processor has these instructions: nothing needs to be asked at run time.
#if defined(__aarch64__) && defined(__ARM_NEON) && defined(__GNUC__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
#define VELDAN_NEON_KERNEL 1

namespace veldan {

extern const GalleryKernel neonKernel;

} // namespace veldan

#else
#define VELDAN_NEON_KERNEL 0
#endif

#endif
