#include "gallery/postgres_home.hpp"

#include "gallery/location.hpp"
#include "gallery/postgres_schema.hpp"
#include "report/exit_codes.hpp"
#include "report/messages.hpp"

#include <algorithm>
#include <thread>
#include <utility>

namespace veldan::kit {

namespace {

constexpr auto longestOutage = std::chrono::seconds(30);
constexpr auto firstPause = std::chrono::milliseconds(100);
constexpr auto longestPause = std::chrono::milliseconds(2000);
constexpr auto pollingPause = std::chrono::milliseconds(1000);

constexpr std::size_t mostNearest = 10000; // of the extension's aggregate
constexpr const char* rowsAtOnce = "FETCH 2000 FROM photos";

// The settings of the server are kept where they are stricter.
constexpr const char* sessionSettings = R"(
    SET lock_timeout = '30s';
    SET idle_in_transaction_session_timeout = '5min';
    SELECT set_config('synchronous_commit', 'on', false)
        WHERE current_setting('synchronous_commit') NOT IN ('on', 'remote_apply');
    SELECT set_config('statement_timeout', '10min', false) WHERE current_setting('statement_timeout') = '0';
    SET default_transaction_isolation = 'read committed';
)";

// One who changes the gallery at a time: what is looked up in a change stays true until it is made.
constexpr const char* beginChange = "SELECT pg_advisory_xact_lock(hashtextextended('veldan gallery', 0)), "
                                    "pg_current_xact_id()::text";

/** Waits longer and longer between attempts, and says why. */
class Patience {
public:
    explicit Patience(const std::string& name) : name_(name) {}

    /** Throws FatalError when it has ended. */
    void wait(const LostConnection& lost, const char* consequence = "") {
        const auto now = std::chrono::steady_clock::now();
        if (now - start_ > longestOutage)
            throw FatalError(ExitCode::Gallery, name_ + ": the server cannot be reached: " + lost.what() + consequence);
        tellUser(name_ + ": the connection was lost (" + lost.what() + "); trying again");
        std::this_thread::sleep_for(pause_);
        pause_ = std::min(pause_ * 2, longestPause);
    }

