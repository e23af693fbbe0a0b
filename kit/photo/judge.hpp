#ifndef VELDAN_KIT_PHOTO_JUDGE_HPP
#define VELDAN_KIT_PHOTO_JUDGE_HPP

#include "photo/photo.hpp"

#include <veldan/veldan.hpp>

#include <vector>

namespace veldan::kit {

/** The light that a photo was taken under, which decides the liveness network. */
enum class Light { Visible, NearInfrared };

/** What the library says about a face that detection found. */
struct JudgedFace {
    VDFACEINFOEX record{}; ///< with maskScore, quality and liveness
    bool masked = false;
    bool sharp = false;
    bool frontal = false;
    bool live = false;
};

/** Whether the record's liveness, of one frame or the median of a track, is that of a person before the camera. */
bool isLive(const VDFACEINFOEX& face);

/** True when the photo has no colour, but for what lossy compression adds. */
bool isGrey(const Photo& photo);

/**
 * Runs the engines of an instance on the faces of a photo.
 * @param faces  records of its detection
 * Throws CommandError (Library) when an engine refuses.
 */
std::vector<JudgedFace> judge(Instance& instance, Photo& photo, const std::vector<VDFACEINFOEX>& faces, Light light);

/** @name Crops of 112 x 112 pixels, as the engines see the face */
///@{
/** Aligned by the five points. */
Photo alignedByFive(const Photo& photo, const VDFACEINFOEX& face);
/** Aligned by the two points that masked faces have. */
Photo alignedByTwo(const Photo& photo, const VDFACEINFOEX& face);
///@}

} // namespace veldan::kit

#endif
