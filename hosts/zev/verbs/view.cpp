// view: a drawing, or a DXF file, as a picture.

#include "desktop.hpp"
#include "drawing_version.hpp"
#include "dxf/content.hpp"
#include "dxf/rows.hpp"
#include "needed_rows.hpp"
#include "picture/raster.hpp"
#include "target.hpp"

#include <algorithm>
#include <cinttypes>

namespace host {

namespace fs = std::filesystem;

namespace {

struct Options {
    std::string drawing, revision, output;
    bool is_dark = false, is_paper = false, force = false, thumbnail = false;
    uint64_t size = 0; // 0 where none is given
};

void declare(Command &verb, Options &options) {
    verb.description("Show a drawing as a picture");
    verb.footer("Without -o the picture is made in the user's cache and opened by the desktop.\n"
                "-o names a file of SVG, PNG or PDF; - is SVG on stdout. A DXF file can be shown\n"
                "without a working copy. What cannot be shown is told.\n"
                "Examples:\n  zev view plan.dwx\n  zev view plan.dwx HEAD~1 -o before.png\n"
                "  zev view plan.dwx -o plan.pdf --paper\n  zev view ~/plan.dxf -o - --dark");
    verb.add_option("drawing", options.drawing, "Drawing, or DXF file")->required();
    verb.add_option("revision", options.revision, "As it was in this commit")->type_name("REV");
    verb.add_option("-o,--output", options.output, "The picture, by its suffix; - is stdout")
        ->type_name("FILE");
    const Argument dark = verb.add_flag("--dark", options.is_dark, "On a dark ground");
    const Argument paper =
        verb.add_flag("--paper", options.is_paper, "The paper space in place of the model");
    const Argument size =
        verb.add_option("--size", options.size, "Pixels of a PNG file's longer side, else 2000");
    size->type_name("N");
    verb.add_flag("--thumbnail", options.thumbnail,
                  "The small picture that the drawing's file holds, as PNG")
        ->excludes(dark)
        ->excludes(paper)
        ->excludes(size);
    verb.add_flag("--force", options.force,
                  "A file of that name goes to the trash, without a question");
}

bool has_suffix(const std::string &path, const char *suffix) {
    return zStrcasesameA(fs::path(path).extension().c_str(), suffix);
}

// ---- What is drawn

// A drawing with all its rows, or a DXF file with its bytes, and how it looks.
class Subject {
  public:
    Subject(Host &host, const Options &options) : host_(host) {
        has_suffix(options.drawing, ".dxf") ? open_file(options) : open_drawing(options);
        const dxf::Content &content = contents_ ? (*contents_)[0] : content_;
        scene_ = picture::draw(content, {.wanted = {},
                                         .space = options.is_paper ? picture::SceneOptions::paper
                                                                   : picture::SceneOptions::any});
        std::vector<bool> objects(content.objects.size());
        for (const picture::Shape &shape : scene_.shapes) objects[shape.object] = true;
        shown_ = static_cast<uint64_t>(std::count(objects.begin(), objects.end(), true));
        if (options.is_paper && !shown_)
            host.out.warn(say("%s: nothing is to be seen in its paper space", path_));
    }
    const picture::Scene &scene() const { return scene_; }
    const WorkingCopy *copy() const { return copy_ ? &*copy_ : nullptr; }
    const std::string &path() const { return path_; }
    // The same for all that have the same content, wherever they lie.
    std::string title() const { return fs::path(path_).filename().string(); }
    uint64_t shown() const { return shown_; }

