// Fields and headers. The fields of a header stand in the order of their names at any time, so
// that each is found by halving, and written in that order.
#include "network/http/header.hpp"

#include "common/guard.hpp"
#include "common/utf.hpp"
#include "zev/str.h"

#include <algorithm>
#include <new>

using namespace zev;

namespace {

// What would end a field, and begin another one, is no part of one.
bool set(zwchar *&text, const zwchar *source, uint64_t length, Here at = {}) {
    Wide copy(length ? zStrndupW(source, length) : zStrdupW(u""));
    if (!copy) return fail_memory(at);
    if (std::u16string_view(copy.get()).find_first_of(u"\r\n") != std::u16string_view::npos)
        return fail_args(at);
    copy.reset(std::exchange(text, copy.release()));
    return true;
}

// The place of a name, or where it belongs.
uint64_t place_of(const HttpHeader *header, const zwchar *name, bool *found) {
    const auto *fields = static_cast<HttpField *const *>(header->fields.data);
    const auto *end = fields + header->fields.size;
    const auto *at = std::lower_bound(fields, end, name, [](const HttpField *field, auto *wanted) {
        return zStrcasecmpW(field->name, wanted) < 0;
    });
    *found = at != end && zStrcasesameW((*at)->name, name);
    return static_cast<uint64_t>(at - fields);
}

HttpField *find(const HttpHeader *header, const zwchar *name) {
    bool found = false;
    const uint64_t at = place_of(header, name, &found);
    return found ? static_cast<HttpField *const *>(header->fields.data)[at] : nullptr;
}

int32_t compare(const void *a, const void *b) {
    return zHttpFieldCompare(static_cast<const HttpField *>(a), static_cast<const HttpField *>(b));
}
void release(void *field) { zHttpFieldFree(static_cast<HttpField *>(field)); }

} // namespace

// ---- As text

namespace zev {

void append_field(std::string &head, std::string_view name, std::string_view value) {
    head.append(name).append(": ").append(value).append("\r\n");
}

void append_fields(std::string &head, const HttpHeader &header, bool (*skips)(const zwchar *name)) {
    const auto *fields = static_cast<HttpField *const *>(header.fields.data);
    for (uint64_t i = 0; i < header.fields.size; ++i) {
        const HttpField &field = *fields[i];
        if (skips(field.name)) continue;
        append_field(head, to_utf8(field.name), to_utf8(field.value));
    }
}

} // namespace zev

// ---- HttpField

HttpField *zHttpFieldNew(const zwchar *name, const zwchar *value) {
    Owned<HttpField, zHttpFieldFree> field(new (std::nothrow) HttpField{});
    if (!field) return fail_memory();
    return zHttpFieldInit(field.get(), name, value) ? field.release() : nullptr;
}

bool zHttpFieldInit(HttpField *field, const zwchar *name, const zwchar *value) {
    if (!field) return fail_args();
    *field = {};
    if ((!name || set(field->name, name, zStrlenW(name))) &&
        (!value || set(field->value, value, zStrlenW(value))))
        return true;
    zHttpFieldCleanup(field);
    return false;
}

void zHttpFieldCleanup(HttpField *field) {
    if (!field) return;
    free(field->name);
    free(field->value);
    *field = {};
}

void zHttpFieldFree(HttpField *field) {
    zHttpFieldCleanup(field);
    delete field;
}

const zwchar *zHttpFieldName(const HttpField *field) { return field ? field->name : fail_args(); }
const zwchar *zHttpFieldValue(const HttpField *field) { return field ? field->value : fail_args(); }

bool zHttpFieldSetName(HttpField *field, const zwchar *text, uint64_t length) {
    return field && text ? set(field->name, text, length) : fail_args();
}

bool zHttpFieldSetValue(HttpField *field, const zwchar *text, uint64_t length) {
    return field && text ? set(field->value, text, length) : fail_args();
}

