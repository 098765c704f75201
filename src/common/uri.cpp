// The record of a URI: its fields, its query and its text.
#include "common/uri.hpp"

#include "common/failure.hpp"
#include "common/fold.hpp"
#include "zev/hashmap.h"
#include "zev/variant.h"

#include <cstdlib>
#include <memory>
#include <new>
#include <utility>
#include <vector>

namespace zev {
namespace {

constexpr struct {
    const zwchar *schema;
    uint32_t port;
} kPorts[] = {
    {u"http", 80}, {u"https", 443}, {u"zev", 3001}, {u"ftp", 21},
    {u"ssh", 22},  {u"telnet", 23}, {u"smtp", 25},
};

// Every change of a field ends here, after the copy: what was set may be a part of this text.
void drop_cached(Uri *uri) { Wide(std::exchange(uri->cached, nullptr)).reset(); }

// Calls visit(key, value) for each pair, in the order of keys.
template <class F> void each_query(const Uri *uri, F visit) {
    if (!uri->query) return;
    struct Release {
        void operator()(HashmapIter *iter) const { iter->free(iter); }
    };
    const std::unique_ptr<HashmapIter, Release> owner(zHashmapNewiter(uri->query));
    HashmapIter *iter = owner.get();
    if (!iter) throw std::bad_alloc();
    for (iter->first(iter); !iter->done(iter); iter->next(iter)) {
        const Variant *entry = iter->current(iter);
        visit(entry->value.wide, static_cast<zwchar *>(entry->next->value.pointer));
    }
}

void free_query(Uri *uri) noexcept try {
    const Owned<Hashmap, zHashmapFree> map(uri->query);
    each_query(uri, [](const zwchar *, zwchar *value) { free(value); });
    uri->query = nullptr;
} catch (...) {
    uri->query = nullptr; // no memory for a walk: the values are lost, the record is not
}

// ---- Fields, by what the getters and setters have in common

const zwchar *text_of(const Uri *uri, zwchar *const Uri::*field, Here at = {}) {
    if (!uri) return fail_args(at), u"";
    return zStrsafeW(uri->*field);
}

bool set_text(Uri *uri, zwchar *Uri::*field, const zwchar *text, Here at = {}) try {
    if (!uri) return fail_args(at);
    if (text) return uri_store(uri, uri->*field, text), true;
    Wide(std::exchange(uri->*field, nullptr)).reset();
    return drop_cached(uri), true;
} catch (...) {
    return fail_thrown(at);
}

// The cached text is not copied: few copies are written out before they change.
void copy_fields(Uri *target, const Uri *source) {
    constexpr zwchar *Uri::*kTexts[] = {&Uri::schema, &Uri::host, &Uri::path, &Uri::fragment,
                                        &Uri::userinfo};
    for (auto field : kTexts)
        if (source->*field) uri_store(target, target->*field, source->*field);
    target->port = source->port;
    each_query(source,
               [&](const zwchar *key, const zwchar *value) { uri_set_query(target, key, value); });
}

// ---- The text

std::u16string decimal(uint32_t number) {
    const std::string digits = std::to_string(number);
    return {digits.begin(), digits.end()};
}

// What only an IPv6 address can hold would be taken for the port.
void add_host(UrlText &text, const Uri *uri) {
    const UrlView host = zStrsafeW(uri->host);
    if (host.empty()) return;
    if (host.find(u':') != host.npos && host.front() != u'[')
        text.add({u"[", host, u"]"});
    else
        text.add({host});
    if (uri->port != zUriDefaultPort(uri->schema)) text.add({u":", decimal(uri->port)});
}

// Each addition is a piece that goes in whole or not at all, so that no name or pair is cut short.
// The values are not escaped: a reader of the text sees what was meant.
UrlText text_of_uri(const Uri *uri) {
    UrlText text;
    if (zStrvalidW(uri->schema)) text.add({uri->schema, u"://"});
    if (zStrvalidW(uri->userinfo)) text.add({uri->userinfo, u"@"});
    add_host(text, uri);
    text.add({zStrvalidW(uri->path) ? uri->path : u"/"});
    UrlView before = u"?";
    each_query(uri, [&](const zwchar *key, const zwchar *value) {
        if (text.add({before, key, u"=", value})) before = u"&";
    });
    if (zStrvalidW(uri->fragment)) text.add({u"#", uri->fragment});
    return text;
}

} // namespace

bool UrlText::add(std::initializer_list<UrlView> parts) {
    uint64_t length = text_.size();
    for (UrlView part : parts) length += part.size();
    if (length >= Z_URL_MAX) {
        raise_range();
        if (!std::exchange(logged_, true)) fail_raised();
        return false;
    }
    for (UrlView part : parts) text_ += part;
    return true;
}

UrlView take_token(UrlView &rest, zwchar separator) {
    while (!rest.empty() && rest.front() == separator) rest.remove_prefix(1);
    const UrlView token = rest.substr(0, rest.find(separator));
    rest.remove_prefix(token.size());
    return token;
}

void uri_store(Uri *uri, zwchar *&field, UrlView text) {
    Wide copy(zStrnewW(text.size()));
    if (!copy) throw std::bad_alloc();
    text.copy(copy.get(), text.size());
    copy.reset(std::exchange(field, copy.release())); // the old text may hold the new one
    drop_cached(uri);
}

// The map lends its values, so an old one is given back here, once nothing can fail any more: only
// a key that was not there needs memory.
void uri_set_query(Uri *uri, const zwchar *key, const zwchar *value) {
    if (!uri->query && !(uri->query = zHashmapNew())) throw std::bad_alloc();
    Wide copy(zStrvalidW(value) ? zStrdupW(value) : nullptr);
    if (zStrvalidW(value) && !copy) throw std::bad_alloc();
    const Wide old(static_cast<zwchar *>(zHashmapAt(uri->query, key)));
    if (!copy && !old) return; // nothing changes, and the text that was lent stays
    if (!copy)
        zHashmapRemove(uri->query, key);
    else if (!zHashmapInsert(uri->query, key, copy.get()))
        throw std::bad_alloc();
    static_cast<void>(copy.release());
    drop_cached(uri);
}

void uri_drop_queries(Uri *uri, zwchar first) {
    std::vector<std::u16string> keys;
    each_query(uri, [&](const zwchar *key, const zwchar *) {
        if (*key == first) keys.emplace_back(key);
    });
    for (const std::u16string &key : keys) uri_set_query(uri, key.c_str(), nullptr);
}

bool uri_fits(const Uri *uri) { return text_of_uri(uri).is_whole(); }

// As "(.+)=(.+)" catches them, where a dot is no line feed: of the first line that has a pair, the
// last "=" that has something on both of its sides divides.
void uri_parse_query(Uri *uri, UrlView text) {
    const std::u16string all(text); // may be a value of the map that goes
    free_query(uri);
    drop_cached(uri);
    UrlView rest = all;
    for (UrlView pair = take_token(rest, u'&'); !pair.empty(); pair = take_token(rest, u'&')) {
        UrlView key = pair, value, lines = pair;
        while (value.empty() && !lines.empty()) {
            const UrlView line = take_token(lines, u'\n');
            const size_t equals = line.size() < 3 ? line.npos : line.rfind(u'=', line.size() - 2);
            if (equals == 0 || equals == line.npos) continue;
            key = line.substr(0, equals), value = line.substr(equals + 1);
        }
        uri_set_query(uri, std::u16string(key).c_str(), std::u16string(value).c_str());
    }
}

} // namespace zev

