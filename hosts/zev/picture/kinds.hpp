// The functions of the kinds of entities, a file a family.
#pragma once

#include "picture/drawer.hpp"

namespace picture {

// entities.cpp
void draw_line(Drawer &drawer, const Entity &entity);
void draw_ray(Drawer &drawer, const Entity &entity);
void draw_circle(Drawer &drawer, const Entity &entity);
void draw_arc(Drawer &drawer, const Entity &entity);
void draw_ellipse(Drawer &drawer, const Entity &entity);
void draw_spline(Drawer &drawer, const Entity &entity);
void draw_point(Drawer &drawer, const Entity &entity);
void draw_solid(Drawer &drawer, const Entity &entity);
void draw_face(Drawer &drawer, const Entity &entity);

// polylines.cpp, meshes.cpp
void draw_lwpolyline(Drawer &drawer, const Entity &entity);
void draw_polyline(Drawer &drawer, const Entity &entity);
void draw_mesh(Drawer &drawer, const Entity &entity);     // a POLYLINE with rows and columns
void draw_polyface(Drawer &drawer, const Entity &entity); // a POLYLINE with faces

// texts.cpp, mtext.cpp
void draw_text(Drawer &drawer, const Entity &entity);
void draw_attribute(Drawer &drawer, const Entity &entity);
void draw_definition(Drawer &drawer, const Entity &entity);
void draw_mtext(Drawer &drawer, const Entity &entity);

// inserts.cpp
void draw_insert(Drawer &drawer, const Entity &entity);
void draw_dimension(Drawer &drawer, const Entity &entity);
void draw_table(Drawer &drawer, const Entity &entity);

// leaders.cpp, multileaders.cpp, hatches.cpp, viewports.cpp
void draw_leader(Drawer &drawer, const Entity &entity);
void draw_multileader(Drawer &drawer, const Entity &entity);
void draw_mline(Drawer &drawer, const Entity &entity);
void draw_hatch(Drawer &drawer, const Entity &entity);
void draw_viewport(Drawer &drawer, const Entity &entity);

// At the tip of a line whose next point that is: a block by its handle, 0 for a filled triangle.
void draw_arrow(Drawer &drawer, const Entity &entity, double size, uint64_t block, Vec tip,
                Vec next);

} // namespace picture
