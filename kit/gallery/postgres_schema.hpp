#ifndef VELDAN_KIT_GALLERY_POSTGRES_SCHEMA_HPP
#define VELDAN_KIT_GALLERY_POSTGRES_SCHEMA_HPP

#include <string>

namespace veldan::kit {

/** @name Of the tables that make a database a gallery */
///@{
inline constexpr const char* postgresSchema = "veldan_gallery"; ///< their schema; also the channel of notifications
inline constexpr int postgresSchemaVersion = 1;
inline constexpr const char* readerRole = "veldan_reader";
inline constexpr const char* writerRole = "veldan_writer";
///@}

/** What became of a database. */
struct InitialisedDatabase {
    int before = 0; ///< version of its schema; 0: it was no gallery
    int now = 0;
    std::string remark; ///< what is left to do, in words; empty: nothing
};

/**
 * Makes a database a gallery, or brings the schema of an older one up to date; all or nothing. One that is a gallery
 * already stays as it is. Throws CommandError: Gallery (out of reach, without the extension, of a newer version),
 * NotWritten (without the right to), Usage (not the location of a server).
 */
InitialisedDatabase initDatabase(const std::string& location);

} // namespace veldan::kit

#endif
