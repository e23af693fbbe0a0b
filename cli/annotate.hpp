#ifndef VELDAN_CLI_ANNOTATE_HPP
#define VELDAN_CLI_ANNOTATE_HPP

#include "photo.hpp"

#include <veldan/face_record.h>

#include <vector>

namespace veldan::cli {

/**
 * Draws each face's box in green and its five key points in red; with several faces also their numbers, counted from 1
 * in the order of the records. Lines, points and digits grow with the photo, and only pixels under them change.
 */
void annotate(Photo& photo, const std::vector<VDFACEINFOEX>& faces);

} // namespace veldan::cli

#endif
