#ifndef VELDAN_KIT_GALLERY_SQLITE_HOME_HPP
#define VELDAN_KIT_GALLERY_SQLITE_HOME_HPP

#include "gallery/new_file.hpp"
#include "gallery/records.hpp"

#include <SQLiteCpp/SQLiteCpp.h>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace veldan::kit {

/**
 * The rows of a gallery in an SQLite file. What may be done with persons and photos is GalleryStore's to decide, which
 * describes the failures too. Those of SQLite are FatalErrors: the next statement would meet them as well.
 */
class SqliteHome {
public:
    SqliteHome(std::string path, GalleryAccess access);

    const std::string& path() const { return path_; }
    const Recognizers& recognizers() const { return recognizers_; }

    /** @name Reading */
    ///@{
    void forEach(const std::function<void(const PersonPhoto& photo)>& visit);
    std::vector<PersonSummary> persons();
    std::vector<EnrolledPhoto> photosOf(const std::string& person);
    std::optional<EnrolledPhoto> photo(const std::string& person, const std::string& digest);
    std::vector<std::string> othersWith(const std::string& person, const std::string& digest);
    ///@}

    /**
     * Takes the steps, which may change rows, all or none; returns once the changes are on the disk.
     * @return false, with nothing changed, when the gallery was new and another process was faster with one of that
     *         name, which is then open here
     */
    bool change(const std::function<void()>& steps);

    /** @name For the steps of change() */
    ///@{
    /** @return false, with nothing changed, when the person has the photo */
    bool insert(const std::string& person, const EnrolledPhoto& photo);
    void replaceTemplates(const std::string& person, const EnrolledPhoto& photo);
    void rename(const std::string& person, const std::string& name);
    /** @return the number of photos removed with the person */
    std::size_t removePerson(const std::string& person);
    bool removePhoto(const std::string& person, const std::string& digest);
    void removePersonsWithoutPhotos();
    ///@}

private:
    void open();
    void allowChanges();
    void createSchema();
    bool publish();
    std::string recognizerOf(const char* kind);
    [[noreturn]] void fail(const SQLite::Exception& error) const;
    template <class Work>
    auto told(const Work& work) const -> decltype(work());

    std::string path_;
    GalleryAccess access_;
    std::unique_ptr<NewFile> newFile_; ///< the file, as long as it has not got its name
    std::optional<SQLite::Database> database_;
    Recognizers recognizers_;
};

} // namespace veldan::kit

#endif
