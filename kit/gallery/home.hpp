#ifndef VELDAN_KIT_GALLERY_HOME_HPP
#define VELDAN_KIT_GALLERY_HOME_HPP

#include "gallery/records.hpp"

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace veldan::kit {

/**
 * Where the rows of a gallery are: a file or a server. What may be done with persons and photos is GalleryStore's to
 * decide, which describes the failures too. Those of a home are FatalErrors: the next statement would meet them as
 * well.
 */
class GalleryHome {
public:
    GalleryHome() = default;
    GalleryHome(const GalleryHome&) = delete;
    GalleryHome& operator=(const GalleryHome&) = delete;
    virtual ~GalleryHome() = default;

    /** What messages call it; without a password. */
    virtual const std::string& name() const = 0;
    virtual const Recognizers& recognizers() const = 0;

    /** @name Reading */
    ///@{
    /** @param restart  told to forget what was visited, when all begins anew; without it that is a failure */
    virtual void forEach(const std::function<void(const PersonPhoto& photo)>& visit,
                         const std::function<void()>& restart) = 0;
    virtual GallerySize size() = 0;
    virtual std::vector<PersonSummary> persons() = 0;
    virtual std::vector<EnrolledPhoto> photosOf(const std::string& person) = 0;
    virtual std::optional<EnrolledPhoto> photo(const std::string& person, const std::string& digest) = 0;
    virtual std::vector<std::string> othersWith(const std::string& person, const std::string& digest) = 0;
    /** Whether there may have been changes, by anybody, since this was last asked. */
    virtual bool changed() = 0;
    ///@}

    /** Whether nearest() is there. A home that cannot search is read into memory. */
    virtual bool searches() const { return false; }
    virtual std::vector<NearestPerson> nearest(const Template& probe, Kind kind, std::size_t count);

    /**
     * Takes the steps, which may change rows, all or none; returns once the changes are safe. The steps may be taken
     * more than once, when the first time left nothing behind.
     * @return false, with nothing changed, when the gallery was new and another process was faster with one of that
     *         name, which is then open here
     */
    virtual bool change(const std::function<void()>& steps) = 0;

    /** @name For the steps of change() */
    ///@{
    /** Adds those photos that their persons do not have; of each, whether it was added. */
    virtual std::vector<bool> insert(const std::vector<PersonPhoto>& photos) = 0;
    virtual void replaceTemplates(const std::string& person, const EnrolledPhoto& photo) = 0;
    virtual void rename(const std::string& person, const std::string& name) = 0;
    /** @return the number of photos removed with the person */
    virtual std::size_t removePerson(const std::string& person) = 0;
    virtual bool removePhoto(const std::string& person, const std::string& digest) = 0;
    virtual void removePersonsWithoutPhotos() = 0;
    ///@}
};

/** Opens the gallery at a location: a server's, or the name of a file. */
std::unique_ptr<GalleryHome> openHome(const std::string& location, GalleryAccess access);

} // namespace veldan::kit

#endif