  private:
    void open_drawing(const Options &options) {
        copy_.emplace();
        path_ = copy_->relative(options.drawing);
        if (!is_drawing_name(path_))
            throw Failed(kInvalid, say("%s: is no drawing", options.drawing));
        require_export_right(*copy_, path_);
        const DrawingVersion version(host_, *copy_, path_, options.revision);
        name_ = version.name;
        const dxf::Keys keys(version.manifest);
        std::vector<DrawingKey> all = keys.objects;
        all.insert(all.end(), keys.classes.begin(), keys.classes.end());
        all.insert(all.end(), {keys.header, keys.summary, keys.layout});
        std::sort(all.begin(), all.end(), dxf::before);
        fetch_rows(host_, *copy_, keys.table, all, path_);
        contents_.emplace(copy_->repository(), std::vector<dxf::Keys>{keys}, name_, host_.notify);
    }

    // It may lie anywhere; within a server's copy its rules hold.
    void open_file(const Options &options) {
        path_ = name_ = options.drawing;
        if (!options.revision.empty())
            throw Failed(kInvalid, say("%s: only drawings are shown as they were", path_));
        try {
            copy_.emplace();
        } catch (const Failed &) {
            copy_.reset();
        }
        const auto below = copy_ ? copy_->below(path_) : std::nullopt;
        if (below) require_export_right(*copy_, *below);
        read_file();
        content_ = dxf::content_of(dxf::split(bytes_, path_));
    }

    void read_file() {
        if (!fs::exists(path_))
            throw Failed(kNotFound, say("%s: no such file or directory", path_));
        if (!fs::is_regular_file(path_))
            throw Failed(kInvalid, say("%s: is no regular file", path_));
        const OwnedFile file(check(zFileOpen(wide_path(path_).c_str(), u"rb"), path_));
        bytes_.resize(zFileSize(file.get()));
        bytes_.resize(zFileRead(file.get(), bytes_.data(), bytes_.size()));
        if (zFileError(file.get())) fail_raised(path_);
    }

