#include "gallery/shards.hpp"

#include "gallery/location.hpp"
#include "report/exit_codes.hpp"

#include <fmt/format.h>
#include <libpq-fe.h>
#include <memory>
#include <string_view>

namespace veldan::kit {

namespace {

// The templates of either kind, by table.
constexpr const char* kinds[] = {"bare", "masked"};

constexpr const char* shardHead =
    R"(-- A part of a gallery: shard {number}. Run once in an empty database of its server, by psql -f.
\set ON_ERROR_STOP on
BEGIN;
CREATE EXTENSION IF NOT EXISTS veldan;
CREATE SCHEMA veldan_gallery;
)";

// The gallery's database tells the kinds and shards apart; here they are held to it.
constexpr const char* shardTable = R"(CREATE TABLE veldan_gallery.{kind} (
    photo bigint PRIMARY KEY,
    person bigint NOT NULL,
    template face_template NOT NULL CHECK (veldan_kind(template) = '{kind}'),
    shard integer NOT NULL CHECK (shard = {number})
);
)";

// New templates go to one of the servers that are open for them, by chance.
constexpr const char* firstHead =
    R"(-- Hands the templates of a gallery to other servers. Run once in the gallery's database, after their own files, by
-- psql -f. Whoever changes the gallery waits until it is done.
\set ON_ERROR_STOP on
BEGIN;
CREATE EXTENSION IF NOT EXISTS postgres_fdw;
SELECT set_config('search_path', 'veldan_gallery, pg_catalog, ' || extnamespace::regnamespace, true)
    AS path FROM pg_extension WHERE extname = 'veldan' \gset
LOCK TABLE person, photo, bare, masked IN EXCLUSIVE MODE;
CREATE TABLE shard (number integer PRIMARY KEY, takes_new boolean NOT NULL DEFAULT true);
CREATE FUNCTION shard_for_new() RETURNS integer LANGUAGE sql VOLATILE
    BEGIN ATOMIC SELECT number FROM shard WHERE takes_new ORDER BY random() LIMIT 1; END;
)";

constexpr const char* partitionedTable = R"(ALTER TABLE {kind} RENAME TO {kind}_before;
CREATE TABLE {kind} (
    photo bigint NOT NULL,
    person bigint NOT NULL,
    template face_template NOT NULL,
    shard integer NOT NULL DEFAULT shard_for_new()
) PARTITION BY LIST (shard);
)";

constexpr const char* addHead =
    R"(-- Adds servers to a gallery whose templates lie on several. Run once in the gallery's database, after their own files, by
-- psql -f. Searches go on meanwhile.
\set ON_ERROR_STOP on
BEGIN;
SELECT set_config('search_path', 'veldan_gallery, pg_catalog, ' || extnamespace::regnamespace, true)
    AS path FROM pg_extension WHERE extname = 'veldan' \gset
)";

// Estimates come from the server itself: without them the planner may find it cheaper to fetch all templates.
constexpr const char* server = R"(CREATE SERVER veldan_shard_{number} FOREIGN DATA WRAPPER postgres_fdw
    OPTIONS ({options}extensions 'veldan', async_capable 'true', use_remote_estimate 'true', batch_size '100');
CREATE USER MAPPING FOR PUBLIC SERVER veldan_shard_{number} OPTIONS ({mapping});
)";

// Attaching lets searches go on, where creating a table as a partition would make them wait.
constexpr const char* foreignTable = R"(CREATE FOREIGN TABLE {kind}_{number} (
    photo bigint NOT NULL,
    person bigint NOT NULL,
    template face_template NOT NULL,
    shard integer NOT NULL
) SERVER veldan_shard_{number} OPTIONS (schema_name 'veldan_gallery', table_name '{kind}');
ALTER TABLE {kind} ATTACH PARTITION {kind}_{number} FOR VALUES IN ({number});
)";

constexpr const char* firstEnd = R"(CREATE OR REPLACE FUNCTION nearest_{kind}(probe face_template, number integer)
    RETURNS TABLE (person bigint, photo bigint, similarity real) LANGUAGE sql STABLE PARALLEL SAFE
    BEGIN ATOMIC
        SELECT one.person, one.photo, one.similarity
        FROM veldan_identify(probe, number, -1, 'veldan_gallery.{kind}') AS one;
    END;
