#ifndef VELDAN_TOOL_REFUSED_FORMATS_HPP
#define VELDAN_TOOL_REFUSED_FORMATS_HPP

#include <cstddef>

namespace veldan {

// Formats that the image tools do not promise, and whose readers in Debian's OpenCV harm the process on damaged files:
// that of DICOM (medical pictures) ends it, that of Radiance (high dynamic range) leaves a file open each time, until
// none can be opened any more. So they are refused before OpenCV sees them.

/** True when the data begin as a file of such a format does. */
bool isRefused(const unsigned char* data, std::size_t size);

/** The same for a file; false when it cannot be read. */
bool isRefusedFile(const char* path);

} // namespace veldan

#endif
