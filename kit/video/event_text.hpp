#ifndef VELDAN_KIT_VIDEO_EVENT_TEXT_HPP
#define VELDAN_KIT_VIDEO_EVENT_TEXT_HPP

#include "report/json.hpp"
#include "video/track_events.hpp"

#include <string>

namespace veldan::kit {

/**
 * @name An event, on one line or as an object
 * @param name      of whoever was recognised
 * @param liveness  whether the liveness of its face was judged
 */
///@{
std::string eventText(const TrackEvent& event, const std::string& name, bool liveness);
Json eventJson(const TrackEvent& event, const std::string& name, bool liveness);
///@}

/** The similarity that a search in a video found, 0 to 1. */
double similarityOf(const VDFACEINFOEX& face);

} // namespace veldan::kit

#endif