INSERT INTO {kind} (photo, person, template) SELECT photo, person, template FROM {kind}_before;
DROP TABLE {kind}_before;
CREATE TRIGGER tell AFTER INSERT OR UPDATE OR DELETE OR TRUNCATE ON {kind} EXECUTE FUNCTION tell();
)";

// Searches go to each server's table by itself, so rights are needed there as well.
constexpr const char* grants = R"(DO $$
DECLARE
    part regclass;
BEGIN
    FOR part IN SELECT relid FROM pg_partition_tree('bare') UNION ALL SELECT relid FROM pg_partition_tree('masked')
                UNION ALL SELECT 'shard' LOOP
        IF EXISTS (SELECT FROM pg_catalog.pg_roles WHERE rolname = 'veldan_reader') THEN
            EXECUTE format('GRANT SELECT ON %s TO veldan_reader', part);
        END IF;
        IF EXISTS (SELECT FROM pg_catalog.pg_roles WHERE rolname = 'veldan_writer') THEN
            EXECUTE format('GRANT SELECT, INSERT, UPDATE, DELETE ON %s TO veldan_writer', part);
        END IF;
    END LOOP;
END $$;
)";

std::string quoted(std::string_view value) {
    std::string text = value.find('\\') == std::string_view::npos ? "'" : "E'";
    for (const char c : value) {
        if (c == '\'' || c == '\\')
            text += c;
        text += c;
    }
    return text + "'";
}

/** The server and its user mapping, from what libpq understands of the location. */
std::string serverSql(const ShardServer& shard) {
    char* message = nullptr;
    const std::unique_ptr<PQconninfoOption, void (*)(PQconninfoOption*)> parts(
        PQconninfoParse(shard.location.c_str(), &message), PQconninfoFree);
    const std::unique_ptr<char, void (*)(void*)> told(message, PQfreemem);
    if (!parts)
        throw CommandError(ExitCode::Usage, shownLocation(shard.location) + ": not the location of a database");
    std::string options;
    std::string mapping;
    bool password = false;
    for (const PQconninfoOption* part = parts.get(); part->keyword != nullptr; ++part) {
        if (part->val == nullptr)
            continue;
        const std::string_view keyword = part->keyword;
        password = password || keyword == "password";
        if (keyword == "user" || keyword == "password")
            mapping += fmt::format("{}{} {}", mapping.empty() ? "" : ", ", keyword, quoted(part->val));
        else
            options += fmt::format("{} {}, ", keyword, quoted(part->val));
    }
    // Without one the gallery's server proves itself otherwise, by a certificate or its address, on behalf of its
    // users.
    if (!password)
        mapping += std::string(mapping.empty() ? "" : ", ") + "password_required 'false'";
    return fmt::format(server, fmt::arg("number", shard.number), fmt::arg("options", options),
                       fmt::arg("mapping", mapping));
}

} // namespace

std::string shardSql(int number) {
    std::string sql = fmt::format(shardHead, fmt::arg("number", number));
    for (const char* kind : kinds)
        sql += fmt::format(shardTable, fmt::arg("kind", kind), fmt::arg("number", number));
    return sql + "COMMIT;\n";
}

std::string routerSql(const std::vector<ShardServer>& servers, bool more) {
    std::string sql = more ? addHead : firstHead;
    if (!more)
        for (const char* kind : kinds)
            sql += fmt::format(partitionedTable, fmt::arg("kind", kind));
    for (const ShardServer& shard : servers) {
        sql += serverSql(shard);
        for (const char* kind : kinds)
            sql += fmt::format(foreignTable, fmt::arg("kind", kind), fmt::arg("number", shard.number));
        sql += fmt::format("INSERT INTO shard VALUES ({});\n", shard.number);
    }
    if (!more)
        for (const char* kind : kinds)
            sql += fmt::format(firstEnd, fmt::arg("kind", kind));
    return sql + grants + "COMMIT;\n";
}

} // namespace veldan::kit
