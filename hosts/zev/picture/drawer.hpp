// Drawer: goes through the records of a drawing and of the blocks that it inserts, and hands each
// entity to the function of its kind.
#pragma once

#include "picture/blocks.hpp"
#include "picture/encoding.hpp"
#include "picture/pen.hpp"

#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace picture {

inline constexpr size_t kBytesOfPoint = 16; // that are read, and cost as much as a point

// What an entity looks like; of an INSERT, what the entities of its block take from it.
struct Look {
    Ink ink;
    float weight = kUsualWeight;
    uint32_t linetype = 0, layer = 0; // in Tables
};

// Where the records at hand stand.
struct Stand {
    Space space; // theirs, in the drawing's
    Look look;   // of what they are a part of
    uint32_t object = 0;
    uint32_t depth = 0; // 0 for model and paper space
};

struct Entity {
    const Stand &stand;
    Look look;
    Marks marks;
    Range range; // the record, and those that belong to it

    Space space(const Groups &groups) const; // of one that is drawn in a plane of its own
};

// Points whose place is known when everything else is drawn.
struct Late {
    uint32_t shape; // in Scene::shapes
    enum Kind : uint8_t { symbol, ray, line } kind;
    Point place, direction;
};

class Drawer {
  public:
    Drawer(const dxf::Content &content, const SceneOptions &options, Scene &scene);
    void run();

    // The records of a range, one after the other.
    void draw_range(Range range, const Stand &stand);
    // A block as a part of `entity`, by its system in the entity's stand. The groups at hand are
    // others afterwards.
    void draw_block(std::string_view name, const Entity &entity, const Space &space);

    // A part of paper space that shows the model.
    struct Window {
        Box box;
        double scale;
        std::vector<bool> frozen; // by layer, in this one
    };
    // Model space by that system, through a window; not within another one.
    void draw_model(const Stand &stand, const Window &window);

    void stroke(const Entity &entity, const Path &path, const Matrix &place);
    void fill(const Entity &entity, const Path &path, const Matrix &place);
    void write(const Entity &entity, Text text);
    // A stroke of which the points are relative to a place that comes late.
    void stroke_late(const Entity &entity, const Path &path, Late late);

    // What isn't drawn: each record counts once.
    void leave_out(size_t place, std::string_view reason);

    std::string_view record(size_t place) const { return content_.objects[place].record; }
    bool is_paper() const { return space_ == Run::paper; }
    const Outline &outline() const { return outline_; }
    const Header &header() const { return header_; }
    Encoding &encoding() { return encoding_; }
    Pen &pen() { return pen_; }
    Scene &scene() { return scene_; }

    Groups groups; // of the entity at hand
    Path path;     // for whoever draws it

  private:
    bool draw_space(Run::Space space, const Stand &stand);
    size_t end_of(size_t place, std::string_view kind, size_t last) const;
    bool is_wanted(Range range) const;
    uint64_t cost_again(Range range) const;
    void draw_record(Range range, std::string_view kind, const Stand &stand);
    void draw_entity(Range range, std::string_view kind, const Stand &stand);
    Look look_of(const Look &parent, bool is_part) const;
    uint32_t dashes_of(uint32_t linetype);
    void told(Pen::Result result, const Entity &entity);
    void count_others();
    void settle(const Late &late, const Box &box);
    void place_late();

    const dxf::Content &content_;
    const SceneOptions &options_;
    Scene &scene_;
    const Outline outline_;
    const Header header_;
    Encoding encoding_;
    Pen pen_;
    Run::Space space_ = Run::model;   // that is being drawn
    bool is_by_flag_ = true;          // records tell whether they stand in it
    bool is_seen_ = false;            // there was one
    std::vector<const Block *> open_; // blocks that are being drawn
    std::vector<bool> left_out_;      // by place
    std::map<std::pair<uint32_t, double>, uint32_t> dashes_;
    std::vector<Late> late_;
    const Window *window_ = nullptr; // through which the model is seen
    double dash_scale_ = 1;
    Look insert_; // the last one's, for the attributes that follow it
};

using Draw = void (*)(Drawer &drawer, const Entity &entity);

// Null for a kind that isn't drawn.
Draw draw_of(std::string_view kind);

// What could be seen, also of a kind that isn't drawn.
bool is_entity(std::string_view kind, const Groups &groups);

} // namespace picture
