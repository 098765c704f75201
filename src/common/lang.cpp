// conf/lang.conf               {"language": "<name>"}, the language of the product; an empty name
//                              is none
// conf/locales/<name>.lang     the catalogue of one language: objects within objects down to
//                              the texts, so that `action.sDone` is member sDone of action
//
// Both are JSON in UTF-8. A catalogue isn't changed once it was read, so that texts are read
// without the lock; they live until zI18nDeinit.
#include "zev/lang.h"

#include "common/catalogue.hpp"
#include "common/failure.hpp"
#include "common/format.hpp"
#include "common/guard.hpp"
#include "common/json.hpp"
#include "common/utf.hpp"
#include "system/os.hpp"
#include "system/path.hpp"
#include "zev/json.h"
#include "zev/path.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

using namespace zev;

namespace {

constexpr size_t kLanguageName = 85; // with its terminator
constexpr zwchar kGlobal[] = u"en-US";

struct Catalogues {
    Owned<Json, zJsonFree> languages; // each catalogue under the name that it was asked for
    Json *current;                    // lent from languages
    Json *fallback;                   // en-US for languages without a file, lent
    Owned<Json, zJsonFree> empty;     // current where there is no file: keys stand for themselves
};

Catalogues *catalogues;

// Re-entrant, since choosing a catalogue looks one up.
constinit std::recursive_mutex mutex;

using Lock = std::lock_guard<std::recursive_mutex>;

// A text is mostly looked up for a raise that is to report errno.
class KeepErrno {
  public:
    KeepErrno() = default;
    KeepErrno(const KeepErrno &) = delete;
    ~KeepErrno() { errno = kept_; }

  private:
    int kept_ = errno;
};

// Letters, digits and hyphens: the name becomes a file name.
bool is_language(std::u16string_view name) {
    auto allowed = [](zwchar unit) {
        zwchar small = unit | 0x20;
        return (small >= u'a' && small <= u'z') || (unit >= u'0' && unit <= u'9') || unit == u'-';
    };
    return !name.empty() && name.size() < kLanguageName && std::ranges::all_of(name, allowed);
}

Owned<Json, zJsonFree> read_catalogue(const zwchar *language) {
    zwchar path[Z_PATH_MAX];
    if (!is_language(language)) return raise_args(), nullptr;
    if (!zPathGetConf(path) || !path_join(path, path, u"locales") ||
        !path_join(path, path, language) || !zPathAppendExt(path, path, u".lang"))
        return nullptr;
    Owned<Json, zJsonFree> catalogue(zJsonReadFile(path));
    if (catalogue) catalogue_clean(catalogue.get());
    return catalogue;
}

std::u16string family_of(const std::u16string &name) { return name.substr(0, name.find(u'-')); }

bool is_same(const std::u16string &a, const std::u16string &b) {
    return zStrcasesameW(a.c_str(), b.c_str());
}

// Reads a file's catalogue and keeps it under the name that was asked for.
Json *load(const zwchar *file, const zwchar *asked) {
    Owned<Json, zJsonFree> catalogue = read_catalogue(file);
    if (!catalogue || !zJsonObjectPut(catalogues->languages.get(), asked, catalogue.get()))
        return nullptr;
    return catalogue.release();
}

Json *lookup(const zwchar *language) {
    if (Json *known = zJsonObjectAt(catalogues->languages.get(), language)) return known;
    if (Json *loaded = load(language, language)) return loaded;
    if (!catalogues->fallback && !zStrsameW(language, kGlobal))
        catalogues->fallback = load(kGlobal, language);
    return catalogues->fallback;
}

// False where the file names no language.
bool read_product(zwchar *name) {
    zwchar path[Z_PATH_MAX];
    if (!zPathGetConf(path) || !path_join(path, path, u"lang.conf")) return false;
    Owned<Json, zJsonFree> conf(zJsonReadFile(path));
    const zwchar *language = conf ? zJsonPathGetString(conf.get(), u"language") : nullptr;
    if (!language || !is_language(language)) return false;
    zStrcpyW(name, language);
    return true;
}

zwchar product[kLanguageName]; // empty until it was asked for

void choose_product(bool by_user) {
    zStrcpyW(product, kGlobal); // also what a failure to read may ask for meanwhile
    if (read_product(product) || !by_user || zStrsameW(zLangLocal(), kGlobal)) return;
    const std::vector<std::u16string> names = installed_languages();
    if (const std::u16string *found = find_language(names, zLangLocal()))
        zStrcpyW(product, found->c_str());
}

// "de_DE.UTF-8@euro" is "de-DE"; C, POSIX and what is no name at all stand for en-US.
std::u16string local_name() {
    std::u16string name = to_wide(os::locale_name("LC_MESSAGES"));
    name = name.substr(0, name.find_first_of(u".@"));
    std::ranges::replace(name, u'_', u'-');
    const bool plain = name == u"C" || name == u"POSIX";
    return plain || !is_language(name) ? kGlobal : name;
}

// The text of a key; null when the catalogue has none.
const zwchar *text_of(Json *catalogue, const zwchar *key) {
    Json *node = zI18nNodeLookup(catalogue, key);
    return node ? zJsonGetString(node) : nullptr;
}

Wide formatted(const zwchar *format, va_list arguments) {
    va_list measured;
    va_copy(measured, arguments);
    const int32_t length = format_wide(nullptr, 0, format, measured);
    va_end(measured);
    if (length < 0) return raise_args(), nullptr;
    Wide text(static_cast<zwchar *>(calloc(static_cast<size_t>(length) + 1, sizeof(zwchar))));
    if (!text) return fail_memory(), nullptr;
    format_wide(text.get(), static_cast<uint64_t>(length) + 1, format, arguments);
    return text;
}

} // namespace

