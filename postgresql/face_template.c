// The type face_template and what can be done with one or two of its values.

#include "comparison.h"
#include "server.h"
#include "template_text.h"

#include <common/hashfn.h>
#include <libpq/pqformat.h>
#include <string.h>
#include <utils/builtins.h>

PG_MODULE_MAGIC;

PG_FUNCTION_INFO_V1(veldan_face_template_in);
PG_FUNCTION_INFO_V1(veldan_face_template_out);
PG_FUNCTION_INFO_V1(veldan_face_template_recv);
PG_FUNCTION_INFO_V1(veldan_face_template_send);
PG_FUNCTION_INFO_V1(veldan_face_template_from_bytea);
PG_FUNCTION_INFO_V1(veldan_face_template_to_bytea);
PG_FUNCTION_INFO_V1(veldan_face_template_base64);
PG_FUNCTION_INFO_V1(veldan_face_template_kind);
PG_FUNCTION_INFO_V1(veldan_face_template_eq);
PG_FUNCTION_INFO_V1(veldan_face_template_ne);
PG_FUNCTION_INFO_V1(veldan_face_template_hash);
PG_FUNCTION_INFO_V1(veldan_face_template_similarity);
PG_FUNCTION_INFO_V1(veldan_face_template_distance);

Datum veldan_face_template_in(PG_FUNCTION_ARGS) {
    const char* text = PG_GETARG_CSTRING(0);
    unsigned char* result = palloc(VELDAN_TEMPLATE_SIZE);
    const char* fault = veldan_template_from_text(text, strlen(text), result);
    if (fault != NULL)
        ereport(ERROR, errcode(ERRCODE_INVALID_TEXT_REPRESENTATION), errmsg("the template %s", fault));
    PG_RETURN_POINTER(result);
}

Datum veldan_face_template_out(PG_FUNCTION_ARGS) {
    char* text = palloc(VELDAN_HEX_LENGTH + 1);
    veldan_template_to_hex(TEMPLATE_ARGUMENT(0), text);
    text[VELDAN_HEX_LENGTH] = '\0';
    PG_RETURN_CSTRING(text);
}

static unsigned char* checkedCopy(const char* bytes, size_t size) {
    const char* fault = veldan_template_flaw((const unsigned char*)bytes, size);
    unsigned char* copy;
    if (fault != NULL)
        ereport(ERROR, errcode(ERRCODE_INVALID_BINARY_REPRESENTATION), errmsg("the template %s", fault));
    copy = palloc(VELDAN_TEMPLATE_SIZE);
    memcpy(copy, bytes, VELDAN_TEMPLATE_SIZE);
    return copy;
}

Datum veldan_face_template_recv(PG_FUNCTION_ARGS) {
    StringInfo message = (StringInfo)PG_GETARG_POINTER(0);
    const int size = message->len - message->cursor;
    PG_RETURN_POINTER(checkedCopy(pq_getmsgbytes(message, size), (size_t)size));
}

Datum veldan_face_template_send(PG_FUNCTION_ARGS) {
    StringInfoData message;
    pq_begintypsend(&message);
    pq_sendbytes(&message, (const char*)TEMPLATE_ARGUMENT(0), VELDAN_TEMPLATE_SIZE);
    PG_RETURN_BYTEA_P(pq_endtypsend(&message));
}

Datum veldan_face_template_from_bytea(PG_FUNCTION_ARGS) {
    const bytea* bytes = PG_GETARG_BYTEA_PP(0);
    PG_RETURN_POINTER(checkedCopy(VARDATA_ANY(bytes), VARSIZE_ANY_EXHDR(bytes)));
}

Datum veldan_face_template_to_bytea(PG_FUNCTION_ARGS) {
    bytea* bytes = palloc(VARHDRSZ + VELDAN_TEMPLATE_SIZE);
    SET_VARSIZE(bytes, VARHDRSZ + VELDAN_TEMPLATE_SIZE);
    memcpy(VARDATA(bytes), TEMPLATE_ARGUMENT(0), VELDAN_TEMPLATE_SIZE);
    PG_RETURN_BYTEA_P(bytes);
}

Datum veldan_face_template_base64(PG_FUNCTION_ARGS) {
    char text[VELDAN_BASE64_LENGTH];
    veldan_template_to_base64(TEMPLATE_ARGUMENT(0), text);
    PG_RETURN_TEXT_P(cstring_to_text_with_len(text, VELDAN_BASE64_LENGTH));
}

Datum veldan_face_template_kind(PG_FUNCTION_ARGS) {
    PG_RETURN_TEXT_P(cstring_to_text(veldan_template_kind(TEMPLATE_ARGUMENT(0)) == 1 ? "bare" : "masked"));
}

Datum veldan_face_template_eq(PG_FUNCTION_ARGS) {
    PG_RETURN_BOOL(memcmp(TEMPLATE_ARGUMENT(0), TEMPLATE_ARGUMENT(1), VELDAN_TEMPLATE_SIZE) == 0);
}

Datum veldan_face_template_ne(PG_FUNCTION_ARGS) {
    PG_RETURN_BOOL(memcmp(TEMPLATE_ARGUMENT(0), TEMPLATE_ARGUMENT(1), VELDAN_TEMPLATE_SIZE) != 0);
}

Datum veldan_face_template_hash(PG_FUNCTION_ARGS) {
    return hash_any(TEMPLATE_ARGUMENT(0), VELDAN_TEMPLATE_SIZE);
}

// What calls of a function for one row after the other have in common.
typedef struct Comparison {
    veldan_probe probe;
    const unsigned char* last;
} Comparison;

// Searches compare one probe with many templates; it is prepared once for all of them. Whether it is still the same is
// looked at each time: what calls a function may live longer than a statement.
static float similarityOf(FunctionCallInfo fcinfo) {
    const unsigned char* enrolled = TEMPLATE_ARGUMENT(0);
    const unsigned char* probe = TEMPLATE_ARGUMENT(1);
    Comparison* comparison = fcinfo->flinfo->fn_extra;
    if (comparison == NULL)
        comparison = fcinfo->flinfo->fn_extra = MemoryContextAllocZero(fcinfo->flinfo->fn_mcxt, sizeof(Comparison));
    prefetchAfter(&comparison->last, enrolled);
    if (memcmp(comparison->probe.bytes, probe, VELDAN_TEMPLATE_SIZE) != 0)
        veldan_prepare_probe(&comparison->probe, probe);
    return veldan_similarity(enrolled, &comparison->probe);
}

Datum veldan_face_template_similarity(PG_FUNCTION_ARGS) {
    PG_RETURN_FLOAT4(similarityOf(fcinfo));
}

// In double precision the distances of different similarities stay different ones.
Datum veldan_face_template_distance(PG_FUNCTION_ARGS) {
    PG_RETURN_FLOAT8(1.0 - (double)similarityOf(fcinfo));
}
