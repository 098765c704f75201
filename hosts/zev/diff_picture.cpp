// Both versions are read in one walk over their table, a row that both have once.
#include "diff_picture.hpp"

#include "drawing_version.hpp"
#include "dxf/content.hpp"
#include "dxf/rows.hpp"
#include "needed_rows.hpp"
#include "picture/changes/diff_svg.hpp"
#include "picture/raster.hpp"
#include "remote_copy.hpp"
#include "server_history.hpp"
#include "show.hpp"
#include "target.hpp"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

namespace host {

namespace fs = std::filesystem;

namespace {

using picture::Format;

// What a version is called, whether it has the drawing or not.
std::string version_name(const Host &host, const WorkingCopy &copy, const std::string &path,
                         const std::string &revision) {
    if (revision.empty()) return say("the work file");
    if (revision == "HEAD" && !copy.born()) return revision;
    // Of a tag, a branch or a commit the name says enough.
    const bool is_relative = revision.find_first_of("~^") != revision.npos;
    if (revision != "HEAD" && !is_relative) return revision;
    const OwnedCommit commit = commit_with(host, copy, revision, path);
    return revision + " (" + short_id(zCommitId(commit.get())) + ")";
}

class Subject {
  public:
    Subject(Host &host, const WorkingCopy &copy, const DiffPicture &request)
        : versions_(host, copy, request.path, request.from, request.to),
          older_(
              version_name(host, copy, request.path, request.from.empty() ? "HEAD" : request.from)),
          newer_(version_name(host, copy, request.path, request.to)) {
        std::vector<dxf::Keys> keys;
        for (const DrawingVersion *version : {versions_.older(), versions_.newer()})
            if (version) keys.emplace_back(version->manifest);
        fetch(host, copy, keys, request.path);
        contents_.emplace(copy.repository(), keys, request.path, host.notify);
        changes_ = dxf::compare_objects(versions_.from().objects, versions_.to().objects);
        if (versions_.older() && versions_.newer()) drop_restored();
    }

    picture::DiffCounts write(const picture::DiffOptions &options,
                              const picture::Write &write) const {
        const dxf::Content none;
        const dxf::Content &older = versions_.older() ? (*contents_)[0] : none;
        const dxf::Content &newer =
            versions_.newer() ? (*contents_)[versions_.older() ? 1 : 0] : none;
        return picture::write_diff(older, newer, changes_, options, write);
    }
    const std::string &older() const { return older_; }
    const std::string &newer() const { return newer_; }

  private:
    // What was changed and put back has another key and the same bytes.
    void drop_restored() {
        std::unordered_map<uint64_t, std::string_view> left;
        for (const dxf::ObjectChange &change : changes_)
            if (change.kind == dxf::ObjectChange::modified) left[change.number];
        if (left.empty()) return;
        for (const dxf::Object &object : (*contents_)[0].objects)
            if (const auto found = left.find(object.key.object); found != left.end())
                found->second = object.record;
        std::unordered_set<uint64_t> restored;
        for (const dxf::Object &object : (*contents_)[1].objects)
            if (const auto found = left.find(object.key.object); found != left.end())
                if (found->second == object.record) restored.insert(object.key.object);
        std::erase_if(changes_, [&](const dxf::ObjectChange &change) {
            return restored.contains(change.number);
        });
    }

    // Keys are put in order only where a server could be asked for some.
    static void fetch(Host &host, const WorkingCopy &copy, const std::vector<dxf::Keys> &versions,
                      const std::string &path) {
        if (origin_of(copy).empty()) return;
        std::vector<DrawingKey> keys;
        for (const dxf::Keys &version : versions) {
            keys.insert(keys.end(), {version.header, version.summary, version.layout});
            keys.insert(keys.end(), version.classes.begin(), version.classes.end());
            keys.insert(keys.end(), version.objects.begin(), version.objects.end());
        }
        std::sort(keys.begin(), keys.end(), dxf::before);
        const auto is_same = [](const DrawingKey &a, const DrawingKey &b) {
            return a.tag == b.tag && a.object == b.object;
        };
        keys.erase(std::unique(keys.begin(), keys.end(), is_same), keys.end());
        fetch_rows(host, copy, versions.front().table, keys, path);
    }

    const DrawingVersions versions_;
    const std::string older_, newer_; // what they are called
    std::optional<dxf::Contents> contents_;
    std::vector<dxf::ObjectChange> changes_;
};

picture::DiffCounts write(Host &host, const Subject &subject, const DiffPicture &request,
                          const picture::Write &write) {
    const picture::DiffOptions options{.theme = {request.is_dark},
                                       .title = fs::path(request.path).filename().string(),
                                       .older = subject.older(),
                                       .newer = subject.newer(),
                                       .space = request.is_paper ? picture::SceneOptions::paper
                                                                 : picture::SceneOptions::any};
    const Format format = picture::format_of(request.file);
    if (format == Format::svg) return subject.write(options, write);
    picture::DiffCounts counts;
    picture::Raster raster;
    raster.format = format;
    raster.side = picture::side_of(request.size, format);
    raster.theme = options.theme;
    raster.notify = host.notify;
    picture::rasterize([&](const picture::Write &to) { counts = subject.write(options, to); },
                       raster, write);
    return counts;
}

void tell(Host &host, const DiffPicture &request, uint64_t size,
          const picture::DiffCounts &counts) {
    std::string text = say("%s added, %s modified, %s removed, %s moved", counts.added,
                           counts.modified, counts.removed, counts.moved);
    if (counts.carried) text += ", " + say("%s with the whole drawing", counts.carried);
    if (counts.is_paper) text = say("paper space: %s", text);
    if (counts.alike) text += "; " + say("%s with the same look", counts.alike);
    if (counts.unseen) text += "; " + say("%s without a picture", counts.unseen);
    host.out.line(request.file + ": " + bytes_text(size) + ", " + text);
    host.out.record(Record("picture")
                        .set(u"path", request.path)
                        .set(u"file", request.file)
                        .set(u"format", picture::name_of(picture::format_of(request.file)))
                        .set(u"bytes", size)
                        .set(u"added", counts.added)
                        .set(u"modified", counts.modified)
                        .set(u"removed", counts.removed)
                        .set(u"moved", counts.moved)
                        .set(u"carried", counts.carried)
                        .set(u"alike", counts.alike)
                        .set(u"unseen", counts.unseen)
                        .set(u"paper", counts.is_paper)
                        .set(u"places", counts.regions));
}

} // namespace

void draw_diff(Host &host, const WorkingCopy &copy, const DiffPicture &request) {
    // Or a failure, before anything is read.
    picture::side_of(request.size, picture::format_of(request.file));
    if (host.out.json() && request.file == "-")
        throw Failed(kInvalid, "a picture on stdout can't go with --json");
    require_export_right(copy, request.path);
    const Subject subject(host, copy, request);
    if (request.file == "-") {
        write(host, subject, request,
              [](std::string_view bytes) { fwrite(bytes.data(), 1, bytes.size(), stdout); });
        return;
    }
    require_free(host.notify, &copy, request.file, request.is_forced);
    Target target(&copy, request.file);
    uint64_t size = 0;
    const picture::DiffCounts counts = write(host, subject, request, [&](std::string_view bytes) {
        target.write(bytes);
        size += bytes.size();
    });
    target.finish();
    tell(host, request, size, counts);
}

} // namespace host
