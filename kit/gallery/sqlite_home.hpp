#ifndef VELDAN_KIT_GALLERY_SQLITE_HOME_HPP
#define VELDAN_KIT_GALLERY_SQLITE_HOME_HPP

#include "gallery/home.hpp"
#include "gallery/new_file.hpp"

#include <SQLiteCpp/SQLiteCpp.h>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace veldan::kit {

/** A gallery in an SQLite file. */
class SqliteHome : public GalleryHome {
public:
    SqliteHome(std::string path, GalleryAccess access);

    const std::string& name() const override { return path_; }
    const Recognizers& recognizers() const override { return recognizers_; }

    void forEach(const std::function<void(const PersonPhoto& photo)>& visit,
                 const std::function<void()>& restart) override;
    GallerySize size() override;
    std::vector<PersonSummary> persons() override;
    std::vector<EnrolledPhoto> photosOf(const std::string& person) override;
    std::optional<EnrolledPhoto> photo(const std::string& person, const std::string& digest) override;
    std::vector<std::string> othersWith(const std::string& person, const std::string& digest) override;
    bool changed() override;

    bool change(const std::function<void()>& steps) override;
    std::vector<bool> insert(const std::vector<PersonPhoto>& photos) override;
    void replaceTemplates(const std::string& person, const EnrolledPhoto& photo) override;
    void rename(const std::string& person, const std::string& name) override;
    std::size_t removePerson(const std::string& person) override;
    bool removePhoto(const std::string& person, const std::string& digest) override;
    void removePersonsWithoutPhotos() override;

private:
    void open();
    void allowChanges();
    void createSchema();
    bool publish();
    std::int64_t dataVersion();
    std::string recognizerOf(const char* kind);
    [[noreturn]] void fail(const SQLite::Exception& error) const;
    template <class Work>
    auto told(const Work& work) const -> decltype(work());

    std::string path_;
    GalleryAccess access_;
    std::unique_ptr<NewFile> newFile_; ///< the file, as long as it has not got its name
    std::optional<SQLite::Database> database_;
    std::int64_t dataVersion_ = 0; ///< of the database, when changed() was last asked
    bool changedHere_ = false;     ///< since then
    Recognizers recognizers_;
};

} // namespace veldan::kit

#endif
