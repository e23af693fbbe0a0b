#ifndef VELDAN_KIT_GALLERY_IDENTITY_HPP
#define VELDAN_KIT_GALLERY_IDENTITY_HPP

#include "gallery/candidate_search.hpp"
#include "gallery/store.hpp"
#include "photo/face_api.hpp"
#include "photo/judge.hpp"
#include "report/json.hpp"
#include "report/similarity.hpp"

#include <veldan/veldan.hpp>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace veldan::kit {

/** What a search asks for. */
struct IdentitySearch {
    double threshold = recognitionThreshold; ///< similarity that a bare face needs
    double maskThreshold = maskedRecognitionThreshold;
    std::size_t top = 0; ///< candidates that are wanted as well
};

/** Who somebody is. */
struct Identity {
    Kind kind = Kind::Bare;
    float similarity = 0;            ///< of the most similar person, known or not
    std::optional<std::string> name; ///< nothing: unknown
    std::vector<NearestPerson> candidates;
};

/** A face and who it is. */
struct IdentifiedFace {
    JudgedFace face;
    Identity identity;
};

/** Searches a gallery for a template. @param kind  of the template. Throws CommandError (Library). */
Identity identify(Instance& instance, const SearchableGallery& gallery, const Template& probe, Kind kind,
                  const IdentitySearch& search);

/** The same in a gallery that is searched where it is, see GalleryStore::searches(). Throws CommandError. */
Identity identify(GalleryStore& store, const Template& probe, Kind kind, const IdentitySearch& search);

/** All faces of a photo, and how long the library took. Throws CommandError. */
struct IdentifiedFaces {
    std::vector<IdentifiedFace> faces;
    double milliseconds = 0;
};
/** Says whose a template is. */
using Identify = std::function<Identity(Instance& instance, const Template& probe, Kind kind)>;
IdentifiedFaces identifyFaces(FaceApi& api, const Identify& identify, Photo& photo);
IdentifiedFaces identifyFaces(FaceApi& api, const SearchableGallery& gallery, Photo& photo,
                              const IdentitySearch& search);

/** The name, or "unknown". */
std::string nameText(const Identity& identity);

/** @name What is found, on one line; candidates follow on lines of their own */
///@{
std::string identityText(const Identity& identity);
std::string identityText(const IdentifiedFace& identified);
std::string candidatesText(const Identity& identity);
///@}

/** @name The same as objects; candidates are an array */
///@{
Json identityJson(const Identity& identity);
Json identityJson(const IdentifiedFace& identified);
Json candidatesJson(const Identity& identity);
///@}

} // namespace veldan::kit

#endif
