// Tables: what a drawing's header and tables say about layers, line types, text styles and
// dimension styles. Names disregard the case of ASCII letters.
#pragma once

#include "picture/encoding.hpp"
#include "picture/groups.hpp"

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace picture {

// Numbers by name. Names come from anywhere, so that they are sorted: no choice of them is slow.
class Names {
  public:
    static constexpr uint32_t kNone = UINT32_MAX;
    uint32_t find(std::string_view name) const;
    // False when there is one of that name, which stays.
    bool add(std::string_view name, uint32_t number);

  private:
    struct Less {
        using is_transparent = void;
        bool operator()(std::string_view a, std::string_view b) const;
    };
    std::map<std::string, uint32_t, Less> numbers_;
};

bool is_name(std::string_view name, std::string_view upper); // regardless of case

struct Layer {
    Ink ink;
    uint32_t linetype = 0; // in Tables::linetypes
    float weight = 0.25f;  // millimetres
    bool is_off = false, is_frozen = false;
};

struct TextStyle {
    std::string font; // a family or a file, empty for any
    bool is_bold = false, is_italic = false;
    double width = 1, oblique = 0; // degrees
};

struct DimStyle {
    double scale = 1, arrow = 0.18, gap = 0.09;
    bool is_text_above = false;
    Ink ink{0};                // of lines, 0 for the entity's
    uint64_t leader_arrow = 0; // handle of a block's record

    void set(int code, std::string_view value); // a group of the style
};

struct Header {
    std::string_view version, codepage;
    double linetype_scale = 1, point_size = 0;
    int point_mode = 0;
    bool scales_in_paper = true; // line types are as long in each viewport as on paper
};

Header read_header(std::string_view header);
Encoding encoding_of(const Header &header); // of the drawing's texts

struct Tables {
    std::vector<Layer> layers;                  // the first is for names that there are none of
    std::vector<std::vector<double>> linetypes; // patterns; the first is without gaps
    std::vector<TextStyle> styles;              // the first is for names that there are none of
    std::vector<DimStyle> dimstyles;            // so is this
    std::map<uint64_t, std::string_view> block_records; // names by handle
    std::map<uint64_t, uint32_t> layer_handles;         // numbers of layers
    std::map<uint64_t, uint32_t> style_handles;         // and of text styles

    explicit Tables(const Header &header);
    // A record of a table, by its kind; others are not taken.
    bool take(std::string_view kind, std::string_view record);
    // Line types may stand behind the layers that name them.
    void join();

    const Layer &layer(std::string_view name) const;
    uint32_t layer_number(std::string_view name) const;
    uint32_t linetype(std::string_view name) const;
    const TextStyle &style(std::string_view name) const;
    const TextStyle &style_of(uint64_t handle) const; // the first where there is none
    const DimStyle &dimstyle(std::string_view name) const;
    std::string_view block_of(uint64_t handle) const; // a block's name, empty for none

  private:
    void take_layer();
    void take_linetype();
    void take_style();
    void take_dimstyle();

    Groups groups_;
    Encoding words_;
    Names layer_names_, linetype_names_, style_names_, dimstyle_names_;
    std::vector<std::string_view> layer_linetypes_;
};

// A colour by groups 62 and 420, where they give one of their own; else `otherwise`.
Ink ink_of(const Groups &groups, Ink otherwise);

inline constexpr float kUsualWeight = 0.25f; // of lines that don't say, millimetres

} // namespace picture
