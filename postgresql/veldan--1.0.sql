\echo Use "CREATE EXTENSION veldan" to load this file. \quit

-- A template: 520 bytes, checked when they come in. As text \x and hexadecimal digits; base64 is read as well.
CREATE TYPE face_template;
CREATE FUNCTION face_template_in(cstring) RETURNS face_template
    AS 'MODULE_PATHNAME', 'veldan_face_template_in' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION face_template_out(face_template) RETURNS cstring
    AS 'MODULE_PATHNAME', 'veldan_face_template_out' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION face_template_recv(internal) RETURNS face_template
    AS 'MODULE_PATHNAME', 'veldan_face_template_recv' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION face_template_send(face_template) RETURNS bytea
    AS 'MODULE_PATHNAME', 'veldan_face_template_send' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE TYPE face_template (
    INPUT = face_template_in,
    OUTPUT = face_template_out,
    RECEIVE = face_template_recv,
    SEND = face_template_send,
    INTERNALLENGTH = 520,
    ALIGNMENT = double,
    STORAGE = plain
);
COMMENT ON TYPE face_template IS 'what a face recognizer of Veldan says of a face; 520 bytes';

CREATE FUNCTION face_template(bytea) RETURNS face_template
    AS 'MODULE_PATHNAME', 'veldan_face_template_from_bytea' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION bytea(face_template) RETURNS bytea
    AS 'MODULE_PATHNAME', 'veldan_face_template_to_bytea' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE CAST (bytea AS face_template) WITH FUNCTION face_template(bytea) AS ASSIGNMENT;
CREATE CAST (face_template AS bytea) WITH FUNCTION bytea(face_template) AS ASSIGNMENT;

CREATE FUNCTION veldan_base64(face_template) RETURNS text
    AS 'MODULE_PATHNAME', 'veldan_face_template_base64' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION veldan_base64(face_template) IS 'the template in base64';
CREATE FUNCTION veldan_kind(face_template) RETURNS text
    AS 'MODULE_PATHNAME', 'veldan_face_template_kind' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION veldan_kind(face_template) IS 'bare or masked: which recognizer made the template';

-- The same bytes.
CREATE FUNCTION face_template_eq(face_template, face_template) RETURNS boolean
    AS 'MODULE_PATHNAME', 'veldan_face_template_eq' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE LEAKPROOF;
CREATE FUNCTION face_template_ne(face_template, face_template) RETURNS boolean
    AS 'MODULE_PATHNAME', 'veldan_face_template_ne' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE LEAKPROOF;
CREATE FUNCTION face_template_hash(face_template) RETURNS integer
    AS 'MODULE_PATHNAME', 'veldan_face_template_hash' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE OPERATOR = (
    LEFTARG = face_template, RIGHTARG = face_template, FUNCTION = face_template_eq,
    COMMUTATOR = =, NEGATOR = <>, RESTRICT = eqsel, JOIN = eqjoinsel, HASHES
);
CREATE OPERATOR <> (
    LEFTARG = face_template, RIGHTARG = face_template, FUNCTION = face_template_ne,
    COMMUTATOR = <>, NEGATOR = =, RESTRICT = neqsel, JOIN = neqjoinsel
);
CREATE OPERATOR CLASS face_template_hash_ops DEFAULT FOR TYPE face_template USING hash AS
    OPERATOR 1 =,
    FUNCTION 1 face_template_hash(face_template);

CREATE FUNCTION similarity(enrolled face_template, probe face_template) RETURNS real
    AS 'MODULE_PATHNAME', 'veldan_face_template_similarity' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE COST 10;
COMMENT ON FUNCTION similarity(face_template, face_template)
    IS 'similarity of two templates, 0 to 1; 0 when they are of different kinds';

-- No commutator: the order of the two may show in the last bit.
CREATE FUNCTION face_template_distance(enrolled face_template, probe face_template) RETURNS double precision
    AS 'MODULE_PATHNAME', 'veldan_face_template_distance' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE COST 10;
