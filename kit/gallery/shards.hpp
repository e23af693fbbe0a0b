#ifndef VELDAN_KIT_GALLERY_SHARDS_HPP
#define VELDAN_KIT_GALLERY_SHARDS_HPP

#include <string>
#include <vector>

namespace veldan::kit {

/** A server that holds a part of a gallery's templates. */
struct ShardServer {
    int number = 1;
    std::string location; ///< as libpq takes it: postgresql://..., or key=value words
};

/** What the server itself runs, once, to hold its part: psql -f. */
std::string shardSql(int number);

/**
 * What the database with the gallery runs, once, to hand its templates to these servers and search there.
 * @param more  whether it has servers already, and these are added while searches run
 * Throws CommandError (Usage), with the location, when that of a server cannot be understood.
 */
std::string routerSql(const std::vector<ShardServer>& servers, bool more);

} // namespace veldan::kit

#endif