int32_t zHttpFieldCompare(const HttpField *a, const HttpField *b) {
    return a && b ? zStrcasecmpW(zStrsafeW(a->name), zStrsafeW(b->name)) : 0;
}

// ---- HttpHeader

HttpHeader *zHttpHeaderNew() {
    Owned<HttpHeader, zHttpHeaderFree> header(new (std::nothrow) HttpHeader{});
    if (!header) return fail_memory();
    return zHttpHeaderInit(header.get()) ? header.release() : nullptr;
}

bool zHttpHeaderInit(HttpHeader *header) {
    if (!header) return fail_args();
    *header = {};
    header->alive = true;
    return zVectorInitPtr(&header->fields, 0, compare, release);
}

void zHttpHeaderCleanup(HttpHeader *header) {
    if (!header) return;
    zVectorCleanup(&header->fields);
    *header = {};
}

void zHttpHeaderFree(HttpHeader *header) {
    zHttpHeaderCleanup(header);
    delete header;
}

bool zHttpHeaderReset(HttpHeader *header) {
    if (!header) return fail_args();
    header->version = Z_HTTP_1_1;
    header->alive = false;
    return zVectorRemoveAll(&header->fields);
}

uint32_t zHttpHeaderVersion(const HttpHeader *header) {
    return header ? header->version : (fail_args(), 0);
}
bool zHttpHeaderSetVersion(HttpHeader *header, uint32_t version) {
    return header ? (header->version = version, true) : fail_args();
}
bool zHttpHeaderAlive(const HttpHeader *header) { return header ? header->alive : fail_args(); }
bool zHttpHeaderSetAlive(HttpHeader *header, bool alive) {
    return header ? (header->alive = alive, true) : fail_args();
}

HttpField *zHttpHeaderField(HttpHeader *header, const zwchar *name) {
    return header && name ? find(header, name) : fail_args();
}

const zwchar *zHttpHeaderAt(HttpHeader *header, const zwchar *name) {
    if (!header || !name) return fail_args();
    const HttpField *field = find(header, name);
    return field ? field->value : nullptr;
}

bool zHttpHeaderPut(HttpHeader *header, const zwchar *name, const zwchar *value) {
    if (!header || !name) return fail_args();
    if (!value) return zHttpHeaderRemove(header, name);
    bool found = false;
    const uint64_t at = place_of(header, name, &found);
    auto *fields = static_cast<HttpField **>(header->fields.data);
    if (found) return set(fields[at]->value, value, zStrlenW(value));
    Owned<HttpField, zHttpFieldFree> field(zHttpFieldNew(name, value));
    if (!field || !zVectorInsert(&header->fields, at, field.get())) return false;
    static_cast<void>(field.release());
    return true;
}

bool zHttpHeaderRemove(HttpHeader *header, const zwchar *name) {
    if (!header || !name) return fail_args();
    bool found = false;
    const uint64_t at = place_of(header, name, &found);
    return !found || zVectorRemove(&header->fields, at);
}

// ---- Fields by name

#define ZEV_FIELD(Noun, name)                                                                      \
    const zwchar *zHttpHeader##Noun(HttpHeader *header) { return zHttpHeaderAt(header, name); }    \
    bool zHttpHeaderSet##Noun(HttpHeader *header, const zwchar *value) {                           \
        return zHttpHeaderPut(header, name, value);                                                \
    }
ZEV_FIELD(AcceptType, u"Accept")
ZEV_FIELD(AcceptCharset, u"Accept-Charset")
ZEV_FIELD(AcceptLanguage, u"Accept-Language")
ZEV_FIELD(AcceptEncoding, u"Accept-Encoding")
ZEV_FIELD(ContentType, u"Content-Type")
ZEV_FIELD(ContentCharset, u"Content-Charset")
ZEV_FIELD(ContentLanguage, u"Content-Language")
ZEV_FIELD(ContentEncoding, u"Content-Encoding")
#undef ZEV_FIELD
