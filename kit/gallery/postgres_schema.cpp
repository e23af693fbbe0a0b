#include "gallery/postgres_schema.hpp"

#include "gallery/location.hpp"
#include "gallery/postgres_connection.hpp"
#include "gallery/records.hpp"
#include "report/exit_codes.hpp"

namespace veldan::kit {

namespace {

// A file's name is bytes in any encoding. Templates have tables of their own, which veldan_identify() searches: so that
// a search reads nothing else, and may be spread over several servers.
constexpr const char* tableStatements = R"(
    CREATE SCHEMA veldan_gallery;
    SET LOCAL search_path = veldan_gallery, pg_catalog;
    CREATE TABLE version (number integer NOT NULL);
    CREATE TABLE recognizer (kind text PRIMARY KEY, digest text NOT NULL);
    CREATE TABLE person (
        id bigint GENERATED ALWAYS AS IDENTITY PRIMARY KEY,
        name text COLLATE "C" NOT NULL UNIQUE
    );
    CREATE TABLE photo (
        id bigint GENERATED ALWAYS AS IDENTITY PRIMARY KEY,
        person bigint NOT NULL REFERENCES person ON DELETE CASCADE,
        source bytea NOT NULL,
        digest text COLLATE "C" NOT NULL,
        date text COLLATE "C" NOT NULL,
        quality integer NOT NULL,
        UNIQUE (person, digest)
    );
    CREATE INDEX photo_by_digest ON photo (digest);
    CREATE FUNCTION tell() RETURNS trigger LANGUAGE plpgsql AS $$
        BEGIN PERFORM pg_catalog.pg_notify('veldan_gallery', ''); RETURN NULL; END $$;
)";

// With the extension in reach: its schema is chosen by whoever creates it.
constexpr const char* templateStatements = R"(
    CREATE TABLE bare (
        photo bigint PRIMARY KEY REFERENCES photo ON DELETE CASCADE,
        person bigint NOT NULL,
        template face_template NOT NULL
    );
    CREATE TABLE masked (
        photo bigint PRIMARY KEY REFERENCES photo ON DELETE CASCADE,
        person bigint NOT NULL,
        template face_template NOT NULL
    );
    CREATE TRIGGER tell AFTER INSERT OR UPDATE OR DELETE OR TRUNCATE ON person EXECUTE FUNCTION tell();
    CREATE TRIGGER tell AFTER INSERT OR UPDATE OR DELETE OR TRUNCATE ON photo EXECUTE FUNCTION tell();
    CREATE TRIGGER tell AFTER INSERT OR UPDATE OR DELETE OR TRUNCATE ON bare EXECUTE FUNCTION tell();
    CREATE TRIGGER tell AFTER INSERT OR UPDATE OR DELETE OR TRUNCATE ON masked EXECUTE FUNCTION tell();
    INSERT INTO version VALUES (1);
)";

constexpr const char* roleStatements = R"(
    DO $$ BEGIN
        IF NOT EXISTS (SELECT FROM pg_catalog.pg_roles WHERE rolname = 'veldan_reader') THEN
            CREATE ROLE veldan_reader NOLOGIN;
        END IF;
        IF NOT EXISTS (SELECT FROM pg_catalog.pg_roles WHERE rolname = 'veldan_writer') THEN
            CREATE ROLE veldan_writer NOLOGIN;
        END IF;
    END $$;
    GRANT USAGE ON SCHEMA veldan_gallery TO veldan_reader, veldan_writer;
    GRANT SELECT ON ALL TABLES IN SCHEMA veldan_gallery TO veldan_reader, veldan_writer;
    GRANT INSERT, UPDATE, DELETE ON veldan_gallery.person, veldan_gallery.photo, veldan_gallery.bare,
        veldan_gallery.masked TO veldan_writer;
)";

class Initialisation {
public:
    explicit Initialisation(const std::string& location) : name_(shownLocation(location)), connection_(location) {}

    InitialisedDatabase run() {
        connection_.runAll("SET lock_timeout = '30s'; BEGIN");
        connection_.run("SELECT pg_advisory_xact_lock(hashtextextended('veldan gallery init', 0))");
        if (connection_.run("SELECT current_setting('server_encoding')").text(0, 0) != "UTF8")
            throw CommandError(ExitCode::Gallery, name_ + ": the names of persons are UTF-8, and the database's "
                                                          "encoding is another one; create one with UTF8");
        InitialisedDatabase done;
        done.before = versionNow();
        if (done.before > postgresSchemaVersion)
            throw CommandError(ExitCode::Gallery, name_ + ": made by a newer version of veldan; use that one");
        createExtension();
        if (done.before == 0)
            createTables();
        done.now = postgresSchemaVersion;
        done.remark = grantRoles();
        connection_.runAll("COMMIT");
        return done;
    }

    const std::string& name() const { return name_; }

private:
    int versionNow() {
        if (connection_.run("SELECT to_regclass('veldan_gallery.version') IS NULL").number(0, 0) != 0)
            return 0;
        const PostgresRows rows = connection_.run("SELECT number FROM veldan_gallery.version");
        return rows.size() == 1 ? static_cast<int>(rows.number(0, 0)) : 0;
    }

    void createExtension() {
        if (connection_.run("SELECT FROM pg_available_extensions WHERE name = 'veldan'").size() == 0)
            throw CommandError(ExitCode::Gallery,
                               name_ + ": the server has no extension \"veldan\"; install it on the server's machine "
                                       "(docs/scale.md says how) and try again");
        connection_.runAll("CREATE EXTENSION IF NOT EXISTS veldan");
    }

    void createTables() {
        connection_.runAll(tableStatements);
        connection_.run(
            "SELECT set_config('search_path', 'veldan_gallery, pg_catalog, ' || extnamespace::regnamespace, "
            "true) FROM pg_extension WHERE extname = 'veldan'");
        connection_.runAll(templateStatements);
        const Recognizers& own = Recognizers::embedded();
        connection_.run("INSERT INTO recognizer VALUES ('bare', $1), ('masked', $2)",
                        PostgresParameters().text(own.bare).text(own.masked));
    }

    std::string grantRoles() {
        connection_.runAll("SAVEPOINT roles");
        try {
            connection_.runAll(roleStatements);
        } catch (const ServerError& error) {
            connection_.runAll("ROLLBACK TO SAVEPOINT roles");
            return std::string("the roles ") + readerRole + " and " + writerRole +
                   " have no rights in it: " + error.what() + "; a superuser may run this once more";
        }
        return {};
    }

    std::string name_;
    PostgresConnection connection_;
};

} // namespace

InitialisedDatabase initDatabase(const std::string& location) {
    try {
        return Initialisation(location).run();
    } catch (const LostConnection& lost) {
        throw CommandError(ExitCode::Gallery,
                           shownLocation(location) + ": the server cannot be reached: " + lost.what());
    } catch (const ServerError& error) {
        const bool forbidden = error.state() == "42501" || error.state() == "25006";
        throw CommandError(forbidden ? ExitCode::NotWritten : ExitCode::Gallery,
                           shownLocation(location) + ": could not be made a gallery: " + error.what());
    }
}

} // namespace veldan::kit
