#ifndef VELDAN_KIT_PHOTO_OUTPUT_FILES_HPP
#define VELDAN_KIT_PHOTO_OUTPUT_FILES_HPP

#include "photo/photo.hpp"

#include <filesystem>
#include <set>
#include <string>
#include <sys/types.h>
#include <unordered_map>
#include <utility>
#include <vector>

namespace veldan::kit {

/** The photos of a command line, which none of its pictures may replace, under whatever name. */
class PhotoFiles {
public:
    explicit PhotoFiles(const std::vector<std::string>& photos);

    /** Writes a picture. Throws CommandError (NotWritten), with the picture's name in the message. */
    void save(Photo& picture, const std::filesystem::path& path) const;

private:
    std::set<std::pair<dev_t, ino_t>> files_;
};

/** Names of files that are given away, with the number that the last one of that name got; 1: without a number. */
using UsedNames = std::unordered_map<std::string, int>;

/** Decides which file the drawn picture of each photo goes to. */
class DrawTarget {
public:
    /**
     * @param out      what the user gave to --draw; empty: nothing is drawn
     * @param several  there may be several photos, which need a folder
     * Throws CommandError when out cannot serve.
     */
    DrawTarget(const std::string& out, bool several);

    bool wanted() const { return !out_.empty(); }

    /** The file for the next photo. */
    std::filesystem::path pathFor(const std::filesystem::path& photo);

private:
    std::filesystem::path out_;
    bool folder_ = false;
    UsedNames used_;
};

/** Decides which files the crops of each face go to: PHOTO-face1.png, PHOTO-face1-mask.png. */
class CropTarget {
public:
    /** @param folder  what the user gave to --aligned; empty: no crops. Throws CommandError when it cannot serve. */
    explicit CropTarget(const std::string& folder);

    bool wanted() const { return !folder_.empty(); }

    /** What the names for the next photo begin with. */
    std::string nextStem(const std::filesystem::path& photo);

    /** The file for a crop of the photo. @param number  the face, from 1 @param kind  end of the name */
    std::filesystem::path pathFor(const std::string& stem, std::size_t number, const std::string& kind) const;

private:
    std::filesystem::path folder_;
    UsedNames used_;
};

} // namespace veldan::kit

#endif
