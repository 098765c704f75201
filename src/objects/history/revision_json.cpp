// The JSON form of revisions and of their change lists: text without blanks, members in the order
// of their names. All members are required on reading, but for the two sides of a change.
//
//   revision   oid       string   id of the commit, 40 hexadecimal digits
//              author    string
//              message   string
//              seconds   integer  time of the commit
//              nanosecs  integer  the rest of it
//              changes   array of
//   change     status      integer  kind, 0 to 10 (zev/status.h)
//              flags       integer  libgit2's, of the delta
//              similarity  integer  of a rename, 0 to 100
//              old_file, new_file   objects, each where the change has that side
//   file       id      string   40 hexadecimal digits
//              path    string
//              size    integer  bytes, 0 where a comparison had no need of it
//              flags   integer  libgit2's, of the file
//              mode    integer
//              idabbr  integer  digits of the id that count
//
// A number that its field can't hold makes the whole form invalid, as does a kind that isn't one.
#include "objects/history/revision.hpp"

#include "common/text.hpp"
#include "common/utf.hpp"
#include "zev/status.h"
#include "zev/stream.h"

#include <cctype>
#include <charconv>
#include <concepts>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <utility>

namespace zev {

namespace {

// ---- Writing

// Names from a foreign tree may hold control characters, which JSON text could not carry back.
Json *text_node(const zwchar *text) {
    Json *node = zJsonNewString(text);
    if (node) blank_controls(node->value.string);
    return node;
}

Json *int_node(uint64_t value) { return zJsonNewInt(static_cast<int64_t>(value)); }

JsonGuard checked(Json *node) {
    if (!node) throw std::bad_alloc();
    return JsonGuard(node);
}

void put(Json *object, const zwchar *name, JsonGuard node) {
    if (!zJsonObjectPut(object, name, node.get())) throw std::bad_alloc();
    node.release();
}

JsonGuard file_to_json(const DiffFile &file) {
    return checked(zJsonNewObject(u"id", zJsonNewId(&file.id), u"path", text_node(file.path.get()),
                                  u"size", int_node(file.size), u"flags", int_node(file.flags),
                                  u"mode", int_node(file.mode), u"idabbr", int_node(file.id_abbrev),
                                  nullptr));
}

JsonGuard entry_to_json(const DiffEntry &entry) {
    JsonGuard json = checked(zJsonNewObject(u"status", zJsonNewInt(entry.status), u"flags",
                                            int_node(entry.flags), u"similarity",
                                            int_node(entry.similarity), nullptr));
    if (entry.old_file) put(json.get(), u"old_file", file_to_json(*entry.old_file));
    if (entry.new_file) put(json.get(), u"new_file", file_to_json(*entry.new_file));
    return json;
}

// ---- Reading: each gives false for what isn't there, or isn't of its kind

// What the form doesn't hold, and whether the rest makes sense.
bool complete(DiffEntry &entry) {
    entry.files = static_cast<uint16_t>((entry.old_file != nullptr) + (entry.new_file != nullptr));
    return entry.similarity <= 100 && entry.status >= Z_KIND_UNCHANGED &&
           entry.status <= Z_KIND_CONFLICTED;
}

const Json *member(const Json *object, const zwchar *name, int32_t type) {
    const Json *node = zJsonIsObject(object) ? zJsonObjectAt(object, name) : nullptr;
    return node && zJsonIsA(node, type) ? node : nullptr;
}

template <class Number> bool get(const Json *object, const zwchar *name, Number &out) {
    const Json *node = member(object, name, Z_JSON_INT);
    if (!node || !std::in_range<Number>(zJsonGetInt(node))) return false;
    out = static_cast<Number>(zJsonGetInt(node));
    return true;
}

bool get(const Json *object, const zwchar *name, Wide &out) {
    const Json *node = member(object, name, Z_JSON_STRING);
    if (!node) return false;
    out.reset(zStrdupW(zJsonGetString(node)));
    if (!out) throw std::bad_alloc();
    return true;
}

bool get(const Json *object, const zwchar *name, Oid &out) {
    const Json *node = member(object, name, Z_JSON_STRING);
    return node && zJsonGetId(&out, node);
}

bool get(const Json *json, DiffFile &file) {
    return get(json, u"id", file.id) && get(json, u"path", file.path) &&
           get(json, u"size", file.size) && get(json, u"flags", file.flags) &&
           get(json, u"mode", file.mode) && get(json, u"idabbr", file.id_abbrev);
}

// A side may be missing.
bool get(const Json *object, const zwchar *name, std::unique_ptr<DiffFile> &out) {
    const Json *json = zJsonObjectAt(object, name);
    if (!json) return true;
    out = std::make_unique<DiffFile>();
    return get(json, *out);
}

bool get(const Json *json, DiffEntry &entry) {
    return get(json, u"status", entry.status) && get(json, u"flags", entry.flags) &&
           get(json, u"similarity", entry.similarity) && get(json, u"old_file", entry.old_file) &&
           get(json, u"new_file", entry.new_file) && complete(entry);
}

bool get(const Json *json, DiffListPtr &list) {
    const uint64_t count = zJsonArraySize(json);
    list = diff_list_new(count);
    for (uint64_t i = 0; i < count; ++i) {
        auto entry = std::make_unique<DiffEntry>();
        if (!get(zJsonArrayAt(json, i), *entry)) return false;
        diff_list_append(list.get(), std::move(entry));
    }
    return true;
}

bool get(const Json *json, Revision &revision) {
    const Json *changes = member(json, u"changes", Z_JSON_ARRAY);
    return changes && get(json, u"oid", revision.id) && get(json, u"author", revision.author) &&
           get(json, u"message", revision.message) &&
           get(json, u"seconds", revision.time.seconds) &&
           get(json, u"nanosecs", revision.time.nanoseconds) && get(changes, revision.changes);
}

// ---- Reading without a tree

// A record exactly as it is written here, in one pass: history reads thousands of them. For any
// other text, sound or not, every step gives false, and the long way decides.
class RecordText {
  public:
    explicit RecordText(std::string_view text) : at_(text.data()), end_(at_ + text.size()) {}