    Host &host_;
    std::optional<WorkingCopy> copy_;
    std::string path_, name_, bytes_;
    std::optional<dxf::Contents> contents_;
    dxf::Content content_; // of a DXF file
    picture::Scene scene_;
    uint64_t shown_ = 0;
};

// ---- Where to

using picture::Format;

// Of a path, so that two drawings of one name have two pictures: a viewer may still read the other.
std::string digits_of(const fs::path &path) {
    uint64_t digest = 0xcbf29ce484222325; // FNV-1a
    for (const char byte : path.string())
        digest = (digest ^ static_cast<unsigned char>(byte)) * 0x100000001b3;
    char digits[17];
    snprintf(digits, sizeof digits, "%016" PRIx64, digest);
    return std::string(digits, 8);
}

// As much of a long name as leaves room for what follows it, no half of a character.
std::string shortened(std::string name) {
    constexpr size_t kMost = 120;
    if (name.size() <= kMost) return name;
    size_t end = kMost;
    while (end && (static_cast<unsigned char>(name[end]) & 0xC0) == 0x80) --end;
    return name.substr(0, end);
}

// A name in the cache that says which drawing it is; one picture of it is enough.
fs::path cached_name(const Options &options) {
    std::string name = shortened(fs::path(options.drawing).stem().string());
    name += "-" + digits_of(fs::absolute(options.drawing).lexically_normal());
    if (!options.revision.empty()) name += "@" + shortened(options.revision);
    std::replace(name.begin(), name.end(), '/', '-');
    return cache_directory() / (name + ".svg");
}

void write_picture(Host &host, const Subject &subject, const Options &options, Format format,
                   const picture::Write &write) {
    const picture::Theme theme{options.is_dark};
    const auto svg = [&](const picture::Write &to) {
        picture::write_svg(subject.scene(), {.theme = theme, .title = subject.title()}, to);
    };
    if (format == Format::svg) return svg(write);
    picture::rasterize(svg,
                       {.format = format,
                        .side = picture::side_of(options.size, format),
                        .theme = theme,
                        .notify = host.notify},
                       write);
}

// "3 ACAD_PROXY_ENTITY, 1 REGION"
std::string left_out(const picture::Scene &scene) {
    std::string text;
    for (const auto &[what, count] : scene.left_out)
        text += (text.empty() ? "" : ", ") + grouped(count) + " " + said(what);
    return text;
}

void tell(Host &host, const Subject &subject, const Options &options, Format format,
          const std::string &file, uint64_t size) {
    host.out.line(file + ": " + bytes_text(size) + ", " + plural(subject.shown(), "object"));
    const picture::Scene &scene = subject.scene();
    if (!scene.left_out.empty()) host.out.line(say("left out: %s", left_out(scene)));
    std::vector<Record> others;
    for (const auto &[what, count] : scene.left_out) {
        others.emplace_back();
        others.back().set(u"kind", what).set(u"count", count);
    }
    Record record("view");
    record.set(u"path", subject.path());
    if (!options.revision.empty()) record.set(u"revision", options.revision);
    host.out.record(record.set(u"file", file)
                        .set(u"format", picture::name_of(format))
                        .set(u"bytes", size)
                        .set(u"shown", subject.shown())
                        .set(u"left_out", std::move(others)));
}

void write_file(Host &host, const Subject &subject, const Options &options, Format format,
                const std::string &file, Target::Former former = Target::to_trash) {
    Target target(subject.copy(), file, former);
    uint64_t size = 0;
    write_picture(host, subject, options, format, [&](std::string_view bytes) {
        target.write(bytes);
        size += bytes.size();
    });
    target.finish();
    tell(host, subject, options, format, file, size);
}

// ---- The small picture

void require_text(const Host &host, const Options &options) {
    if (host.out.json() && options.output == "-")
        throw Failed(kInvalid, "a picture on stdout can't go with --json");
}

// As desktops call it: for any file, into one that they may have made, empty.
int write_thumbnail(Host &host, const Options &options) {
    if (!options.revision.empty() || options.output.empty())
        throw Failed(kInvalid, "--thumbnail goes with a drawing's file and -o FILE");
    require_text(host, options);
    uint32_t size = 0;
    zRaiseError(0, 0, nullptr, nullptr);
    const Owned<void, free> bytes(zDrawingFileThumbnail(wide_path(options.drawing).c_str(), &size));
    if (!bytes && zErrorClass()) fail_raised(options.drawing);
    if (!bytes || !size)
        throw Failed(kNotFound, say("%s: holds no small picture", options.drawing));
    const std::string_view data(static_cast<const char *>(bytes.get()), size);
    if (options.output == "-") return fwrite(data.data(), 1, size, stdout), kDone;
    std::error_code ignored;
    const bool is_empty = fs::file_size(options.output, ignored) == 0 && !ignored;
    if (is_empty) fs::remove(options.output);
    require_free(host.notify, nullptr, options.output, options.force);
    Target target(nullptr, options.output);
    target.write(data);
    target.finish();
    host.out.line(options.output + ": " + bytes_text(size));
    host.out.record(Record("view")
                        .set(u"path", options.drawing)
                        .set(u"file", options.output)
                        .set(u"format", picture::name_of(Format::png))
                        .set(u"bytes", uint64_t{size}));
    return kDone;
}

int run(Host &host, const Options &options) {
    if (options.thumbnail) return write_thumbnail(host, options);
    const Format format = picture::format_of(options.output);
    require_text(host, options);
    picture::side_of(options.size, format);
    const Subject subject(host, options);
    if (options.output == "-") {
        write_picture(host, subject, options, format, [](std::string_view bytes) {
            fwrite(bytes.data(), 1, bytes.size(), stdout);
        });
        return kDone;
    }
    if (!options.output.empty()) {
        require_free(host.notify, subject.copy(), options.output, options.force);
        return write_file(host, subject, options, format, options.output), kDone;
    }
    const fs::path file = cached_name(options);
    write_file(host, subject, options, format, file.string(), Target::gone);
    open_in_desktop(file);
    return kDone;
}

} // namespace

extern const Verb kViewVerb{"view", Group::drawings, Nature::plain, bind<Options, declare, run>};

} // namespace host
