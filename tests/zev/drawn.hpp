// A drawing from a few lines of text, and the scene that is made of it.
#pragma once

#include "picture/scene.hpp"
#include "support.hpp"

#include <string>

namespace drawn {

// Groups as text: codes and values by turns, with bars between them; two are one of a value.
inline std::string groups(std::string_view text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        const bool is_double = text.substr(i).starts_with("||");
        out += is_double || text[i] != '|' ? text[i] : '\n';
        i += is_double;
    }
    if (!out.ends_with('\n')) out += '\n';
    return out;
}

struct Sections {
    std::string entities, blocks, tables, header, objects;
};

inline std::string file(const Sections &parts) {
    std::string out;
    const auto section = [&](const char *name, const std::string &text) {
        if (text.empty()) return;
        out += std::string("0\nSECTION\n2\n") + name + "\n" + groups(text) + "0\nENDSEC\n";
    };
    section("HEADER", parts.header);
    section("TABLES", parts.tables);
    section("BLOCKS", parts.blocks);
    section("ENTITIES", parts.entities);
    section("OBJECTS", parts.objects);
    return out + "0\nEOF\n";
}

inline picture::Scene scene(const Sections &parts, const picture::SceneOptions &options = {}) {
    const std::string bytes = file(parts);
    const dxf::Document document = dxf::split(bytes, "drawn.dxf");
    return picture::draw(dxf::content_of(document), options);
}

inline picture::Scene scene(const std::string &entities) {
    return scene(Sections{entities, "", "", "", ""});
}

inline void expect_box(const picture::Box &box, double left, double low, double right,
                       double high) {
    EXPECT_NEAR(box.low.x, left, 1e-3);
    EXPECT_NEAR(box.low.y, low, 1e-3);
    EXPECT_NEAR(box.high.x, right, 1e-3);
    EXPECT_NEAR(box.high.y, high, 1e-3);
}

inline uint64_t left_out(const picture::Scene &scene, const std::string &why) {
    const auto at = scene.left_out.find(why);
    return at == scene.left_out.end() ? 0 : at->second;
}

} // namespace drawn