    bool read(Revision &revision) {
        return skip("{\"author\":") && read(revision.author) && skip(",\"changes\":[") &&
               read(revision.changes) && skip(",\"message\":") && read(revision.message) &&
               skip(",\"nanosecs\":") && read(revision.time.nanoseconds) && skip(",\"oid\":") &&
               read(revision.id) && skip(",\"seconds\":") && read(revision.time.seconds) &&
               skip("}") && at_ == end_;
    }

  private:
    bool read(DiffListPtr &list);
    bool read(DiffEntry &entry);
    bool read(std::unique_ptr<DiffFile> &file);
    bool read(Wide &text);
    bool read(Oid &id);
    template <std::integral Number> bool read(Number &number);

    bool skip(std::string_view text) {
        if (!std::string_view(at_, end_).starts_with(text)) return false;
        at_ += text.size();
        return true;
    }

    const char *at_, *end_;
};

bool RecordText::read(DiffListPtr &list) {
    list = diff_list_new(0);
    if (skip("]")) return true;
    do {
        auto entry = std::make_unique<DiffEntry>();
        if (!read(*entry)) return false;
        diff_list_append(list.get(), std::move(entry));
    } while (skip(","));
    return skip("]");
}

bool RecordText::read(DiffEntry &entry) {
    if (!skip("{\"flags\":") || !read(entry.flags)) return false;
    if (skip(",\"new_file\":") && !read(entry.new_file)) return false;
    if (skip(",\"old_file\":") && !read(entry.old_file)) return false;
    return skip(",\"similarity\":") && read(entry.similarity) && skip(",\"status\":") &&
           read(entry.status) && skip("}") && complete(entry);
}

bool RecordText::read(std::unique_ptr<DiffFile> &file) {
    file = std::make_unique<DiffFile>();
    return skip("{\"flags\":") && read(file->flags) && skip(",\"id\":") && read(file->id) &&
           skip(",\"idabbr\":") && read(file->id_abbrev) && skip(",\"mode\":") &&
           read(file->mode) && skip(",\"path\":") && read(file->path) && skip(",\"size\":") &&
           read(file->size) && skip("}");
}

bool RecordText::read(Wide &text) {
    if (!skip("\"")) return false;
    const char *begin = at_;
    bool escaped = false;
    for (; at_ != end_ && *at_ != '"'; ++at_) {
        if (static_cast<uint8_t>(*at_) < 32) return false;
        if (*at_ != '\\') continue;
        escaped = true;
        if (++at_ == end_ || !*at_ || !strchr("\"\\bfnrt", *at_)) return false;
    }
    text.reset(wide_dup(begin, static_cast<uint64_t>(at_ - begin)));
    if (!text) throw std::bad_alloc();
    if (escaped) text.get()[json_unescape(text.get(), zStrlenW(text.get()))] = 0;
    return skip("\"");
}

bool RecordText::read(Oid &id) {
    constexpr int kDigits = GIT_OID_HEXSZ;
    if (!skip("\"") || end_ - at_ < kDigits) return false;
    if (git_oid_fromstrn(git::oid(&id), at_, kDigits) != 0) return false;
    at_ += kDigits;
    return skip("\"");
}

template <std::integral Number> bool RecordText::read(Number &number) {
    const char *digits = at_ + (at_ != end_ && *at_ == '-');
    if (end_ - digits > 1 && digits[0] == '0' && isdigit(static_cast<uint8_t>(digits[1])))
        return false;
    const auto [stop, error] = std::from_chars(at_, end_, number);
    at_ = stop;
    return error == std::errc();
}

JsonGuard tree_of(std::string_view utf8) {
    const Owned<Stream, zStreamFree> stream(zMemStream(0, utf8.size()));
    if (!stream || zStreamWrite(stream.get(), utf8.data(), utf8.size()) != utf8.size() ||
        !zStreamRewind(stream.get()))
        throw std::bad_alloc();
    return JsonGuard(zJsonReadStream(stream.get()));
}

} // namespace

JsonGuard diff_list_to_json(const DiffList *list) {
    JsonGuard array = checked(zJsonNew(Z_JSON_ARRAY));
    for (uint64_t i = 0; i < zDiffListLength(list); ++i) {
        JsonGuard entry = entry_to_json(*zDiffListEntry(list, i));
        if (!zJsonArrayPush(array.get(), entry.get())) throw std::bad_alloc();
        entry.release();
    }
    return array;
}

DiffListPtr diff_list_from_json(const Json *array) {
    DiffListPtr list;
    if (!array || !zJsonIsArray(array) || !get(array, list)) fail_args(), list.reset();
    return list;
}

JsonGuard revision_to_json(Revision *revision) {
    const DiffList *changes = zRevisionChanges(revision);
    if (!changes) return nullptr;
    JsonGuard list = diff_list_to_json(changes);
    return checked(zJsonNewObject(
        u"oid", zJsonNewId(&revision->id), u"author", text_node(revision->author.get()), u"message",
        text_node(revision->message.get()), u"seconds", zJsonNewInt(revision->time.seconds),
        u"nanosecs", zJsonNewInt(revision->time.nanoseconds), u"changes", list.release(), nullptr));
}

RevisionPtr revision_from_json(Repository *owner, const Json *object) {
    RevisionPtr revision(new Revision{.owner = owner});
    if (!object || !get(object, *revision)) fail_args(), revision.reset();
    return revision;
}

RevisionPtr revision_from_text(Repository *owner, std::string_view utf8) {
    RevisionPtr revision(new Revision{.owner = owner});
    if (RecordText(utf8).read(*revision)) return revision;
    return revision_from_json(owner, tree_of(utf8).get());
}

} // namespace zev
