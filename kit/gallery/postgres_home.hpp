#ifndef VELDAN_KIT_GALLERY_POSTGRES_HOME_HPP
#define VELDAN_KIT_GALLERY_POSTGRES_HOME_HPP

#include "gallery/home.hpp"
#include "gallery/postgres_connection.hpp"

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace veldan::kit {

/**
 * A gallery in a database of a PostgreSQL server. One changes it at a time, as with a file. When the connection is
 * lost, what only reads is asked again; of a change, the server is asked first whether it was made.
 */
class PostgresHome : public GalleryHome {
public:
    PostgresHome(std::string location, GalleryAccess access);

    const std::string& name() const override { return name_; }
    const Recognizers& recognizers() const override { return recognizers_; }

    void forEach(const std::function<void(const PersonPhoto& photo)>& visit,
                 const std::function<void()>& restart) override;
    GallerySize size() override;
    std::vector<PersonSummary> persons() override;
    std::vector<EnrolledPhoto> photosOf(const std::string& person) override;
    std::optional<EnrolledPhoto> photo(const std::string& person, const std::string& digest) override;
    std::vector<std::string> othersWith(const std::string& person, const std::string& digest) override;
    bool changed() override;

    bool searches() const override { return true; }
    std::vector<NearestPerson> nearest(const Template& probe, Kind kind, std::size_t count) override;

    bool change(const std::function<void()>& steps) override;
    std::vector<bool> insert(const std::vector<PersonPhoto>& photos) override;
    void replaceTemplates(const std::string& person, const EnrolledPhoto& photo) override;
    void rename(const std::string& person, const std::string& name) override;
    std::size_t removePerson(const std::string& person) override;
    bool removePhoto(const std::string& person, const std::string& digest) override;
    void removePersonsWithoutPhotos() override;

private:
    using Clock = std::chrono::steady_clock;

    /** The connection, made anew when it was lost. */
    PostgresConnection& connected();
    void prepare(PostgresConnection& fresh);
    PostgresRows ask(const char* statement, const PostgresParameters& parameters = {});
    template <class Work>
    auto repeated(const Work& work) -> decltype(work());
    void attempt(const std::function<void()>& steps, std::string& doubtful);
    std::optional<bool> wasMade(const std::string& transaction);
    void giveUpTransaction() noexcept;
    [[noreturn]] void fail(const ServerError& error) const;

    std::string location_;
    std::string name_;
    GalleryAccess access_;
    std::optional<PostgresConnection> connection_;
    bool changing_ = false; ///< in the steps of change()
    Recognizers recognizers_;
    bool changed_ = false;   ///< a connection was made anew, which may have missed notifications
    bool notifies_ = false;  ///< a server that only follows another one sends no notifications
    Clock::time_point told_; ///< when changed() said yes for want of notifications, or tried to connect
};

} // namespace veldan::kit

#endif
