// Records are copied with what belongs to them; a copy has handles of its own, from the one on that
// is free in this sheet, as two editors would give them that know nothing of each other.
#include "merge_edits.hpp"

#include <algorithm>

namespace merge_test {

using dxf::take_group;
using dxf::trim_blanks;
using dxf::with_value;
using dxf::merging::Group;

namespace {

bool is_member(const std::string &type) {
    return type == "VERTEX" || type == "ATTRIB" || type == "SEQEND";
}
bool is_mark(const std::string &type) {
    return type == "BLOCK" || type == "ENDBLK" || type == "TABLE" || type == "ENDTAB";
}

} // namespace

Sheet::Sheet(const std::string &text) {
    std::string section;
    for (const dxf::Part &part : dxf::split(text, "sheet").parts) {
        Group group;
        if (part.kind == dxf::Kind::literal)
            for (std::string_view left = part.bytes; take_group(left, group);)
                if (group.code == 2 || group.code == 0) section = trim_blanks(group.value);
        const bool is_entity =
            part.kind == dxf::Kind::object && (section == "ENTITIES" || section == "BLOCKS");
        records_.push_back(
            {part.kind, std::string(part.bytes), std::string(part.type), part.handle, is_entity});
        next_ = std::max(next_, part.handle + 1);
        if (part.kind == dxf::Kind::header)
            for (std::string_view left = part.bytes; take_group(left, group);)
                if (group.code == 5)
                    next_ = std::max(next_, dxf::merging::parse_handle(group.value).value_or(0));
    }
}

std::string Sheet::text() const {
    std::string out;
    for (const Record &record : records_) {
        if (record.kind != dxf::Kind::header) {
            out += record.bytes;
            continue;
        }
        Record header = record;
        set_value(header, 5, dxf::handle_text(next_)); // $HANDSEED is its only handle
        out += header.bytes;
    }
    return out;
}

void Sheet::edit(Random &random) {
    switch (random.below(15)) {
    case 0:
    case 1:
        return remove(random);
    case 2:
    case 3:
    case 4:
        return copy(random);
    case 5:
        return add_layer(random);
    case 6:
        return rename_layer(random);
    case 7:
        return set_variable(random);
    case 8:
        return random.below(3) ? add_note(random) : remove_note(random);
    case 9:
        return add_reactor(random);
    default:
        return move(random);
    }
}

std::vector<size_t> Sheet::entities() const {
    std::vector<size_t> found;
    for (size_t i = 0; i < records_.size(); ++i)
        if (records_[i].is_entity && !is_mark(records_[i].type) && !is_member(records_[i].type))
            found.push_back(i);
    return found;
}

size_t Sheet::end_of(size_t at) const {
    size_t end = at + 1;
    while (end < records_.size() && is_member(records_[end].type)) ++end;
    return end;
}

void Sheet::set_value(Record &record, int code, const std::string &value) const {
    std::string out;
    bool is_done = false;
    std::string_view left = record.bytes;
    for (Group group; take_group(left, group);) {
        const bool is_meant =
            group.code == code && !std::exchange(is_done, is_done || group.code == code);
        out += is_meant ? with_value(group, value) : std::string(group.bytes);
    }
    record.bytes = out + std::string(left);
}

void Sheet::move(Random &random) {
    const std::vector<size_t> found = entities();
    if (found.empty()) return;
    set_value(records_[found[random.below(found.size())]], 10,
              std::to_string(random.below(100000)) + ".5");
}

void Sheet::remove(Random &random) {
    const std::vector<size_t> found = entities();
    if (found.size() < 2) return;
    const size_t at = found[random.below(found.size())];
    records_.erase(records_.begin() + static_cast<ptrdiff_t>(at),
                   records_.begin() + static_cast<ptrdiff_t>(end_of(at)));
}

// Of a whole entity, its parts naming the new one where they named the old one.
void Sheet::copy_record(size_t at, size_t behind) {
    const size_t end = end_of(at);
    std::vector<Record> copies(records_.begin() + static_cast<ptrdiff_t>(at),
                               records_.begin() + static_cast<ptrdiff_t>(end));
    dxf::merging::Handles handles;
    for (Record &copy : copies)
        if (copy.handle) handles[copy.handle] = next_++;
    for (Record &copy : copies) {
        if (!copy.handle) continue;
        copy.handle = handles[copy.handle];
        if (auto bytes = dxf::merging::with_handles(copy.bytes, handles, copy.handle))
            copy.bytes = *bytes;
    }
    records_.insert(records_.begin() + static_cast<ptrdiff_t>(behind), copies.begin(),
                    copies.end());
}

void Sheet::copy(Random &random) {
    const std::vector<size_t> found = entities();
    if (found.empty()) return;
    const size_t at = found[random.below(found.size())], behind = end_of(at);
    copy_record(at, behind);
    const bool has_vertices = records_[behind].type == "POLYLINE" && end_of(behind) > behind + 1;
    set_value(records_[behind + has_vertices], 10, std::to_string(random.below(100000)) + ".25");
}

void Sheet::add_layer(Random &random) {
    for (size_t i = 0; i < records_.size(); ++i) {
        if (records_[i].type != "LAYER" || records_[i].is_entity) continue;
        const std::string name = "NEW" + std::to_string(random.below(4));
        for (const Record &record : records_)
            if (record.type == "LAYER" && record.bytes.find(name) != record.bytes.npos) return;
        copy_record(i, i + 1);
        set_value(records_[i + 1], 2, name);
        set_value(records_[i + 1], 62, std::to_string(random.below(2) + 1));
        const std::vector<size_t> found = entities();
        if (!found.empty()) set_value(records_[found[random.below(found.size())]], 8, name);
        return;
    }
}

void Sheet::rename_layer(Random &random) {
    std::vector<size_t> layers;
    for (size_t i = 0; i < records_.size(); ++i)
        if (records_[i].type == "LAYER") layers.push_back(i);
    if (layers.size() < 2) return;
    Record &layer = records_[layers[1 + random.below(layers.size() - 1)]];
    Group group;
    std::string former;
    for (std::string_view left = layer.bytes; take_group(left, group);)
        if (group.code == 2) former = trim_blanks(group.value);
    const std::string name = former + "X";
    set_value(layer, 2, name);
    for (Record &record : records_) {
        if (!record.is_entity) continue;
        for (std::string_view left = record.bytes; take_group(left, group);)
            if (group.code == 8) {
                if (trim_blanks(group.value) == former) set_value(record, 8, name);
                break;
            }
    }
}

// The first dictionary is what all others are in.
void Sheet::add_note(Random &random) {
    const auto first = std::ranges::find(records_, "DICTIONARY", &Record::type);
    if (first == records_.end() || !first->handle) return;
    const std::string name = "NOTE" + std::to_string(random.below(6));
    if (first->bytes.find(name) != std::string::npos) return;
    const std::string handle = dxf::handle_text(next_), owner = dxf::handle_text(first->handle);
    first->bytes += "  3\n" + name + "\n" + (random.below(2) ? "350\n" : "360\n") + handle + "\n";
    const std::string note = "  0\nXRECORD\n  5\n" + handle + "\n330\n" + owner +
                             "\n100\nAcDbXrecord\n  1\nNOTE " + std::to_string(random.below(3)) +
                             "\n";
    records_.insert(first + 1, {dxf::Kind::object, note, "XRECORD", next_++, false});
}

// An entry with its object, if that isn't a dictionary with entries.
void Sheet::remove_note(Random &random) {
    const auto first = std::ranges::find(records_, "DICTIONARY", &Record::type);
    if (first == records_.end()) return;
    std::string_view left = first->bytes, name;
    std::vector<std::pair<std::string_view, uint64_t>> entries;
    for (Group group; take_group(left, group);) {
        if (group.code == 3) name = group.bytes;
        if (group.code == 350 || group.code == 360)
            entries.push_back({{name.data(), name.size() + group.bytes.size()},
                               dxf::merging::parse_handle(group.value).value_or(0)});
    }
    if (entries.empty()) return;
    const auto [bytes, handle] = entries[random.below(entries.size())];
    const auto object = std::ranges::find(records_, handle, &Record::handle);
    if (object == records_.end() || object == first) return;
    Group group;
    for (std::string_view in = object->bytes; take_group(in, group);)
        if (group.code == 3) return;
    first->bytes.erase(static_cast<size_t>(bytes.data() - first->bytes.data()), bytes.size());
    records_.erase(object);
}

void Sheet::add_reactor(Random &random) {
    std::vector<size_t> found = entities();
    std::erase_if(found, [this](size_t at) { return !records_[at].handle; });
    if (found.empty()) return;
    Record &record = records_[found[random.below(std::min<size_t>(found.size(), 4))]];
    const uint64_t other = records_[found[random.below(found.size())]].handle;
    const std::string name = "330\n" + dxf::handle_text(other) + "\n",
                      open = "102\n{ACAD_REACTORS\n";
    if (const size_t at = record.bytes.find(open); at != std::string::npos) {
        record.bytes.insert(at + open.size(), name);
        return;
    }
    std::string out;
    bool is_done = false;
    std::string_view left = record.bytes;
    for (Group group; take_group(left, group);) {
        out += group.bytes;
        if (group.code == 5 && !std::exchange(is_done, true)) out += open + name + "102\n}\n";
    }
    record.bytes = out;
}

void Sheet::set_variable(Random &random) {
    for (Record &record : records_) {
        if (record.kind != dxf::Kind::header) continue;
        std::string out;
        bool is_stamp = false;
        std::string_view left = record.bytes;
        for (Group group; take_group(left, group);) {
            const std::string_view name = trim_blanks(group.value);
            out += is_stamp ? with_value(group, "24595" + std::to_string(random.below(1000)) + ".5")
                            : std::string(group.bytes);
            is_stamp = group.code == 9 && (name == "$TDUPDATE" || name == "$TDINDWG");
        }
        record.bytes = out + std::string(left);
        if (random.below(3) == 0)
            record.bytes += "  9\n$USERR1\n 40\n" + std::to_string(random.below(9)) + ".5\n";
        return;
    }
}

} // namespace merge_test