    bool ended() const { return std::chrono::steady_clock::now() - start_ > longestOutage; }

private:
    const std::string& name_;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    std::chrono::milliseconds pause_ = firstPause;
};

/** The transaction met another one and was undone by the server; the next attempt may well succeed. */
bool collided(const ServerError& error) {
    return error.state() == "40001" || error.state() == "40P01";
}

/** Of a row that begins with source, digest, date, quality and both templates. */
EnrolledPhoto photoIn(const PostgresRows& rows, int row) {
    return {rows.text(row, 0),         rows.text(row, 1),
            rows.text(row, 2),         static_cast<int>(rows.number(row, 3)),
            rows.faceTemplate(row, 4), rows.faceTemplate(row, 5)};
}

std::string_view bytesOf(const Template& bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

} // namespace

PostgresHome::PostgresHome(std::string location, GalleryAccess access)
    : location_(std::move(location)), name_(shownLocation(location_)), access_(access) {
    try {
        connected();
    } catch (const LostConnection& lost) {
        // Whoever asks for the first time may have the address wrong.
        throw FatalError(ExitCode::Gallery, name_ + ": the server cannot be reached: " + lost.what());
    } catch (const ServerError& error) {
        fail(error);
    }
    changed_ = false;
}

void PostgresHome::fail(const ServerError& error) const {
    const std::string& state = error.state();
    const std::string reason = error.what();
    if (state == "55P03")
        throw FatalError(ExitCode::Gallery, name_ + ": another program is using it; try again when that is done");
    if (state == "42501" && access_ == GalleryAccess::Read)
        throw FatalError(ExitCode::Gallery, name_ + ": " + reason + "; readers need the role " + readerRole);
    if (state == "42501")
        throw FatalError(ExitCode::NotWritten,
                         name_ + ": cannot be written: " + reason + "; writers need the role " + writerRole);
    if (state == "25006" || state.rfind("53", 0) == 0 || state.rfind("58", 0) == 0)
        throw FatalError(ExitCode::NotWritten, name_ + ": cannot be written: " + reason);
    throw FatalError(ExitCode::Gallery, name_ + ": the server refuses: " + reason);
}

void PostgresHome::prepare(PostgresConnection& fresh) {
    fresh.runAll(sessionSettings);
    if (fresh.run("SELECT to_regclass('veldan_gallery.version') IS NULL").number(0, 0) != 0)
        throw CommandError(ExitCode::Missing, name_ + ": no gallery in this database; make it one with \"veldan "
                                                      "gallery init\"");
    const PostgresRows rows = fresh.run("SELECT number FROM veldan_gallery.version");
    const std::int64_t version = rows.size() == 1 ? rows.number(0, 0) : 0;
    if (version > postgresSchemaVersion)
        throw CommandError(ExitCode::Gallery, name_ + ": made by a newer version of veldan (gallery format " +
                                                  std::to_string(version) + ", this version knows " +
                                                  std::to_string(postgresSchemaVersion) + "); use that one");
    if (version < postgresSchemaVersion)
        throw CommandError(ExitCode::Gallery, name_ + ": made by an older version of veldan; \"veldan gallery init\" "
                                                      "brings it up to date");
    // Nothing that another schema has under these names gets in between.
    if (fresh
            .run("SELECT set_config('search_path', 'pg_catalog, veldan_gallery, ' || extnamespace::regnamespace || "
                 "', pg_temp', false) FROM pg_extension WHERE extname = 'veldan'")
            .size() == 0)
        throw CommandError(ExitCode::Gallery, name_ + ": the database has lost the extension \"veldan\"");
    Recognizers found;
    const PostgresRows kinds = fresh.run("SELECT kind, digest FROM recognizer");
    for (int i = 0; i < kinds.size(); ++i)
        (kinds.text(i, 0) == "bare" ? found.bare : found.masked) = kinds.text(i, 1);
    recognizers_ = found;
    notifies_ = fresh.run("SELECT pg_is_in_recovery()").number(0, 0) == 0;
    if (notifies_)
        fresh.runAll("LISTEN veldan_gallery");
    if (access_ == GalleryAccess::Read)
        fresh.runAll("SET default_transaction_read_only = on");
}

PostgresConnection& PostgresHome::connected() {
    if (connection_)
        return *connection_;
    PostgresConnection fresh(location_);
    prepare(fresh);
    changed_ = true;
    return connection_.emplace(std::move(fresh));
}

PostgresRows PostgresHome::ask(const char* statement, const PostgresParameters& parameters) {
    return repeated([&] { return connected().run(statement, parameters); });
}

/** Does work that changes nothing, again when the connection is lost; in the steps of a change that is change()'s. */
template <class Work>
auto PostgresHome::repeated(const Work& work) -> decltype(work()) {
    if (changing_)
        return work();
    Patience left(name_);
    for (;;) {
        try {
            return work();
        } catch (const LostConnection& lost) {
            connection_.reset();
            left.wait(lost);
        } catch (const ServerError& error) {
            fail(error);
        }
    }
}

void PostgresHome::giveUpTransaction() noexcept {
    try {
        if (connection_ && connection_->inTransaction())
            connection_->runAll("ROLLBACK");
    } catch (const std::exception&) {
        connection_.reset(); // the server undoes it then
    }
}

void PostgresHome::forEach(const std::function<void(const PersonPhoto& photo)>& visit,
                           const std::function<void()>& restart) {
    bool visited = false;
    repeated([&] {
        if (visited) {
            if (!restart)
                throw FatalError(ExitCode::Gallery, name_ + ": the connection was lost while the gallery was read");
            restart();
        }
        connected().runAll("BEGIN ISOLATION LEVEL REPEATABLE READ READ ONLY;"
                           "DECLARE photos NO SCROLL CURSOR FOR SELECT source, digest, date, quality, bare.template, "
                           "masked.template, name FROM person JOIN photo ON photo.person = person.id "
                           "JOIN bare ON bare.photo = photo.id JOIN masked ON masked.photo = photo.id "
                           "ORDER BY person.id, photo.id");
        try {
            for (;;) {
                const PostgresRows rows = connection_->run(rowsAtOnce);
                if (rows.size() == 0)
                    break;
                visited = true;
                for (int i = 0; i < rows.size(); ++i)
                    visit({rows.text(i, 6), photoIn(rows, i)});
            }
            connection_->runAll("COMMIT");
        } catch (...) {
            giveUpTransaction();
            throw;
        }
    });
}

GallerySize PostgresHome::size() {
    const PostgresRows rows = ask("SELECT (SELECT count(*) FROM person), (SELECT count(*) FROM photo)");
    return {static_cast<std::size_t>(rows.number(0, 0)), static_cast<std::size_t>(rows.number(0, 1))};
}

std::vector<PersonSummary> PostgresHome::persons() {
    const PostgresRows rows = ask("SELECT name, count(*), min(date), max(date) FROM person "
                                  "JOIN photo ON photo.person = person.id GROUP BY person.id ORDER BY name");
    std::vector<PersonSummary> persons;
    persons.reserve(static_cast<std::size_t>(rows.size()));
    for (int i = 0; i < rows.size(); ++i)
        persons.push_back(
            {rows.text(i, 0), static_cast<std::size_t>(rows.number(i, 1)), rows.text(i, 2), rows.text(i, 3)});
    return persons;
}

std::vector<EnrolledPhoto> PostgresHome::photosOf(const std::string& person) {
    const PostgresRows rows = ask("SELECT source, digest, date, quality, bare.template, masked.template FROM person "
                                  "JOIN photo ON photo.person = person.id JOIN bare ON bare.photo = photo.id "
                                  "JOIN masked ON masked.photo = photo.id WHERE name = $1 ORDER BY photo.id",
                                  PostgresParameters().text(person));
    std::vector<EnrolledPhoto> photos;
    photos.reserve(static_cast<std::size_t>(rows.size()));
    for (int i = 0; i < rows.size(); ++i)
        photos.push_back(photoIn(rows, i));
    return photos;
}

std::optional<EnrolledPhoto> PostgresHome::photo(const std::string& person, const std::string& digest) {
    const PostgresRows rows = ask("SELECT source, digest, date, quality, bare.template, masked.template FROM person "
                                  "JOIN photo ON photo.person = person.id JOIN bare ON bare.photo = photo.id "
                                  "JOIN masked ON masked.photo = photo.id WHERE name = $1 AND digest = $2",
                                  PostgresParameters().text(person).text(digest));
    return rows.size() == 0 ? std::nullopt : std::optional<EnrolledPhoto>(photoIn(rows, 0));
}

std::vector<std::string> PostgresHome::othersWith(const std::string& person, const std::string& digest) {
    const PostgresRows rows = ask("SELECT name FROM person JOIN photo ON photo.person = person.id "
                                  "WHERE digest = $1 AND name <> $2 ORDER BY name",
                                  PostgresParameters().text(digest).text(person));
    std::vector<std::string> names;
    names.reserve(static_cast<std::size_t>(rows.size()));
    for (int i = 0; i < rows.size(); ++i)
        names.push_back(rows.text(i, 0));
    return names;
}

bool PostgresHome::changed() {
    const Clock::time_point now = Clock::now();
    try {
        if (connection_ || now - told_ >= pollingPause) {
            if (!connection_)
                told_ = now;
            if (connected().notified())
                changed_ = true;
        }
        if (connection_ && !notifies_ && now - told_ >= pollingPause) {
            told_ = now;
            changed_ = true;
        }
    } catch (const LostConnection& lost) {
        if (connection_)
            tellUser(name_ + ": the connection was lost (" + lost.what() + "); changes show when it is back");
        connection_.reset();
    } catch (const ServerError& error) {
        fail(error);
    }
    return std::exchange(changed_, false);
}

std::vector<NearestPerson> PostgresHome::nearest(const Template& probe, Kind kind, std::size_t count) {
    constexpr const char* few = "SELECT name, source, digest, similarity "
                                "FROM veldan_identify($1::face_template, $2::integer, -1) AS n "
                                "LEFT JOIN photo ON photo.id = n.photo LEFT JOIN person ON person.id = photo.person "
                                "ORDER BY similarity DESC, n.person";
    // So many that the server may as well sort all of them.
    const char* many = kind == Kind::Bare
                           ? "SELECT name, source, digest, n.similarity FROM (SELECT DISTINCT ON (person) person, "
                             "photo, similarity(template, $1::face_template) FROM bare "
                             "ORDER BY person, similarity(template, $1::face_template) DESC, photo) AS n "
                             "JOIN photo ON photo.id = n.photo JOIN person ON person.id = n.person "
                             "ORDER BY n.similarity DESC, n.person LIMIT $2"
                           : "SELECT name, source, digest, n.similarity FROM (SELECT DISTINCT ON (person) person, "
                             "photo, similarity(template, $1::face_template) FROM masked "
                             "ORDER BY person, similarity(template, $1::face_template) DESC, photo) AS n "
                             "JOIN photo ON photo.id = n.photo JOIN person ON person.id = n.person "
                             "ORDER BY n.similarity DESC, n.person LIMIT $2";
    for (std::size_t asked = count;; asked *= 2) {
        const PostgresRows rows = ask(asked <= mostNearest ? few : many,
                                      PostgresParameters().bytes(probe).number(static_cast<std::int64_t>(asked)));
        std::vector<NearestPerson> found;
        for (int i = 0; i < rows.size() && found.size() < count; ++i)
            if (!rows.isNull(i, 0))
                found.push_back({rows.text(i, 0), {rows.text(i, 1), rows.text(i, 2)}, rows.real(i, 3)});
        // A template without a photo is what a change left on another server that broke off; it takes nobody's place.
        if (found.size() == count || asked > mostNearest || static_cast<std::size_t>(rows.size()) < asked)
            return found;
    }
}

/** Whether the server has made a change whose answer never came; nothing: it is still at it. */
std::optional<bool> PostgresHome::wasMade(const std::string& transaction) {
    const PostgresRows rows = connected().run("SELECT coalesce(pg_xact_status($1::xid8), 'forgotten')",
                                              PostgresParameters().text(transaction));
    const std::string status = rows.text(0, 0);
    if (status == "in progress")
        return std::nullopt;
    if (status == "committed" || status == "aborted")
        return status == "committed";
    throw FatalError(ExitCode::Gallery, name_ + ": the server has forgotten whether it made the last change");
}

/** @param doubtful  the transaction, as long as it may or may not have been made */
void PostgresHome::attempt(const std::function<void()>& steps, std::string& doubtful) {
    PostgresConnection& connection = connected();
    connection.runAll("BEGIN");
    const std::string transaction = connection.run(beginChange).text(0, 1);
    changing_ = true;
    steps();
    changing_ = false;
    doubtful = transaction;
    connection.runAll("COMMIT");
    doubtful.clear();
}

bool PostgresHome::change(const std::function<void()>& steps) {
    Patience left(name_);
    std::string doubtful;
    for (;;) {
        try {
            if (!doubtful.empty()) {
                const std::optional<bool> made = wasMade(doubtful);
                if (!made)
                    throw LostConnection("the server is not done with the last change");
                if (*made)
                    return true;
                doubtful.clear();
            }
            attempt(steps, doubtful);
            return true;
        } catch (const LostConnection& lost) {
            changing_ = false;
            connection_.reset();
            left.wait(lost, doubtful.empty() ? "" : "; whether the last change was made is not known");
        } catch (const ServerError& error) {
            changing_ = false;
            doubtful.clear();
            giveUpTransaction();
            if (!collided(error) || left.ended())
                fail(error);
        } catch (...) {
            changing_ = false;
            giveUpTransaction();
            throw;
        }
    }
}

std::vector<bool> PostgresHome::insert(const std::vector<PersonPhoto>& photos) {
    std::vector<std::string_view> persons;
    std::vector<std::string_view> sources;
    std::vector<std::string_view> digests;
    std::vector<std::string_view> dates;
    std::vector<std::int64_t> qualities;
    std::vector<std::string_view> bare;
    std::vector<std::string_view> masked;
    for (const auto& [person, photo] : photos) {
        persons.emplace_back(person);
        sources.emplace_back(photo.source);
        digests.emplace_back(photo.digest);
        dates.emplace_back(photo.date);
        qualities.push_back(photo.quality);
        bare.push_back(bytesOf(photo.bare));
        masked.push_back(bytesOf(photo.masked));
    }
    return repeated([&] {
        PostgresConnection& connection = connected();
        // In the order in which they come, which decides between equals.
        connection.run(
            "INSERT INTO person (name) SELECT name FROM unnest($1) WITH ORDINALITY AS given (name, position) "
            "GROUP BY name ORDER BY min(position) ON CONFLICT DO NOTHING",
            PostgresParameters().texts(persons));
        const PostgresRows rows = connection.run(
            "WITH given AS (SELECT person.id AS person, source, digest, date, quality, bare, masked, position "
            "        FROM unnest($1, $2, $3, $4, $5, $6, $7) WITH ORDINALITY "
            "            AS given (name, source, digest, date, quality, bare, masked, position) "
            "        JOIN person USING (name)), "
            "    fresh AS (INSERT INTO photo (person, source, digest, date, quality) "
            "        SELECT person, source, digest, date, quality FROM given ORDER BY position "
            "        ON CONFLICT DO NOTHING RETURNING id, person, digest), "
            "    first AS (SELECT DISTINCT ON (fresh.id) fresh.id, fresh.person, bare, masked, position "
            "        FROM fresh JOIN given USING (person, digest) ORDER BY fresh.id, position), "
            "    bare_ones AS (INSERT INTO bare (photo, person, template) "
            "        SELECT id, person, bare::face_template FROM first), "
            "    masked_ones AS (INSERT INTO masked (photo, person, template) "
            "        SELECT id, person, masked::face_template FROM first) "
            "SELECT position FROM first",
            PostgresParameters()
                .texts(persons)
                .manyBytes(sources)
                .texts(digests)
                .texts(dates)
                .numbers(qualities)
                .manyBytes(bare)
                .manyBytes(masked));
        std::vector<bool> added(photos.size());
        for (int i = 0; i < rows.size(); ++i)
            added[static_cast<std::size_t>(rows.number(i, 0) - 1)] = true;
        return added;
    });
}

void PostgresHome::replaceTemplates(const std::string& person, const EnrolledPhoto& photo) {
    const auto named = [&] { return PostgresParameters().text(person).text(photo.digest); };
    ask("UPDATE photo SET quality = $3 FROM person WHERE person.id = photo.person AND name = $1 AND digest = $2",
        named().number(photo.quality));
    ask("UPDATE bare SET template = $3::face_template FROM photo, person WHERE bare.photo = photo.id "
        "AND person.id = photo.person AND name = $1 AND digest = $2",
        named().bytes(photo.bare));
    ask("UPDATE masked SET template = $3::face_template FROM photo, person WHERE masked.photo = photo.id "
        "AND person.id = photo.person AND name = $1 AND digest = $2",
        named().bytes(photo.masked));
}

void PostgresHome::rename(const std::string& person, const std::string& name) {
    ask("UPDATE person SET name = $2 WHERE name = $1", PostgresParameters().text(person).text(name));
}

std::size_t PostgresHome::removePerson(const std::string& person) {
    const PostgresParameters named = PostgresParameters().text(person);
    for (const char* statement : {"DELETE FROM bare WHERE photo IN (SELECT photo.id FROM photo JOIN person "
                                  "ON person.id = photo.person WHERE name = $1)",
                                  "DELETE FROM masked WHERE photo IN (SELECT photo.id FROM photo JOIN person "
                                  "ON person.id = photo.person WHERE name = $1)"})
        ask(statement, named);
    const std::size_t photos =
        ask("DELETE FROM photo USING person WHERE person.id = photo.person AND name = $1", named).changed();
    ask("DELETE FROM person WHERE name = $1", named);
    return photos;
}

bool PostgresHome::removePhoto(const std::string& person, const std::string& digest) {
    const PostgresParameters named = PostgresParameters().text(person).text(digest);
    for (const char* statement : {"DELETE FROM bare WHERE photo IN (SELECT photo.id FROM photo JOIN person "
                                  "ON person.id = photo.person WHERE name = $1 AND digest = $2)",
                                  "DELETE FROM masked WHERE photo IN (SELECT photo.id FROM photo JOIN person "
                                  "ON person.id = photo.person WHERE name = $1 AND digest = $2)"})
        ask(statement, named);
    return ask("DELETE FROM photo USING person WHERE person.id = photo.person AND name = $1 AND digest = $2", named)
               .changed() > 0;
}

void PostgresHome::removePersonsWithoutPhotos() {
    ask("DELETE FROM person WHERE NOT EXISTS (SELECT FROM photo WHERE photo.person = person.id)");
}

} // namespace veldan::kit
