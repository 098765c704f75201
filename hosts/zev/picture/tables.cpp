// The first of several records of one name counts.
#include "picture/tables.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace picture {

namespace {

constexpr size_t kMostDashes = 64;  // of a line type
constexpr size_t kMostOfFont = 256; // bytes of its name, which each text has

char upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; }

double sane(double number, double otherwise) { return std::isfinite(number) ? number : otherwise; }

// The family that a style has beside its file, and whether that is bold or slanted.
void take_family(const std::vector<Group> &extended, TextStyle &style) {
    constexpr int kName = 1000, kFlags = 1071, kItalic = 1 << 24, kBold = 1 << 25;
    for (const Group &group : extended) {
        if (group.code == kName && style.font.empty()) style.font = trimmed(group.value);
        if (group.code != kFlags) continue;
        style.is_bold = integer_of(group.value) & kBold;
        style.is_italic = integer_of(group.value) & kItalic;
    }
}

} // namespace

bool Names::Less::operator()(std::string_view a, std::string_view b) const {
    return std::ranges::lexicographical_compare(a, b, {}, upper, upper);
}

uint32_t Names::find(std::string_view name) const {
    const auto at = numbers_.find(name);
    return at == numbers_.end() ? kNone : at->second;
}

bool Names::add(std::string_view name, uint32_t number) {
    return numbers_.try_emplace(std::string(name), number).second;
}

bool is_name(std::string_view name, std::string_view upper_name) {
    return std::ranges::equal(name, upper_name, {}, upper);
}

Ink ink_of(const Groups &groups, Ink otherwise) {
    constexpr int kNumber = 62, kTrue = 420;
    if (groups.has(kTrue)) return {Ink::kTrue | (uint32_t(groups.integer(kTrue)) & 0xFFFFFF)};
    const int number = std::abs(std::clamp(groups.integer(kNumber, 256), -256, 257));
    return number > 0 && number < 256 ? Ink{uint32_t(number)} : otherwise;
}

Header read_header(std::string_view text) {
    // The variables are one record to those who take groups apart.
    Groups groups;
    groups.read(text);
    Header header;
    std::string_view variable;
    for (const auto &[code, value] : groups.all()) {
        if (code == 9)
            variable = trimmed(value);
        else if (variable == "$ACADVER")
            header.version = trimmed(value);
        else if (variable == "$DWGCODEPAGE")
            header.codepage = trimmed(value);
        else if (variable == "$LTSCALE")
            header.linetype_scale = sane(number_of(value), 1);
        else if (variable == "$PDSIZE")
            header.point_size = sane(number_of(value), 0);
        else if (variable == "$PDMODE")
            header.point_mode = integer_of(value);
        else if (variable == "$PSLTSCALE")
            header.scales_in_paper = integer_of(value, 1) != 0;
    }
    return header;
}

Encoding encoding_of(const Header &header) {
    constexpr std::string_view kUtf8From = "AC1021";
    return Encoding(header.version >= kUtf8From ? "utf-8" : header.codepage);
}

void DimStyle::set(int code, std::string_view value) {
    if (code == 40) scale = sane(number_of(value), scale);
    if (code == 41) arrow = sane(number_of(value), arrow);
    if (code == 147) gap = sane(number_of(value), gap);
    if (code == 77) is_text_above = integer_of(value) != 0;
    if (code == 341) leader_arrow = handle_of(value);
    if (code != 176) return;
    const int number = integer_of(value);
    ink.value = number > 0 && number < 256 ? static_cast<uint32_t>(number) : 0;
}

Tables::Tables(const Header &header)
    : layers(1), linetypes(1), styles(1), dimstyles(1), words_(encoding_of(header)),
      layer_linetypes_(1) {}

bool Tables::take(std::string_view kind, std::string_view record) {
    using Take = void (Tables::*)();
    const Take take = kind == "LAYER"      ? &Tables::take_layer
                      : kind == "LTYPE"    ? &Tables::take_linetype
                      : kind == "STYLE"    ? &Tables::take_style
                      : kind == "DIMSTYLE" ? &Tables::take_dimstyle
                                           : nullptr;
    if (!take && kind != "BLOCK_RECORD") return false;
    groups_.read(record);
    if (take) return (this->*take)(), true;
    block_records.try_emplace(handle_of(groups_.text(5)), groups_.name(2));
    return true;
}

void Tables::take_layer() {
    if (!layer_names_.add(groups_.name(2), static_cast<uint32_t>(layers.size()))) return;
    layer_handles.try_emplace(handle_of(groups_.text(5)), layers.size());
    Layer layer;
    layer.ink = ink_of(groups_, Ink{7});
    layer.is_off = groups_.integer(62, 7) < 0;
    layer.is_frozen = groups_.integer(70) & 1;
    const int weight = groups_.integer(370, -3);
    layer.weight = weight < 0 ? kUsualWeight : static_cast<float>(std::min(weight, 1000)) / 100;
    layers.push_back(layer);
    layer_linetypes_.push_back(groups_.name(6));
}

void Tables::take_linetype() {
    if (!linetype_names_.add(groups_.name(2), static_cast<uint32_t>(linetypes.size()))) return;
    std::vector<double> pattern;
    for (const Group &group : groups_.all())
        if (group.code == 49 && pattern.size() < kMostDashes)
            pattern.push_back(sane(number_of(group.value), 0));
    linetypes.push_back(std::move(pattern));
}

void Tables::take_style() {
    if (!style_names_.add(groups_.name(2), static_cast<uint32_t>(styles.size()))) return;
    style_handles.try_emplace(handle_of(groups_.text(5)), styles.size());
    TextStyle style;
    take_family(groups_.extended(), style);
    if (style.font.empty()) style.font = groups_.name(3);
    style.font = cleaned(words_.text(std::string_view(style.font).substr(0, kMostOfFont)));
    const double width = sane(groups_.number(41, 1), 1);
    style.width = width > 0 ? width : 1;
    style.oblique = sane(groups_.number(50), 0);
    styles.push_back(std::move(style));
}

void Tables::take_dimstyle() {
    if (!dimstyle_names_.add(groups_.name(2), static_cast<uint32_t>(dimstyles.size()))) return;
    DimStyle style;
    for (const auto &[code, value] : groups_.all()) style.set(code, value);
    dimstyles.push_back(style);
}

void Tables::join() {
    for (size_t i = 0; i < layers.size(); ++i) layers[i].linetype = linetype(layer_linetypes_[i]);
}

uint32_t Tables::layer_number(std::string_view name) const {
    const uint32_t number = layer_names_.find(name);
    return number == Names::kNone ? 0 : number;
}

uint32_t Tables::linetype(std::string_view name) const {
    const uint32_t number = name.empty() ? Names::kNone : linetype_names_.find(name);
    return number == Names::kNone ? 0 : number;
}

const TextStyle &Tables::style(std::string_view name) const {
    const uint32_t number = style_names_.find(name.empty() ? "STANDARD" : name);
    return styles[number == Names::kNone ? 0 : number];
}

const TextStyle &Tables::style_of(uint64_t handle) const {
    const auto found = style_handles.find(handle);
    return styles[found == style_handles.end() ? 0 : found->second];
}

const DimStyle &Tables::dimstyle(std::string_view name) const {
    const uint32_t number = dimstyle_names_.find(name.empty() ? "STANDARD" : name);
    return dimstyles[number == Names::kNone ? 0 : number];
}

std::string_view Tables::block_of(uint64_t handle) const {
    const auto at = block_records.find(handle);
    return at == block_records.end() ? std::string_view() : at->second;
}

} // namespace picture