using namespace zev;

Uri *zUriNew(const zwchar *text) {
    Malloced<Uri> uri(static_cast<Uri *>(malloc(sizeof(Uri))));
    if (!uri) return fail_memory();
    return zUriInit(uri.get(), text) ? uri.release() : nullptr;
}

bool zUriInit(Uri *uri, const zwchar *text) {
    if (!uri) return fail_args();
    *uri = {};
    return !text || zUriParse(uri, text);
}

void zUriCleanup(Uri *uri) {
    if (!uri) return;
    free_query(uri);
    for (zwchar *text :
         {uri->cached, uri->schema, uri->host, uri->path, uri->fragment, uri->userinfo})
        zStrfreeW(text);
    *uri = {};
}

void zUriFree(Uri *uri) {
    zUriCleanup(uri);
    free(uri);
}

Uri *zUriDup(const Uri *uri) {
    if (!uri) return fail_args();
    Owned<Uri, zUriFree> copy(zUriNew(nullptr));
    return copy && zUriCopy(copy.get(), uri) ? copy.release() : nullptr;
}

// The copy is whole before the target gives way to it, which may be the source.
bool zUriCopy(Uri *target, const Uri *source) try {
    if (!target || !source) return fail_args();
    ScopedUri copy;
    copy_fields(&copy, source);
    std::swap<Uri>(*target, copy);
    return true;
} catch (...) {
    return fail_thrown();
}

