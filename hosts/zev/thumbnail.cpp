// A picture that nobody asked for must not cost much: what makes it slow are letters that are too
// low to be read, and objects by the ten thousand on a few pixels.
#include "thumbnail.hpp"

#include "copy.hpp"
#include "host_notify.hpp"
#include "picture/raster.hpp"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <thread>

namespace host {

namespace {

constexpr uint32_t kSide = 256;
constexpr double kPixel = picture::Frame::kSide / kSide; // units
constexpr size_t kMostObjects = 20'000, kMostShapes = 4'000;
constexpr size_t kMostTexts = 16; // which the renderer is slow with
constexpr uint64_t kMostPoints = 700'000;
constexpr double kMostInk = 150'000; // pixels, by the length of what is drawn

constexpr std::chrono::seconds kPatience{10};
constexpr std::string_view kPng("\x89PNG\r\n\x1a\n");
constexpr size_t kMostBytes = 1 << 20; // no PNG of so few pixels comes near

// The renderer is not there, or gives no answer: it isn't asked again.
std::atomic<bool> is_missing = false;

// What the renderer has to draw, in pixels: a line by its length, whatever gaps it has, the letters
// of a text by their box, and at least one for each piece.
double ink_of(const picture::Scene &scene, const picture::Shape &shape, double pixels) {
    const picture::Box box = scene.box_of(shape);
    double ink = (box.width() + box.height()) * pixels;
    if (shape.kind == picture::Shape::text) return ink;
    const picture::Point *point = scene.points.data() + shape.point;
    double length = 0;
    for (uint32_t i = 0; i < shape.count; ++i) {
        const picture::Step step = scene.steps[shape.first + i];
        if (step == picture::Step::move) ink += 1;
        for (int n = step == picture::Step::curve ? 3 : step == picture::Step::line; n; --n)
            length += std::hypot(point[n - 1].x - point[n - 2].x, point[n - 1].y - point[n - 2].y);
        point += step == picture::Step::curve ? 3 : step != picture::Step::close;
    }
    return std::max(ink, length * pixels);
}

// The largest of too many shapes, which make out what is seen on so few pixels; of those that are
// as large some from everywhere. One that takes too much ink is left out, those behind it are not.
void keep_largest(picture::Scene &scene) {
    std::vector<picture::Shape> &shapes = scene.shapes;
    struct Place {
        int size; // by twos
        uint32_t spread, index;
    };
    std::vector<Place> places;
    places.reserve(shapes.size());
    for (size_t i = 0; i < shapes.size(); ++i) {
        const picture::Box box = scene.box_of(shapes[i]);
        const auto index = static_cast<uint32_t>(i);
        places.push_back({std::ilogb(box.width() + box.height()), index * 2'654'435'769u, index});
    }
    std::sort(places.begin(), places.end(), [](const Place &a, const Place &b) {
        return a.size != b.size ? a.size > b.size : a.spread < b.spread;
    });
    std::vector<bool> is_kept(shapes.size());
    const double pixels = kSide / std::max({scene.box.width(), scene.box.height(), 1e-300});
    uint64_t texts = 0;
    double left = kMostInk;
    for (size_t i = 0; i < std::min(places.size(), kMostShapes); ++i) {
        const picture::Shape &shape = shapes[places[i].index];
        const double ink = ink_of(scene, shape, pixels);
        const bool is_text = shape.kind == picture::Shape::text;
        if (ink > left || (is_text && texts == kMostTexts)) continue;
        texts += is_text;
        left -= ink;
        is_kept[places[i].index] = true;
    }
    size_t at = 0;
    std::erase_if(shapes, [&](const picture::Shape &) { return !is_kept[at++]; });
}

// All that is asked of those at work is whether the user has broken it off.
Notify only_break() {
    Notify notify = *zNotifyNull();
    notify.usrbrk = [](const Notify *) { return broken(); };
    return notify;
}

std::string rendered(const picture::Scene &scene) {
    std::string png;
    const Notify notify = only_break();
    const auto begun = std::chrono::steady_clock::now();
    try {
        picture::rasterize(
            [&](const picture::Write &write) {
                picture::write_svg(scene,
                                   {.theme = {},
                                    .title = "",
                                    .weight = 0.75 * kPixel,
                                    .letters = 3 * kPixel,
                                    .grid = kPixel / 2},
                                   write);
            },
            {.format = picture::Format::png,
             .side = kSide,
             .theme = {},
             .patience = kPatience,
             .notify = &notify},
            [&](std::string_view bytes) {
                png += bytes;
                if (png.size() > kMostBytes)
                    throw Failed(kOther, "rsvg-convert writes more than a picture can have");
            });
    } catch (const Failed &) {
        if (std::chrono::steady_clock::now() - begun >= kPatience) is_missing = true;
        throw;
    }
    return png.starts_with(kPng) ? png : std::string();
}

uint64_t count_shown(const picture::Scene &scene, size_t objects) {
    std::vector<bool> is_shown(objects);
    for (const picture::Shape &shape : scene.shapes) is_shown[shape.object] = true;
    return static_cast<uint64_t>(std::count(is_shown.begin(), is_shown.end(), true));
}

// Of so many objects that what they show is within the limit: those that were drawn before it is
// reached may all be from one corner.
picture::Scene drawn(const dxf::Content &content) {
    constexpr size_t kTries = 3;
    const size_t count = content.objects.size();
    size_t step = count / kMostObjects + 1; // of so many one is drawn
    for (size_t i = 1;; ++i) {
        picture::SceneOptions options{.wanted = {}, .most_points = kMostPoints};
        if (step > 1) options.wanted = [step](size_t object) { return object % step == 0; };
        picture::Scene scene = picture::draw(content, options);
        const auto found = scene.left_out.find(picture::reason::kBeyond);
        const uint64_t beyond = found == scene.left_out.end() ? 0 : found->second;
        const uint64_t shown = count_shown(scene, count);
        if (beyond <= shown || i == kTries) return scene;
        step *= beyond / std::max<uint64_t>(shown, 1) + 2;
    }
}

// The parts of a document tile its file.
std::string_view bytes_of(const dxf::Document &document) {
    if (document.parts.empty()) return {};
    const std::string_view first = document.parts.front().bytes, last = document.parts.back().bytes;
    return {first.data(), static_cast<size_t>(last.data() + last.size() - first.data())};
}

} // namespace

std::string thumbnail_of(const dxf::Document &document) noexcept try {
    return is_missing ? std::string() : thumbnail_of(dxf::content_of(document));
} catch (const std::exception &) {
    return {};
}

std::string thumbnail_of(const dxf::Content &content) noexcept try {
    if (is_missing) return {};
    picture::Scene scene = drawn(content);
    keep_largest(scene);
    return scene.shapes.empty() ? std::string() : rendered(scene);
} catch (const Failed &failed) {
    if (failed.error_class == kNotFound) is_missing = true;
    return {};
} catch (const std::exception &) {
    return {};
}

std::string Thumbnails::of(const std::string &file, const dxf::Document &document) noexcept try {
    const auto is_it = [&](const Job &job) { return job.file == file; };
    const auto found = std::find_if(jobs_.begin(), jobs_.end(), is_it);
    if (found == jobs_.end()) return thumbnail_of(document);
    std::future<Made> made = std::move(found->made);
    jobs_.erase(jobs_.begin(), found + 1); // with those whose import has failed
    make_next();
    Made ready = made.get();
    return ready.bytes == bytes_of(document) ? std::move(ready.png) : thumbnail_of(document);
} catch (const std::exception &) {
    return {};
}

// What can't be read, or is no DXF, is told by the import.
Thumbnails::Made Thumbnails::make(const std::string &file) noexcept try {
    Made made;
    const OwnedFile in(check(zFileOpen(wide_path(file).c_str(), u"rb")));
    made.bytes.resize(zFileSize(in.get()));
    made.bytes.resize(zFileRead(in.get(), made.bytes.data(), made.bytes.size()));
    made.png = thumbnail_of(dxf::split(made.bytes, file));
    return made;
} catch (const std::exception &) {
    return {};
}

void Thumbnails::make_next() {
    const size_t most = std::clamp(std::thread::hardware_concurrency(), 1u, 4u);
    for (; jobs_.size() < most && next_ < files_.size(); ++next_)
        jobs_.push_back({files_[next_], std::async(std::launch::async, make, files_[next_])});
}

bool wants_thumbnails(const WorkingCopy &copy) {
    const Owned<Config, zConfigFree> settings(check(zConfigRepo(copy.repository())));
    if (!zConfigExists(settings.get(), u"zev.thumbnails")) return true;
    const std::string value = narrow(zConfigGetString(settings.get(), u"zev.thumbnails"));
    if (value != "auto" && value != "off")
        throw Failed(kInvalid, say("zev.thumbnails: %s is neither auto nor off", value));
    return value == "auto";
}

} // namespace host
