// A picture that nobody asked for must not cost much: what makes it slow are letters that are too
// low to be read, and objects by the ten thousand on a few pixels.
#include "thumbnail.hpp"

#include "copy.hpp"
#include "host_notify.hpp"
#include "picture/raster.hpp"

#include <algorithm>
#include <atomic>
#include <thread>

namespace host {

namespace {

constexpr uint32_t kSide = 256;
constexpr double kPixel = picture::Frame::kSide / kSide; // units
constexpr size_t kMostObjects = 20'000, kMostShapes = 4'000;
constexpr size_t kMostTexts = 16; // which the renderer is slow with
constexpr uint64_t kMostPoints = 300'000, kMostShownPoints = 50'000;
constexpr double kMostInk = 150'000; // pixels, by the sides of what is drawn

constexpr std::chrono::seconds kPatience{10};
constexpr std::string_view kPng("\x89PNG\r\n\x1a\n");
constexpr size_t kMostBytes = 1 << 20; // no PNG of so few pixels comes near

// The renderer is not there, or gives no answer: it isn't asked again.
std::atomic<bool> is_missing = false;

// The largest of too many shapes, which make out what is seen on so few pixels.
void keep_largest(picture::Scene &scene) {
    std::vector<picture::Shape> &shapes = scene.shapes;
    struct Place {
        double size;
        size_t index;
    };
    std::vector<Place> places;
    places.reserve(shapes.size());
    for (size_t i = 0; i < shapes.size(); ++i) {
        const picture::Box box = scene.box_of(shapes[i]);
        places.push_back({box.width() + box.height(), i});
    }
    std::sort(places.begin(), places.end(), [](const Place &a, const Place &b) {
        return a.size != b.size ? a.size > b.size : a.index < b.index;
    });
    std::vector<bool> is_kept(shapes.size());
    const double pixels = kSide / std::max({scene.box.width(), scene.box.height(), 1e-300});
    uint64_t points = 0, texts = 0;
    double ink = 0;
    for (size_t i = 0; i < std::min(places.size(), kMostShapes); ++i) {
        const picture::Shape &shape = shapes[places[i].index];
        points += shape.points;
        ink += places[i].size * pixels;
        texts += shape.kind == picture::Shape::text;
        if (points > kMostShownPoints || ink > kMostInk) break;
        is_kept[places[i].index] = shape.kind != picture::Shape::text || texts <= kMostTexts;
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
                if (png.size() > kMostBytes) throw std::length_error("no small picture");
            });
    } catch (const Failed &) {
        if (std::chrono::steady_clock::now() - begun >= kPatience) is_missing = true;
        throw;
    }
    return png.starts_with(kPng) ? png : std::string();
}

// The parts of a document tile its file.
std::string_view bytes_of(const dxf::Document &document) {
    if (document.parts.empty()) return {};
    const std::string_view first = document.parts.front().bytes, last = document.parts.back().bytes;
    return {first.data(), static_cast<size_t>(last.data() + last.size() - first.data())};
}

} // namespace

std::string thumbnail_of(const dxf::Document &document) noexcept try {
    if (is_missing) return {};
    const dxf::Content content = dxf::content_of(document);
    const size_t step = content.objects.size() / kMostObjects + 1; // of so many one is drawn
    picture::SceneOptions options{.wanted = {}, .most_points = kMostPoints};
    if (step > 1) options.wanted = [step](size_t object) { return object % step == 0; };
    picture::Scene scene = picture::draw(content, options);
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
