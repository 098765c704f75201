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

// Names that differ only in bytes that are no text fall together.
Json *named(const Counts &counts) {
    std::map<std::u16string, uint64_t> sums;
    for (auto &[name, number] : counts) sums[text(name)] += number;
    host::OwnedJson object(host::check(zJsonNew(Z_JSON_OBJECT)));
    for (auto &[name, number] : sums)
        put(object.get(), name.c_str(), zJsonNewInt(static_cast<int64_t>(number)));
    return object.release();
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
    int64_t objects = 0;
    for (const Part &part : document.parts) {
        if (part.kind != Kind::object) continue;
        ++objects;
        count(kinds, part.type);
        count(layers, part.layer);
    }
    host::OwnedJson root(host::check(zJsonNew(Z_JSON_OBJECT)));
    put(root.get(), u"objects", zJsonNewInt(objects));
    put(root.get(), u"kinds", named(kinds));
    put(root.get(), u"layers", named(layers));
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
