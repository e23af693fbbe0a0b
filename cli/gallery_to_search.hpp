#ifndef VELDAN_CLI_GALLERY_TO_SEARCH_HPP
#define VELDAN_CLI_GALLERY_TO_SEARCH_HPP

#include "gallery/store.hpp"
#include "kit_names.hpp"

#include <string>

namespace veldan::cli {

/** Opens a gallery for searches; tells what is passed over in it. @param empty  what to tell when nobody is enrolled */
SearchableGallery galleryToSearch(const std::string& path, const std::string& empty);

} // namespace veldan::cli

#endif
