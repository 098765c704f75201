// The digest stands in the summary as 32 hexadecimal digits, its high half first.
#include "dxf/summary.hpp"

#include <algorithm>
#include <cinttypes>
#include <map>
#include <unordered_map>

namespace dxf {

namespace {

// Names told apart; a drawing has hundreds, only a damaged or hostile file has more. What goes
// beyond is counted as "...".
constexpr size_t kMaxNames = 10000;

using Counts = std::unordered_map<std::string_view, uint64_t>;

void count(Counts &counts, std::string_view name) {
    if (name.empty()) return;
    auto at = counts.find(name);
    if (at != counts.end())
        ++at->second;
    else
        ++counts[counts.size() < kMaxNames ? name : "..."];
}

// A reader of JSON refuses control characters, a name in the file may hold them.
std::u16string text(std::string_view bytes) {
    std::string clean(bytes);
    auto control = [](char c) { return static_cast<unsigned char>(c) < 32; };
    std::replace_if(clean.begin(), clean.end(), control, ' ');
    return host::wide(clean);
}

void put(Json *object, const zwchar *name, Json *value) {
    if (zJsonObjectPut(object, name, host::check(value))) return;
    zJsonFree(value);
    host::fail_raised();
}

using Sums = std::map<std::u16string, int64_t>;

// Names that differ only in bytes that are no text fall together.
Sums sums_of(const Counts &counts) {
    Sums sums;
    for (auto &[name, number] : counts) sums[text(name)] += static_cast<int64_t>(number);
    return sums;
}

Json *named(const Sums &sums) {
    host::OwnedJson object(host::check(zJsonNew(Z_JSON_OBJECT)));
    for (auto &[name, number] : sums) put(object.get(), name.c_str(), zJsonNewInt(number));
    return object.release();
}

void add(Sums &sums, std::string_view name, int64_t count) {
    if (name.empty()) return;
    const auto at = sums.try_emplace(text(name)).first;
    if (!(at->second += count)) sums.erase(at);
}

// False for what is no object, or has members that are no numbers.
bool read_sums(const Json *object, Sums &sums) {
    if (!object || !zJsonIsObject(object)) return false;
    HashmapIter *iter = host::check(zJsonObjectNewiter(const_cast<Json *>(object))); // read only
    bool are_numbers = true;
    for (iter->first(iter); !iter->done(iter); iter->next(iter)) {
        const Variant *name = iter->current(iter);
        const auto *number = static_cast<const Json *>(name->next->value.pointer);
        are_numbers &= zJsonIsInt(number);
        if (are_numbers) sums[name->value.wide] = zJsonGetInt(number);
    }
    iter->free(iter);
    return are_numbers;
}

Json *point(const std::array<std::optional<double>, 3> &coordinates) {
    host::OwnedJson array(host::check(zJsonNew(Z_JSON_ARRAY)));
    for (auto &value : coordinates)
        if (value) host::check(zJsonArrayPush(array.get(), host::check(zJsonNewReal(*value))));
    return array.release();
}

bool has_extents(const Document &document) {
    for (auto *corner : {&document.minimum, &document.maximum})
        if (!(*corner)[0] || !(*corner)[1]) return false;
    return true;
}

} // namespace

host::OwnedJson summarize(const Document &document) {
    Counts kinds, layers;
    Tally tally;
    for (const Part &part : document.parts) {
        if (part.kind != Kind::object) continue;
        ++tally.objects;
        count(kinds, part.type);
        count(layers, part.layer);
    }
    tally.kinds = sums_of(kinds);
    tally.layers = sums_of(layers);
    return summarize(tally, document);
}

void Tally::add(std::string_view kind, std::string_view layer, int64_t count) {
    objects += count;
    dxf::add(kinds, kind, count);
    dxf::add(layers, layer, count);
}

std::optional<Tally> tally_in(std::string_view summary) {
    const std::string bytes(summary);
    const host::OwnedJson json(zJsonReadTextual(zStrfromutf8(bytes.c_str())));
    if (!json || !zJsonIsObject(json.get())) return {};
    const Json *objects = zJsonObjectAt(json.get(), u"objects");
    Tally tally;
    if (!objects || !zJsonIsInt(objects) ||
        !read_sums(zJsonObjectAt(json.get(), u"kinds"), tally.kinds) ||
        !read_sums(zJsonObjectAt(json.get(), u"layers"), tally.layers))
        return {};
    tally.objects = zJsonGetInt(objects);
    return tally;
}

host::OwnedJson summarize(const Tally &tally, const Document &document) {
    host::OwnedJson root(host::check(zJsonNew(Z_JSON_OBJECT)));
    put(root.get(), u"objects", zJsonNewInt(tally.objects));
    put(root.get(), u"kinds", named(tally.kinds));
    put(root.get(), u"layers", named(tally.layers));
    if (!document.title.empty())
        put(root.get(), u"title", zJsonNewString(text(document.title).c_str()));
    if (has_extents(document)) {
        host::OwnedJson extents(host::check(zJsonNew(Z_JSON_OBJECT)));
        put(extents.get(), u"min", point(document.minimum));
        put(extents.get(), u"max", point(document.maximum));
        put(root.get(), u"extents", extents.release());
    }
    return root;
}

std::string summary_text(const Json *summary) {
    host::Owned<zwchar, zStrfreeW> written(host::check(zJsonWriteTextual(summary)));
    return host::narrow(written.get());
}

void put_digest(Json *summary, const DrawingDigest &digest) {
    char digits[33];
    snprintf(digits, sizeof digits, "%016" PRIx64 "%016" PRIx64, digest.high, digest.low);
    put(summary, u"digest", zJsonNewString(host::wide(digits).c_str()));
}

std::optional<DrawingDigest> digest_in(std::string_view summary) {
    const std::string bytes(summary);
    const host::OwnedJson json(zJsonReadTextual(zStrfromutf8(bytes.c_str())));
    const std::string digits =
        host::narrow(json ? zJsonPathGetString(json.get(), u"digest") : nullptr);
    DrawingDigest digest{};
    if (digits.size() != 32 || digits.find_first_not_of("0123456789abcdef") != digits.npos)
        return {};
    sscanf(digits.c_str(), "%16" SCNx64 "%16" SCNx64, &digest.high, &digest.low);
    return digest;
}

} // namespace dxf