namespace zev {

std::vector<std::u16string> installed_languages() {
    constexpr std::u16string_view kEnd = u".lang";
    zwchar path[Z_PATH_MAX];
    std::vector<os::Name> files;
    std::vector<std::u16string> names;
    if (!zPathGetConf(path) || !path_join(path, path, u"locales")) return names;
    os::read_dir(path, &files);
    for (const os::Name &file : files) {
        if (!file.text.ends_with(kEnd)) continue;
        std::u16string name = file.text.substr(0, file.text.size() - kEnd.size());
        if (is_language(name)) names.push_back(std::move(name));
    }
    std::ranges::sort(names);
    return names;
}

const std::u16string *find_language(const std::vector<std::u16string> &names,
                                    const std::u16string &wanted) {
    for (const std::u16string &name : names)
        if (is_same(name, wanted)) return &name;
    for (const std::u16string &name : names)
        if (is_same(family_of(name), family_of(wanted))) return &name;
    return nullptr;
}

void follow_user_language() {
    Lock lock(mutex);
    if (!product[0]) choose_product(true);
}

} // namespace zev

bool zI18nInit() {
    Lock lock(mutex);
    if (catalogues) return true;
    Owned<Json, zJsonFree> languages(zJsonNewObject(nullptr)), empty(zJsonNewObject(nullptr));
    if (!languages || !empty) return false;
    catalogues =
        new (std::nothrow) Catalogues{std::move(languages), nullptr, nullptr, std::move(empty)};
    return catalogues ? true : static_cast<bool>(fail_memory());
}

void zI18nDeinit() {
    Lock lock(mutex);
    delete std::exchange(catalogues, nullptr);
}

Json *zI18nLangLookup(const zwchar *language) try {
    KeepErrno keep;
    Lock lock(mutex);
    return catalogues ? lookup(language ? language : zLangProduct()) : nullptr;
} catch (...) {
    return fail_thrown();
}

Json *zI18nCurrentLang() {
    Lock lock(mutex);
    if (catalogues && !catalogues->current) zI18nSetCurrentLang(nullptr);
    return catalogues ? catalogues->current : nullptr;
}

bool zI18nSetCurrentLang(const zwchar *language) {
    Lock lock(mutex);
    if (!catalogues) return false;
    if (!catalogues->current) catalogues->current = zI18nLangLookup(language);
    if (!catalogues->current) catalogues->current = catalogues->empty.get();
    return true;
}

Json *zI18nNodeLookup(Json *catalogue, const zwchar *key) {
    if (!catalogue || !key) return fail_args();
    return json_find(catalogue, key);
}

bool zI18nNodeExists(Json *catalogue, const zwchar *key) { return zI18nNodeLookup(catalogue, key); }

const zwchar *zI18nTextLookup(Json *catalogue, const zwchar *key) {
    KeepErrno keep;
    const zwchar *text = text_of(catalogue, key);
    return text ? text : key;
}

const zwchar *zI18nTextFormat(Json *catalogue, const zwchar *key, ...) {
    va_list arguments;
    va_start(arguments, key);
    const zwchar *text = zI18nTextFormatV(catalogue, key, arguments);
    va_end(arguments);
    return text;
}

const zwchar *zI18nTextFormatV(Json *catalogue, const zwchar *key, va_list arguments) {
    const zwchar *format = zI18nTextLookup(catalogue, key);
    Wide text = format ? formatted(format, arguments) : nullptr;
    if (!text || !zGlobalRecyclePut(text.get(), nullptr)) return key;
    return text.release();
}

const zwchar *zLangGlobal() { return kGlobal; }

const zwchar *zLangLocal() try {
    static zwchar name[kLanguageName];
    Lock lock(mutex);
    if (!name[0]) zStrcpyW(name, local_name().c_str());
    return name;
} catch (...) {
    return fail_thrown(), kGlobal;
}

const zwchar *zLangProduct() {
    Lock lock(mutex);
    if (!product[0]) choose_product(false);
    return product;
}
