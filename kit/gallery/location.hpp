#ifndef VELDAN_KIT_GALLERY_LOCATION_HPP
#define VELDAN_KIT_GALLERY_LOCATION_HPP

#include <string>

namespace veldan::kit {

/** Whether a gallery's location is a database of a PostgreSQL server: postgresql://..., postgres://... or service=...
 */
bool isServer(const std::string& location);

/** The location as messages may show it: that of a server without passwords. */
std::string shownLocation(const std::string& location);

} // namespace veldan::kit

#endif
