#ifndef VELDAN_KIT_GALLERY_COMPARISON_HPP
#define VELDAN_KIT_GALLERY_COMPARISON_HPP

#include "gallery/template_file.hpp"
#include "photo/judge.hpp"
#include "photo/photo.hpp"
#include "report/json.hpp"

#include <veldan/veldan.hpp>

#include <array>
#include <optional>
#include <string>

namespace veldan::kit {

/** A photo with the face that is compared, or the template in place of it. */
struct ComparedSide {
    std::string path;
    Photo photo;
    JudgedFace face;
    std::optional<TemplateOfKind> given;
};

using ComparedSides = std::array<ComparedSide, 2>;

/**
 * The kind that two sides are compared as: masked when one wears a mask or when it is asked for; a template is of one
 * kind for good, which the other side then has to follow. Throws CommandError (Unsuitable) when that cannot be.
 */
Kind kindToCompare(const ComparedSides& sides, bool masked);

/** Their similarity. Throws CommandError (Library). */
double similarityOf(Instance& instance, ComparedSides& sides, Kind kind);

/** Writes what a comparison found. @param threshold  that decides, if any */
void putComparison(Json& document, double similarity, Kind kind, std::optional<double> threshold);

} // namespace veldan::kit

#endif
