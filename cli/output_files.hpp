#ifndef VELDAN_CLI_OUTPUT_FILES_HPP
#define VELDAN_CLI_OUTPUT_FILES_HPP

#include "photo.hpp"

#include <filesystem>
#include <set>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace veldan::cli {

/** The photos of a command line, which none of its pictures may replace, under whatever name. */
class PhotoFiles {
public:
    explicit PhotoFiles(const std::vector<std::string>& photos);

    /** Writes a picture. Throws CommandError (NotWritten), with the picture's name in the message. */
    void save(Photo& picture, const std::filesystem::path& path) const;

private:
    std::set<std::pair<dev_t, ino_t>> files_;
};

/** Decides which file the drawn picture of each photo goes to. */
class DrawTarget {
public:
    /**
     * @param out     what the user gave to --draw; empty: nothing is drawn
     * @param photos  how many photos there are: several need a folder
     * Throws CommandError when out cannot serve.
     */
    DrawTarget(const std::string& out, std::size_t photos);

    bool wanted() const { return !out_.empty(); }

    /** The file for the next photo. */
    std::filesystem::path pathFor(const std::filesystem::path& photo);

private:
    std::filesystem::path out_;
    bool folder_ = false;
    std::set<std::string> used_;
};

/** Decides which files the crops of each face go to: PHOTO-face1.png, PHOTO-face1-mask.png. */
class CropTarget {
public:
    /** @param folder  what the user gave to --aligned; empty: no crops. Throws CommandError when it cannot serve. */
    explicit CropTarget(const std::string& folder);

    bool wanted() const { return !folder_.empty(); }

    /** Begins the next photo. */
    void nextPhoto(const std::filesystem::path& photo);

    /** The file for a crop of the photo. @param number  the face, from 1 @param kind  end of the name */
    std::filesystem::path pathFor(std::size_t number, const std::string& kind) const;

private:
    std::filesystem::path folder_;
    std::string stem_;
    std::set<std::string> used_;
};

} // namespace veldan::cli

#endif
