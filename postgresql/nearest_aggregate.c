// The aggregate veldan_nearest(): the persons most similar to a probe. It needs no sort and no projection, and as parts
// of it can be joined, several processes scan a table together.

#include "nearest.h"
#include "server.h"

#include <access/htup_details.h>
#include <catalog/pg_type.h>
#include <funcapi.h>
#include <libpq/pqformat.h>
#include <math.h>
#include <utils/array.h>

PG_FUNCTION_INFO_V1(veldan_nearest_transition);
PG_FUNCTION_INFO_V1(veldan_nearest_combine);
PG_FUNCTION_INFO_V1(veldan_nearest_serial);
PG_FUNCTION_INFO_V1(veldan_nearest_deserial);
PG_FUNCTION_INFO_V1(veldan_nearest_final);

// The state of the aggregate; in the context of the aggregate, as what it points to.
typedef struct State {
    veldan_nearest* search;
    const unsigned char* last;
} State;

static MemoryContext aggregateContext(FunctionCallInfo fcinfo) {
    MemoryContext context;
    if (!AggCheckCallContext(fcinfo, &context))
        ereport(ERROR, errcode(ERRCODE_WRONG_OBJECT_TYPE),
                errmsg("this function is a part of the aggregate veldan_nearest"));
    return context;
}

static State* startedState(MemoryContext context, const unsigned char* probe, int count, float threshold) {
    State* state;
    if (count < 1 || count > VELDAN_MOST_MATCHES)
        ereport(ERROR, errcode(ERRCODE_INVALID_PARAMETER_VALUE),
                errmsg("the number of persons must lie between 1 and %d, not be %d", VELDAN_MOST_MATCHES, count));
    if (isnan(threshold))
        ereport(ERROR, errcode(ERRCODE_INVALID_PARAMETER_VALUE), errmsg("the threshold is not a number"));
    state = MemoryContextAllocZero(context, sizeof(State));
    state->search =
        veldan_nearest_start(MemoryContextAlloc(context, veldan_nearest_size(count)), probe, count, threshold);
    return state;
}

// (state, person, photo, template, probe, count, threshold); rows with a null are passed over.
Datum veldan_nearest_transition(PG_FUNCTION_ARGS) {
    MemoryContext context = aggregateContext(fcinfo);
    State* state = PG_ARGISNULL(0) ? NULL : (State*)PG_GETARG_POINTER(0);
    const unsigned char* enrolled;
    for (int i = 1; i < 7; ++i)
        if (PG_ARGISNULL(i)) {
            if (state == NULL)
                PG_RETURN_NULL();
            PG_RETURN_POINTER(state);
        }
    enrolled = TEMPLATE_ARGUMENT(3);
    if (state == NULL)
        state = startedState(context, TEMPLATE_ARGUMENT(4), PG_GETARG_INT32(5), PG_GETARG_FLOAT4(6));
    else if (!veldan_nearest_is(state->search, TEMPLATE_ARGUMENT(4), PG_GETARG_INT32(5), PG_GETARG_FLOAT4(6)))
        ereport(ERROR, errcode(ERRCODE_INVALID_PARAMETER_VALUE),
                errmsg("probe, number and threshold of a search must be the same for all rows"));
    prefetchAfter(&state->last, enrolled);
    veldan_nearest_add(state->search, PG_GETARG_INT64(1), PG_GETARG_INT64(2), enrolled);
    PG_RETURN_POINTER(state);
}

Datum veldan_nearest_combine(PG_FUNCTION_ARGS) {
    MemoryContext context = aggregateContext(fcinfo);
    State* state = PG_ARGISNULL(0) ? NULL : (State*)PG_GETARG_POINTER(0);
    State* other = PG_ARGISNULL(1) ? NULL : (State*)PG_GETARG_POINTER(1);
    const veldan_match* matches;
    int number;
    if (other == NULL) {
        if (state == NULL)
            PG_RETURN_NULL();
        PG_RETURN_POINTER(state);
    }
    if (state == NULL)
        state = startedState(context, veldan_nearest_probe(other->search), veldan_nearest_count(other->search),
                             veldan_nearest_threshold(other->search));
    matches = veldan_nearest_finish(other->search, &number);
    for (int i = 0; i < number; ++i)
        veldan_nearest_offer(state->search, &matches[i]);
    PG_RETURN_POINTER(state);
}