const zwchar *zUriSchema(const Uri *uri) { return text_of(uri, &Uri::schema); }
const zwchar *zUriHost(const Uri *uri) { return text_of(uri, &Uri::host); }
const zwchar *zUriFragment(const Uri *uri) { return text_of(uri, &Uri::fragment); }

const zwchar *zUriPath(const Uri *uri) {
    if (!uri) return fail_args(), u"";
    return uri->path ? uri->path : u"/";
}

uint32_t zUriPort(const Uri *uri) {
    if (!uri) return fail_args(), 0;
    return uri->port;
}

bool zUriSetSchema(Uri *uri, const zwchar *schema) { return set_text(uri, &Uri::schema, schema); }
bool zUriSetHost(Uri *uri, const zwchar *host) { return set_text(uri, &Uri::host, host); }
bool zUriSetFragment(Uri *uri, const zwchar *fragment) {
    return set_text(uri, &Uri::fragment, fragment);
}

bool zUriSetPath(Uri *uri, const zwchar *path) try {
    if (!uri || !path) return set_text(uri, &Uri::path, nullptr);
    return uri_set_path(uri, path), true;
} catch (...) {
    return fail_thrown();
}

bool zUriAppendPath(Uri *uri, const zwchar *path) try {
    if (!uri || !path) return fail_args();
    UrlText joined(zUriPath(uri));
    joined.add({u"/", path});
    return uri_set_path(uri, joined.text()), true;
} catch (...) {
    return fail_thrown();
}

bool zUriSetPort(Uri *uri, uint32_t port) {
    if (!uri) return fail_args();
    uri->port = port;
    return drop_cached(uri), true;
}

bool zUriParseQuery(Uri *uri, const zwchar *text) try {
    if (!uri) return fail_args();
    return uri_parse_query(uri, zStrsafeW(text)), true;
} catch (...) {
    return fail_thrown();
}

const zwchar *zUriQuery(const Uri *uri, const zwchar *key) {
    if (!uri || !key) return fail_args();
    return static_cast<const zwchar *>(zHashmapAt(uri->query, key));
}

bool zUriSetQuery(Uri *uri, const zwchar *key, const zwchar *value) try {
    if (!uri || !key) return fail_args();
    return uri_set_query(uri, key, value), true;
} catch (...) {
    return fail_thrown();
}

bool zUriRemoveQuery(Uri *uri, const zwchar *key) { return zUriSetQuery(uri, key, nullptr); }

bool zUriClearQuery(Uri *uri) {
    if (!uri) return fail_args();
    free_query(uri);
    return drop_cached(uri), true;
}

const zwchar *zUriStringfy(Uri *uri) try {
    if (!uri) return fail_args();
    if (!uri->cached) {
        const UrlText text = text_of_uri(uri);
        if (!(uri->cached = zStrdupW(text.text().c_str()))) return fail_memory();
    }
    return uri->cached;
} catch (...) {
    return fail_thrown();
}

uint32_t zUriDefaultPort(const zwchar *schema) {
    for (const auto &known : kPorts)
        if (schema && same_folded(schema, known.schema)) return known.port;
    return 0;
}
