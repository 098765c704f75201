// Two records, and two files, cut from one input at its first NUL: what is read into normal form is
// equal to itself and hashed alike, equality has no direction, handles that are mapped come back,
// pairs take nothing twice, and differences give the bytes that they were made of. Differences that
// come from elsewhere end.
#include "dxf/as_imported.hpp"
#include "dxf/match.hpp"
#include "dxf/normal.hpp"
#include "dxf/reader.hpp"

#include <algorithm>
#include <cstdlib>
#include <set>

namespace {

void require(bool holds) {
    if (!holds) abort();
}

void compare(std::string_view a, std::string_view b) {
    const dxf::NormalRecord x(a), y(b);
    require(x == x && y == y);
    require((x == y) == (y == x));
    require(x.content_hash() == dxf::NormalRecord(a).content_hash());
    require(dxf::is_same_header(a, a, 0) && dxf::is_same_literal(a, a));
    dxf::is_drawn(a);
    x.shared_groups(y);
}

void translate(std::string_view a) {
    dxf::HandleMap there, back;
    for (uint64_t handle = 0; handle < 64; ++handle) {
        there.put(handle, handle + 0x10000);
        back.put(handle + 0x10000, handle);
    }
    dxf::NormalRecord mapped, read;
    mapped.read(a, &there);
    const std::string text = dxf::translated(a, there, true);
    read.read(text);
    require(read == mapped);
    require(read.content_hash() == dxf::NormalRecord(a).content_hash());
    dxf::translated(text, back, true);
}

std::string imported(const std::vector<std::string_view> &kept, std::string_view differences,
                     bool &is_good) {
    std::string out;
    dxf::ImportedParts parts(differences);
    is_good = true;
    for (std::string_view part : kept)
        is_good = is_good && parts.next(part, [&](std::string_view bytes) { out += bytes; });
    is_good = parts.finish() && is_good;
    return out;
}

void play(const std::vector<std::string_view> &a, const std::vector<std::string_view> &b) {
    const std::vector<std::string_view> kept(
        a.begin(), a.begin() + static_cast<std::ptrdiff_t>(std::min(a.size(), b.size())));
    const std::vector<std::string_view> theirs(
        b.begin(), b.begin() + static_cast<std::ptrdiff_t>(kept.size()));
    const std::string differences = dxf::write_differences(kept, theirs);
    if (differences.empty()) return require(kept == theirs);
    bool is_good = false;
    std::string wanted;
    for (std::string_view part : theirs) wanted += part;
    require(imported(kept, differences, is_good) == wanted && is_good);
}

void pair(const dxf::Document &a, const dxf::Document &b) {
    const auto list = [](const dxf::Document &document) {
        std::vector<dxf::Matchable> out;
        for (const dxf::Part &part : document.parts)
            if (part.kind == dxf::Kind::object) out.push_back({part.bytes, part.handle});
        return out;
    };
    std::vector<dxf::Matchable> olds = list(a), news = list(b);
    dxf::hash_records(olds, news);
    dxf::likeness_of(olds, news);
    std::set<size_t> taken;
    for (size_t partner : dxf::pair_by_content(olds, news))
        require(partner == dxf::kNoPartner ||
                (partner < olds.size() && taken.insert(partner).second));
}

std::vector<std::string_view> bytes_of(const dxf::Document &document) {
    std::vector<std::string_view> out;
    for (const dxf::Part &part : document.parts) out.push_back(part.bytes);
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const bool started = zGlobalInit(nullptr, nullptr);
    (void)started;
    const std::string_view bytes(reinterpret_cast<const char *>(data), size);
    const size_t middle = bytes.find('\0');
    const std::string_view a = bytes.substr(0, middle);
    const std::string_view b = middle == bytes.npos ? a : bytes.substr(middle + 1);
    compare(a, b);
    translate(a);
    play({a, a, b}, {b, a, a});
    bool is_good = false;
    imported({a, b}, bytes, is_good);
    try {
        const dxf::Document x = dxf::split(a, "a"), y = dxf::split(b, "b");
        pair(x, y);
        play(bytes_of(x), bytes_of(y));
    } catch (const host::Failed &) {
    }
    return 0;
}