Datum veldan_nearest_serial(PG_FUNCTION_ARGS) {
    State* state;
    const veldan_match* matches;
    StringInfoData message;
    int number;
    aggregateContext(fcinfo);
    state = (State*)PG_GETARG_POINTER(0);
    matches = veldan_nearest_finish(state->search, &number);
    pq_begintypsend(&message);
    pq_sendbytes(&message, (const char*)veldan_nearest_probe(state->search), VELDAN_TEMPLATE_SIZE);
    pq_sendint32(&message, (uint32)veldan_nearest_count(state->search));
    pq_sendfloat4(&message, veldan_nearest_threshold(state->search));
    pq_sendint32(&message, (uint32)number);
    for (int i = 0; i < number; ++i) {
        pq_sendint64(&message, (uint64)matches[i].person);
        pq_sendint64(&message, (uint64)matches[i].photo);
        pq_sendfloat4(&message, matches[i].similarity);
    }
    PG_RETURN_BYTEA_P(pq_endtypsend(&message));
}

Datum veldan_nearest_deserial(PG_FUNCTION_ARGS) {
    MemoryContext context = aggregateContext(fcinfo);
    const bytea* bytes = PG_GETARG_BYTEA_PP(0);
    unsigned char probe[VELDAN_TEMPLATE_SIZE];
    StringInfoData message;
    State* state;
    int count;
    int number;
    float threshold;
    initStringInfo(&message);
    appendBinaryStringInfo(&message, VARDATA_ANY(bytes), (int)VARSIZE_ANY_EXHDR(bytes));
    memcpy(probe, pq_getmsgbytes(&message, VELDAN_TEMPLATE_SIZE), sizeof probe);
    count = (int)pq_getmsgint(&message, 4);
    threshold = pq_getmsgfloat4(&message);
    state = startedState(context, probe, count, threshold);
    number = (int)pq_getmsgint(&message, 4);
    for (int i = 0; i < number; ++i) {
        veldan_match match;
        match.person = pq_getmsgint64(&message);
        match.photo = pq_getmsgint64(&message);
        match.similarity = pq_getmsgfloat4(&message);
        veldan_nearest_offer(state->search, &match);
    }
    pq_getmsgend(&message);
    PG_RETURN_POINTER(state);
}

static Datum arrayOf(Datum* values, int number, Oid type, int size, char alignment) {
    return PointerGetDatum(construct_array(values, number, type, size, true, alignment));
}

// Arrays side by side and not an array of rows: another server is asked for no type but the extension's own, and that
// of an array belongs to no extension.
Datum veldan_nearest_final(PG_FUNCTION_ARGS) {
    const veldan_match* matches = NULL;
    TupleDesc row;
    Datum* persons;
    Datum* photos;
    Datum* similarities;
    int number = 0;
    aggregateContext(fcinfo);
    if (get_call_result_type(fcinfo, NULL, &row) != TYPEFUNC_COMPOSITE || row->natts != 3)
        ereport(ERROR, errcode(ERRCODE_WRONG_OBJECT_TYPE), errmsg("veldan_nearest returns veldan_matches"));
    if (!PG_ARGISNULL(0))
        matches = veldan_nearest_finish(((State*)PG_GETARG_POINTER(0))->search, &number);
    persons = palloc(sizeof(Datum) * 3 * (size_t)Max(number, 1));
    photos = persons + number;
    similarities = photos + number;
    for (int i = 0; i < number; ++i) {
        persons[i] = Int64GetDatum(matches[i].person);
        photos[i] = Int64GetDatum(matches[i].photo);
        similarities[i] = Float4GetDatum(matches[i].similarity);
    }
    {
        Datum values[3] = {arrayOf(persons, number, INT8OID, 8, TYPALIGN_DOUBLE),
                           arrayOf(photos, number, INT8OID, 8, TYPALIGN_DOUBLE),
                           arrayOf(similarities, number, FLOAT4OID, 4, TYPALIGN_INT)};
        bool nulls[3] = {false, false, false};
        PG_RETURN_DATUM(HeapTupleGetDatum(heap_form_tuple(BlessTupleDesc(row), values, nulls)));
    }
}
