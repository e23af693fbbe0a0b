#ifndef VELDAN_RECOG_GALLERY_KERNELS_X86_HPP
#define VELDAN_RECOG_GALLERY_KERNELS_X86_HPP

#include "recog/gallery_kernels.hpp"

namespace veldan {

bool runsAvx2();
bool runsAvx512();

// Each to be called only where the processor runs it.
extern const GalleryKernel avx2Kernel;
extern const GalleryKernel avx512Kernel;

} // namespace veldan

#endif
