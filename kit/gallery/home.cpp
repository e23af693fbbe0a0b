#include "gallery/home.hpp"

#include "gallery/location.hpp"
#include "gallery/sqlite_home.hpp"
#include "report/exit_codes.hpp"

#include <stdexcept>

#ifdef VELDAN_WITH_POSTGRESQL
#include "gallery/postgres_home.hpp"
#endif

namespace veldan::kit {

std::vector<NearestPerson> GalleryHome::nearest(const Template&, Kind, std::size_t) {
    throw std::logic_error("this gallery is searched in memory");
}

std::unique_ptr<GalleryHome> openHome(const std::string& location, GalleryAccess access) {
    if (!isServer(location))
        return std::make_unique<SqliteHome>(location, access);
#ifdef VELDAN_WITH_POSTGRESQL
    return std::make_unique<PostgresHome>(location, access);
#else
    throw CommandError(ExitCode::Gallery, shownLocation(location) +
                                              ": this veldan was built without PostgreSQL; install libpq-dev and "
                                              "build it with -DVELDAN_POSTGRESQL=ON");
#endif
}

} // namespace veldan::kit
