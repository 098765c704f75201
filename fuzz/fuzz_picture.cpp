// A drawing of any bytes becomes a scene within its limits, whose numbers and texts are sound, and
// an SVG; the same bytes give the same picture.
#include "host.hpp"
#include "picture/scene.hpp"
#include "picture/svg.hpp"

#include <cmath>
#include <cstdlib>

namespace {

constexpr uint64_t kMostPoints = 20'000;

void check(const picture::Scene &scene, size_t objects) {
    if (scene.points.size() > kMostPoints) abort();
    for (const picture::Point point : scene.points)
        if (!(std::abs(point.x) <= 2 * picture::kFarthest) ||
            !(std::abs(point.y) <= 2 * picture::kFarthest))
            abort();
    for (const picture::Shape &shape : scene.shapes) {
        if (shape.object >= objects || shape.part >= objects) abort();
        if (shape.dashes >= scene.dashes.size()) abort();
        if (shape.kind == picture::Shape::text
                ? shape.first >= scene.texts.size()
                : size_t{shape.first} + shape.count > scene.steps.size())
            abort();
    }
    for (const picture::Text &text : scene.texts)
        for (const char c : text.text)
            if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) abort();
}

std::string svg_of(const picture::Scene &scene) {
    std::string svg;
    picture::write_svg(scene, {}, [&](std::string_view text) { svg += text; });
    return svg;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const bool started = zGlobalInit(nullptr, nullptr);
    (void)started;
    try {
        const std::string_view bytes(reinterpret_cast<const char *>(data), size);
        const dxf::Document document = dxf::split(bytes, "fuzz.dxf");
        const dxf::Content content = dxf::content_of(document);
        picture::SceneOptions options;
        options.most_points = kMostPoints;
        for (const auto space : {picture::SceneOptions::any, picture::SceneOptions::paper}) {
            options.space = space;
            const picture::Scene scene = picture::draw(content, options);
            check(scene, content.objects.size());
            if (svg_of(scene) != svg_of(picture::draw(content, options))) abort();
        }
    } catch (const host::Failed &failed) {
        if (!std::string_view(failed.what()).starts_with("fuzz.dxf:")) abort();
    }
    return 0;
}
