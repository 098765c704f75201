// Values are others' words: on one line, and never cut within a letter.
#include "field_changes.hpp"

#include "width.hpp"

#include <algorithm>

namespace host {

std::string shown_value(std::string_view value) {
    constexpr size_t kMost = 160; // bytes
    value.remove_prefix(std::min(value.find_first_not_of(' '), value.size()));
    if (value.size() <= kMost) return clean(std::string(value));
    size_t cut = kMost;
    while (cut && (static_cast<unsigned char>(value[cut]) & 0xC0) == 0x80) --cut;
    return clean(std::string(value.substr(0, cut))) + "...";
}

std::string field_line(const Output &out, std::string_view kind, const dxf::FieldChange &field,
                       bool had, bool has) {
    const std::string code = std::to_string(field.code);
    std::string line = std::string(code.size() < 8 ? 8 - code.size() : 1, ' ') + code + " " +
                       padded(said(std::string(dxf::field_name(kind, field.code))), 14);
    const auto side = [&](const std::optional<std::string_view> &value, Colour colour) {
        return value ? out.paint(colour, shown_value(*value)) : say("(none)");
    };
    if (had) line += side(field.from, Colour::red);
    if (had && has) line += " -> ";
    if (has) line += side(field.to, Colour::green);
    return line;
}

std::vector<Record> field_records(std::string_view kind,
                                  const std::vector<dxf::FieldChange> &fields) {
    std::vector<Record> out;
    for (const dxf::FieldChange &field : fields) {
        Record member;
        member.set(u"code", field.code);
        member.set(u"name", std::string(dxf::field_name(kind, field.code)));
        if (field.from) member.set(u"old", std::string(*field.from));
        if (field.to) member.set(u"new", std::string(*field.to));
        out.push_back(std::move(member));
    }
    return out;
}

} // namespace host
