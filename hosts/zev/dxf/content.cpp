// Rows are read in table order, each once, and lent out in the order of each version's lists.
#include "dxf/content.hpp"

#include "dxf/as_imported.hpp"
#include "dxf/layout.hpp"
#include "dxf/rows.hpp"
#include "dxf/summary.hpp"

#include <algorithm>

namespace dxf {

Content content_of(const Document &document) {
    Content content;
    for (const Part &part : document.parts) {
        if (part.kind == Kind::header) content.header = part.bytes;
        if (part.kind == Kind::symbol) content.classes.push_back(part.bytes);
        if (part.kind == Kind::object) content.objects.push_back({{0, part.handle}, part.bytes});
    }
    return content;
}

Keys::Keys(const Manifest &manifest)
    : table(manifest.table), header(turned(manifest.header)), summary(turned(manifest.summary)),
      layout(turned(manifest.layout)) {
    const auto list = [](const KeyList &from, std::vector<DrawingKey> &to) {
        to.reserve(from.size());
        for (size_t i = 0; i < from.size(); ++i) to.push_back(turned(from[i]));
    };
    list(manifest.classes, classes);
    list(manifest.objects, objects);
}

Keys::Keys(Drawing *drawing)
    : table(*zDrawingTableId(drawing)), header(*zDrawingHeader(drawing)),
      summary(*zDrawingSummary(drawing)), layout(*zDrawingDS(drawing)) {
    const uint64_t symbols = zDrawingClassCount(drawing), count = zDrawingObjectCount(drawing);
    classes.reserve(symbols);
    objects.reserve(count);
    for (uint64_t i = 0; i < symbols; ++i) classes.push_back(*zDrawingClassGetAt(drawing, i));
    for (uint64_t i = 0; i < count; ++i) objects.push_back(*zDrawingObjectGetAt(drawing, i));
}

namespace {

// Every key of the versions once, in table order, and where its row came to lie.
class Reading {
  public:
    explicit Reading(const std::vector<Keys> &versions) {
        for (const Keys &version : versions) {
            keys_.insert(keys_.end(), {version.layout, version.header, version.summary});
            keys_.insert(keys_.end(), version.classes.begin(), version.classes.end());
            keys_.insert(keys_.end(), version.objects.begin(), version.objects.end());
        }
        std::sort(keys_.begin(), keys_.end(), before);
        const auto same = [](const DrawingKey &a, const DrawingKey &b) {
            return a.tag == b.tag && a.object == b.object;
        };
        keys_.erase(std::unique(keys_.begin(), keys_.end(), same), keys_.end());
        places_.resize(keys_.size());
    }

    void read(Table *table, const std::string &name, const Notify *notify, std::string &bytes) {
        const uint64_t found =
            read_rows(table, keys_, notify, [&](size_t at, std::string_view value) {
                places_[at] = {bytes.size(), value.size()};
                bytes += value;
            });
        if (found < keys_.size())
            throw host::Failed(host::kNotFound,
                               host::say("%s: %s of its rows are missing from the table", name,
                                         keys_.size() - found));
    }

    std::string_view row(const DrawingKey &key, std::string_view bytes) const {
        const auto at = std::lower_bound(keys_.begin(), keys_.end(), key, before);
        const Place &place = places_[static_cast<size_t>(at - keys_.begin())];
        return bytes.substr(place.offset, place.size);
    }

  private:
    struct Place {
        uint64_t offset, size;
    };
    std::vector<DrawingKey> keys_;
    std::vector<Place> places_;
};

class Filling {
  public:
    Filling(const Reading &reading, std::string_view bytes) : reading_(reading), bytes_(bytes) {}

    Content fill(const Keys &keys, const std::string &name) {
        Content content;
        content.header = counted(keys.header);
        content.layout = counted(keys.layout);
        content.summary = reading_.row(keys.summary, bytes_);
        content.classes.reserve(keys.classes.size());
        content.objects.reserve(keys.objects.size());
        for (const DrawingKey &key : keys.classes) content.classes.push_back(counted(key));
        for (const DrawingKey &key : keys.objects) content.objects.push_back({key, counted(key)});
        const auto imported = digest_in(content.summary);
        if (imported && !same(*imported, digest_)) fail_mixed(name);
        return content;
    }

  private:
    std::string_view counted(const DrawingKey &key) {
        const std::string_view row = reading_.row(key, bytes_);
        zDrawingDigestAddRow(&digest_, key.object, row.data(), row.size());
        return row;
    }

    const Reading &reading_;
    const std::string_view bytes_;
    DrawingDigest digest_{}; // of all but the summary
};

} // namespace

Contents::Contents(Repository *repository, const std::vector<Keys> &versions,
                   const std::string &name, const Notify *notify) {
    Reading reading(versions);
    const host::OwnedTable table = look_at_table(repository, &versions.front().table, name);
    reading.read(table.get(), name, notify, bytes_);
    for (const Keys &version : versions)
        contents_.push_back(Filling(reading, bytes_).fill(version, name));
}

namespace {

// Each part of the file in its order.
bool play_parts(const Content &content, const std::function<void(std::string_view)> &part) {
    auto symbol = content.classes.begin();
    auto object = content.objects.begin();
    LayoutVisitor visitor;
    visitor.literal = part;
    visitor.header = [&] { part(content.header); };
    visitor.symbols = [&](uint64_t count) {
        for (; count; --count) part(*symbol++);
    };
    visitor.objects = [&](uint64_t count) {
        for (; count; --count) part((object++)->record);
    };
    return read_layout(content.layout, content.classes.size(), content.objects.size(), visitor);
}

} // namespace

bool visit_imported(const Content &content, uint64_t most,
                    const std::function<void(std::string_view)> &visit) {
    const std::string_view differences = differences_in(content.layout);
    if (differences.empty()) return play_parts(content, visit);
    ImportedParts parts(differences);
    bool is_good = true;
    std::string whole;
    const auto add = [&](std::string_view bytes) {
        if (bytes.size() > most) is_good = false, bytes = {};
        most -= bytes.size();
        whole += bytes;
    };
    const bool is_whole = play_parts(content, [&](std::string_view part) {
        whole.clear();
        is_good = is_good && parts.next(part, add) && is_good;
        if (is_good) visit(whole);
    });
    return is_whole && is_good && parts.finish();
}

void write_file(const Content &content, const std::string &name,
                const std::function<void(std::string_view)> &write, Form form) {
    const std::string_view differences = differences_in(content.layout);
    bool is_whole = true;
    if (form == Form::version || differences.empty()) {
        is_whole = play_parts(content, write);
    } else {
        ImportedParts parts(differences);
        bool is_good = true;
        is_whole = play_parts(
            content, [&](std::string_view part) { is_good = is_good && parts.next(part, write); });
        if (is_whole && !(is_good && parts.finish()))
            throw host::Failed(
                host::kOther,
                host::say("%s: what it was imported from is not known any more, since the drawing "
                          "was changed after that; export it without --as-imported",
                          name));
    }
    if (!is_whole)
        throw host::Failed(host::kOther,
                           host::say("%s: the drawing doesn't come from a DXF file", name));
}

} // namespace dxf