CREATE OPERATOR <~> (LEFTARG = face_template, RIGHTARG = face_template, FUNCTION = face_template_distance);
COMMENT ON OPERATOR <~> (face_template, face_template) IS 'distance of a template from a probe: 1 - similarity';

-- What a search has found: persons, the photo that speaks most for each, its similarity; the most similar one first.
CREATE TYPE veldan_matches AS (persons bigint[], photos bigint[], similarities real[]);

CREATE FUNCTION veldan_nearest_transition(internal, bigint, bigint, face_template, face_template, integer, real)
    RETURNS internal
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE PARALLEL SAFE COST 6;
CREATE FUNCTION veldan_nearest_combine(internal, internal) RETURNS internal
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE PARALLEL SAFE;
CREATE FUNCTION veldan_nearest_serial(internal) RETURNS bytea
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION veldan_nearest_deserial(bytea, internal) RETURNS internal
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION veldan_nearest_final(internal) RETURNS veldan_matches
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE PARALLEL SAFE;
CREATE AGGREGATE veldan_nearest(
    person bigint, photo bigint, template face_template, probe face_template, "limit" integer, threshold real
) (
    SFUNC = veldan_nearest_transition,
    STYPE = internal,
    SSPACE = 40000,
    FINALFUNC = veldan_nearest_final,
    FINALFUNC_MODIFY = READ_WRITE,
    COMBINEFUNC = veldan_nearest_combine,
    SERIALFUNC = veldan_nearest_serial,
    DESERIALFUNC = veldan_nearest_deserial,
    PARALLEL = SAFE
);
COMMENT ON AGGREGATE veldan_nearest(bigint, bigint, face_template, face_template, integer, real)
    IS 'the persons most similar to a probe, each with its best photo, the most similar one first';

CREATE FUNCTION unnest(matches veldan_matches)
    RETURNS TABLE (person bigint, photo bigint, similarity real)
    LANGUAGE sql IMMUTABLE PARALLEL SAFE ROWS 10
    AS 'SELECT * FROM ROWS FROM (pg_catalog.unnest((matches).persons), pg_catalog.unnest((matches).photos),
        pg_catalog.unnest((matches).similarities))';
COMMENT ON FUNCTION unnest(veldan_matches) IS 'what a search has found, as rows';

-- Of a table with person, photo and template. Where it is partitioned over servers, every one of them is asked for its
-- best, at the same time: an aggregate of one foreign table is what the planner always leaves to its server, where it
-- takes no LIMIT to several.
CREATE FUNCTION veldan_identify(
    probe face_template, most integer, threshold real,
    gallery regclass DEFAULT NULL
)
    RETURNS TABLE (person bigint, photo bigint, similarity real)
    LANGUAGE plpgsql STABLE PARALLEL SAFE COST 100000 ROWS 10
AS $$
DECLARE
    searched regclass := coalesce(gallery, ('veldan_gallery.' || @extschema@.veldan_kind(probe))::regclass);
    search CONSTANT text := 'SELECT @extschema@.veldan_nearest(person, photo, template, $1, $2, $3) AS matches FROM %s';
    searches text;
BEGIN
    IF probe IS NULL OR most IS NULL OR threshold IS NULL THEN
        RETURN;
    END IF;
    IF most < 1 THEN
        RAISE invalid_parameter_value USING MESSAGE = 'the number of persons must be at least 1';
    END IF;
    SELECT string_agg(format(search, relid::regclass), ' UNION ALL ') INTO searches
        FROM pg_catalog.pg_partition_tree(searched) WHERE isleaf;
    RETURN QUERY EXECUTE format(
        'SELECT * FROM (
            SELECT DISTINCT ON (one.person) one.* FROM (%s) part, @extschema@.unnest(part.matches) one
            ORDER BY one.person, one.similarity DESC, one.photo
        ) best ORDER BY similarity DESC, person LIMIT $2', coalesce(searches, format(search, searched)))
        USING probe, most, threshold;
END
$$;
COMMENT ON FUNCTION veldan_identify(face_template, integer, real, regclass)
    IS 'the persons of a gallery most similar to a probe, of those that reach the threshold';
