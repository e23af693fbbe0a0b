#ifndef VELDAN_KIT_GALLERY_STORE_HPP
#define VELDAN_KIT_GALLERY_STORE_HPP

#include "gallery/records.hpp"

#include <veldan/veldan.hpp>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace veldan::kit {

class GalleryHome;

/** A gallery as searches take it: both galleries hold the persons of names, with the same number of templates each. */
struct SearchableGallery {
    std::vector<std::string> names;
    Gallery bare{Kind::Bare};
    Gallery masked{Kind::Masked};
    std::vector<PhotoOrigin> origins; ///< of each template, the same in both
    /** Photos whose templates cannot be used and were passed over, in words. A person without others is left out. */
    std::vector<std::string> damaged;
};

/**
 * A gallery: persons, and of each photo a template of either kind. It is in a file, or in a database of a PostgreSQL
 * server, see isServer(). A new file gets its name with its first photo: whoever enrols nobody leaves no file behind. A
 * database is made a gallery by initDatabase().
 *
 * Every change is one transaction that is on the disk when the call returns, so that a process killed at any moment
 * leaves all earlier changes and no half of the current one. Several processes may use a gallery at once; each waits a
 * few seconds for the others. A connection that is lost is made anew and the work repeated where nothing of it was
 * done, with words on standard error; when that is in vain for half a minute, it fails.
 *
 * All functions throw CommandError, with the location in the message: Missing (no such gallery or person), Gallery (not
 * a gallery, a newer or damaged one, other networks, in use, out of reach), NotWritten (a read-only file, a full disk),
 * Unreadable. A file that is not a gallery is never changed. One thread at a time.
 */
class GalleryStore {
public:
    using Access = GalleryAccess;

    GalleryStore(const std::string& location, Access access);
    GalleryStore(GalleryStore&& other) noexcept;
    GalleryStore& operator=(GalleryStore&& other) noexcept;
    GalleryStore(const GalleryStore&) = delete;
    GalleryStore& operator=(const GalleryStore&) = delete;
    ~GalleryStore();

    /** The location as messages show it: without a password. */
    const std::string& name() const;

    /** The networks that made the templates. */
    const Recognizers& recognizers() const;

    /** Throws when other networks than the library's made the templates, and says what to do. */
    void requireOwnNetworks() const;

    /** All persons, as enrolled, with what searches need. Throws when other networks made the templates. */
    SearchableGallery searchable();

    /**
     * Whether the gallery may have changed since this was last asked, or since it was opened: by this object, another
     * one or another process. Takes microseconds, as it is meant for every frame of a video and every request.
     */
    bool changed();

    /** Whether nearest() is there: whether the gallery's home searches it, so that nobody needs it in memory. */
    bool searches() const;

    /**
     * The persons most similar to a template, the most similar one first, those of one similarity in the gallery's
     * order: what nearestCandidates() finds in searchable(). Only where searches().
     */
    std::vector<NearestPerson> nearest(const Template& probe, Kind kind, std::size_t count);

    /** How many persons and photos there are. */
    GallerySize size();

    /** Goes through all photos as enrolled, a person's after each other. */
    void forEach(const std::function<void(const PersonPhoto& photo)>& visit);

    /** All persons by name. */
    std::vector<PersonSummary> persons();

    /** The photos of a person, oldest first; empty when there is no such person. */
    std::vector<EnrolledPhoto> photosOf(const std::string& person);

    /** Whether this photo of the person is enrolled, with templates that are whole. */
    bool holds(const std::string& person, const std::string& digest);

    /** Who else this photo is enrolled as. */
    std::vector<std::string> othersWith(const std::string& person, const std::string& digest);

    /** What became of a photo that was handed in. */
    enum class Added {
        New,
        Repaired, ///< it was enrolled before, with a damaged template, which was replaced
        Unchanged ///< it was enrolled before
    };

    /** Adds photos, and their persons if new: all of them or, when it fails, none. */
    std::vector<Added> add(const std::vector<PersonPhoto>& photos);

    /** Throws CommandError: Missing when there is no such person, Usage when the new name cannot be one or is taken. */
    void renamePerson(const std::string& person, const std::string& name);

    /**
     * Gives the photos of a person to another one. A photo of both stays once.
     * @return how many photos the other one has now. Throws CommandError (Missing) when one of them does not exist,
     * (Usage) when both are the same.
     */
    std::size_t mergePerson(const std::string& person, const std::string& into);

    /** Removes a person with all photos. @return the number of photos; 0: there is no such person */
    std::size_t removePerson(const std::string& person);

    /** Removes one photo, and its person with the last one. @return false when there is no such photo */
    bool removePhoto(const std::string& person, const std::string& digest);

private:
    std::vector<Added> addAll(const std::vector<PersonPhoto>& photos);
    void change(const std::function<void()>& steps);

    std::unique_ptr<GalleryHome> home_;
};

} // namespace veldan::kit

#endif
