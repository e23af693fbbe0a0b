#ifndef VELDAN_KIT_GALLERY_CANDIDATE_SEARCH_HPP
#define VELDAN_KIT_GALLERY_CANDIDATE_SEARCH_HPP

#include "gallery/store.hpp"

#include <veldan/veldan.hpp>

#include <cstddef>
#include <vector>

namespace veldan::kit {

/** A person who may be the one that is looked for, with the photo that speaks most for it. */
struct Candidate {
    std::size_t person = 0; ///< index into the gallery's names
    std::size_t photo = 0;  ///< index into its origins
    float similarity = 0;
};

/**
 * The persons of a gallery that are most similar to a template, the most similar one first. Persons of one similarity
 * are in the gallery's order.
 * @param kind   of the template, and of those that it is compared with
 * @param count  most candidates
 */
std::vector<Candidate> nearestCandidates(Instance& instance, const SearchableGallery& gallery, const Template& probe,
                                         Kind kind, std::size_t count);

} // namespace veldan::kit

#endif
