#ifndef VELDAN_TOOL_DICOM_HPP
#define VELDAN_TOOL_DICOM_HPP

#include <cstddef>

namespace veldan {

// Medical pictures are not among the formats that the image tools promise, and Debian's OpenCV hands them to a library
// that ends the process on a damaged file. So they are refused before OpenCV sees them.

/** True when the data begin as a DICOM file does: "DICM" behind a preamble of 128 bytes. */
bool isDicom(const unsigned char* data, std::size_t size);

/** The same for a file; false when it cannot be read. */
bool isDicomFile(const char* path);

} // namespace veldan

#endif
