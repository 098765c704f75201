// Values are the defaults of the DXF reference. Three things are no defaults and say nothing
// either: colour, linetype and weight of a block's bounds, which are not drawn; counts at the head
// of a table and in a class, which no reader relies on; previews and lists of references of a
// block, and the tolerances of a spline, which programs keep for themselves.
#include "dxf/defaults.hpp"

#include <algorithm>
#include <array>

namespace dxf {

namespace {

template <size_t N>
bool is_one_of(std::string_view kind, const std::array<std::string_view, N> &kinds) {
    return std::find(kinds.begin(), kinds.end(), kind) != kinds.end();
}

constexpr std::array<std::string_view, 10> kSymbols = {"VPORT",        "LTYPE", "LAYER", "STYLE",
                                                       "VIEW",         "UCS",   "APPID", "DIMSTYLE",
                                                       "BLOCK_RECORD", "ENDTAB"};

// Of OBJECTS, and without a subclass of the kind that tells it.
constexpr std::array<std::string_view, 3> kObjects = {"ACDBPLACEHOLDER", "CLASS", "THUMBNAILIMAGE"};

// Of the reference. In others, which applications define, codes mean what these like.
constexpr std::array<std::string_view, 32> kEntities = {
    "3DFACE",  "3DSOLID",   "ARC",   "ATTDEF",    "ATTRIB", "BODY",   "CIRCLE",     "DIMENSION",
    "ELLIPSE", "HATCH",     "IMAGE", "INSERT",    "LEADER", "LINE",   "LWPOLYLINE", "MLINE",
    "MTEXT",   "OLE2FRAME", "POINT", "POLYLINE",  "RAY",    "REGION", "SEQEND",     "SHAPE",
    "SOLID",   "SPLINE",    "TEXT",  "TOLERANCE", "TRACE",  "VERTEX", "VIEWPORT",   "XLINE"};

struct Default {
    std::string_view kind; // empty: of every entity
    int code;
    double number;
};

constexpr Default kDefaults[] = {
    {"", 39, 0},           {"", 48, 1},           {"", 60, 0},           {"", 62, 256},
    {"", 67, 0},           {"", 210, 0},          {"", 220, 0},          {"", 230, 1},
    {"", 370, -1},         {"", 30, 0},           {"", 31, 0},           {"", 32, 0},
    {"", 33, 0},           {"", 34, 0},           {"", 35, 0},           {"", 36, 0},
    {"", 37, 0},           {"", 38, 0},           {"LWPOLYLINE", 40, 0}, {"LWPOLYLINE", 41, 0},
    {"LWPOLYLINE", 42, 0}, {"LWPOLYLINE", 43, 0}, {"LWPOLYLINE", 70, 0}, {"POLYLINE", 10, 0},
    {"POLYLINE", 20, 0},   {"POLYLINE", 40, 0},   {"POLYLINE", 41, 0},   {"POLYLINE", 66, 1},
    {"POLYLINE", 70, 0},   {"POLYLINE", 71, 0},   {"POLYLINE", 72, 0},   {"POLYLINE", 73, 0},
    {"POLYLINE", 74, 0},   {"POLYLINE", 75, 0},   {"VERTEX", 40, 0},     {"VERTEX", 41, 0},
    {"VERTEX", 42, 0},     {"VERTEX", 50, 0},     {"VERTEX", 70, 0},     {"MTEXT", 44, 1},
    {"MTEXT", 50, 0},      {"MTEXT", 72, 1},      {"MTEXT", 73, 1},      {"TEXT", 41, 1},
    {"TEXT", 50, 0},       {"TEXT", 51, 0},       {"TEXT", 71, 0},       {"TEXT", 72, 0},
    {"TEXT", 73, 0},       {"ATTRIB", 41, 1},     {"ATTRIB", 50, 0},     {"ATTRIB", 51, 0},
    {"ATTRIB", 71, 0},     {"ATTRIB", 72, 0},     {"ATTRIB", 73, 0},     {"ATTRIB", 74, 0},
    {"ATTDEF", 41, 1},     {"ATTDEF", 50, 0},     {"ATTDEF", 51, 0},     {"ATTDEF", 71, 0},
    {"ATTDEF", 72, 0},     {"ATTDEF", 73, 0},     {"ATTDEF", 74, 0},     {"DIMENSION", 50, 0},
    {"DIMENSION", 51, 0},  {"DIMENSION", 52, 0},  {"DIMENSION", 53, 0},  {"DIMENSION", 54, 0},
    {"DIMENSION", 71, 5},  {"DIMENSION", 72, 1},  {"DIMENSION", 41, 1},  {"INSERT", 41, 1},
    {"INSERT", 42, 1},     {"INSERT", 43, 1},     {"INSERT", 44, 0},     {"INSERT", 45, 0},
    {"INSERT", 50, 0},     {"INSERT", 66, 0},     {"INSERT", 70, 1},     {"INSERT", 71, 1},
    {"LEADER", 71, 1},     {"LEADER", 72, 0},     {"LEADER", 73, 3},     {"LEADER", 75, 0},
    {"SHAPE", 41, 1},      {"SHAPE", 50, 0},      {"SHAPE", 51, 0},      {"POINT", 50, 0},
    {"VIEWPORT", 292, 1}};

bool is_default(std::string_view kind, int code, double number) {
    for (const Default &at : kDefaults)
        if (at.code == code && at.number == number && (at.kind.empty() || at.kind == kind))
            return true;
    return false;
}

bool is_by_layer(std::string_view value) {
    constexpr std::string_view name = "BYLAYER";
    return std::equal(value.begin(), value.end(), name.begin(), name.end(), [](char a, char b) {
        return (a >= 'a' && a <= 'z' ? a - 'a' + 'A' : a) == b;
    });
}

bool says_nothing_in_entity(std::string_view kind, int code, std::string_view value,
                            std::optional<double> number) {
    if (code == 6) return is_by_layer(value);
    if (code == 8) return value == "0";
    if (kind == "SPLINE" && code >= 42 && code <= 44) return true;
    return number && is_default(kind, code, *number);
}

} // namespace

Family family_of(std::string_view kind, bool has_subclasses, bool is_entity) {
    if (kind == "BLOCK" || kind == "ENDBLK") return Family::block;
    if (kind == "TABLE") return Family::table;
    if (is_one_of(kind, kObjects)) return Family::other;
    if (is_one_of(kind, kSymbols)) return Family::symbol;
    const bool may_be_one = is_entity || !has_subclasses;
    return may_be_one && is_one_of(kind, kEntities) ? Family::entity : Family::other;
}

bool says_nothing(Family family, std::string_view kind, int code, std::string_view value,
                  std::optional<double> number) {
    switch (family) {
    case Family::entity:
        return says_nothing_in_entity(kind, code, value, number);
    case Family::block:
        return code == 6 || code == 48 || code == 62 || code == 370 ||
               (code == 8 && value == "0") || (code >= 30 && code <= 39 && number == 0);
    case Family::table:
        return code == 70 || code == 71 || code == 340;
    case Family::symbol:
        return (kind == "BLOCK_RECORD" && code == 310) ||
               (kind == "LAYER" && code == 290 && number == 1);
    default:
        return (kind == "CLASS" && code == 91) ||
               (kind == "DICTIONARY" &&
                ((code == 280 && number == 0) || (code == 281 && number == 1)));
    }
}

} // namespace dxf
