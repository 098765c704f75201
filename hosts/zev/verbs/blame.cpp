// blame: which commits changed the objects of a drawing last.

#include "dxf/fields.hpp"
#include "dxf/history.hpp"
#include "dxf/reader.hpp"
#include "dxf/rows.hpp"
#include "needed_rows.hpp"
#include "object_names.hpp"
#include "show.hpp"
#include "when.hpp"

#include <algorithm>

namespace host {

namespace {

struct Options {
    std::string drawing;
    std::string revision = "HEAD";
};

void declare(Command &verb, Options &options) {
    verb.description("Show for each object of a drawing the commit that changed it last");
    verb.footer("Columns: commit, author, time, handle, kind, layer; in the order of the drawing.\n"
                "Examples:\n  zev blame plan.dwx\n  zev blame plan.dwx --rev HEAD~3 --json");
    verb.add_option("drawing", options.drawing, "A .dwx file")->required();
    verb.add_option("--rev", options.revision, "As it was in this commit")->type_name("REV");
}

struct Look {
    std::string kind, layer;
};

// Kinds and layers of a drawing's objects, by their places; empty where there is no row. Blame
// does without them, so that a table that is missing or held is no failure.
std::vector<Look> looks_of(Host &host, const WorkingCopy &copy, const dxf::Manifest &drawing,
                           const std::string &path) {
    std::vector<Look> looks(drawing.objects.size());
    std::vector<std::pair<DrawingKey, size_t>> order;
    for (size_t i = 0; i < looks.size(); ++i) order.push_back({turned(drawing.objects[i]), i});
    std::sort(order.begin(), order.end(),
              [](const auto &a, const auto &b) { return dxf::before(a.first, b.first); });
    std::vector<DrawingKey> keys;
    for (const auto &[key, place] : order) keys.push_back(key);
    try {
        fetch_rows(host, copy, drawing.table, keys, path);
        OwnedTable table = dxf::look_at_table(copy.repository(), &drawing.table, path);
        dxf::read_rows(table.get(), keys, host.notify, [&](size_t i, std::string_view row) {
            looks[order[i].second] = {std::string(dxf::record_type(row)),
                                      std::string(dxf::record_layer(row))};
        });
    } catch (const Failed &failed) {
        if (failed.error_class == kCanceled) throw;
        host.out.warn(say("%s; kinds and layers are not shown", failed.what()));
    }
    return looks;
}

// A version's own words, made once for all its objects.
struct Origin {
    std::string id, author, time, brief;
    int64_t seconds;
};

std::vector<Origin> origins_of(const WorkingCopy &copy, const std::vector<dxf::State> &versions) {
    std::vector<Origin> origins;
    for (const dxf::State &version : versions) {
        OwnedCommit commit(check(zCommitByid(copy.repository(), &version.commit)));
        const int64_t seconds = seconds_of(commit.get());
        origins.push_back({hex(&version.commit), clean(narrow(zCommitAuthor(commit.get()))),
                           iso_time(seconds), short_time(seconds), seconds});
    }
    return origins;
}

class BlameText {
  public:
    BlameText(Host &host, const std::vector<Origin> &origins) : host_(host), origins_(origins) {
        constexpr size_t kMaxAuthor = 24;
        size_t width = 0;
        for (const Origin &origin : origins) width = std::max(width, columns(origin.author));
        for (const Origin &origin : origins)
            heads_.push_back(host.out.paint(Colour::yellow, padded(origin.id.substr(0, 8), 10)) +
                             padded(origin.author, std::min(width, kMaxAuthor) + 2) +
                             padded(origin.brief, 18));
    }

    void print(uint64_t number, size_t version, const Look &look) {
        const std::string handle = object_name(number);
        if (!host_.out.json()) {
            const std::string layer = clean(look.layer);
            return host_.out.line(heads_[version] + padded(handle, 10) +
                                  (layer.empty() ? look.kind : padded(look.kind, 16) + layer));
        }
        const Origin &origin = origins_[version];
        host_.out.record(Record("blame")
                             .set(u"commit", origin.id)
                             .set(u"author", origin.author)
                             .set(u"time", origin.time)
                             .set(u"seconds", origin.seconds)
                             .set(u"handle", handle)
                             .set(u"kind", look.kind)
                             .set(u"layer", look.layer));
    }

  private:
    Host &host_;
    const std::vector<Origin> &origins_;
    std::vector<std::string> heads_;
};

int run(Host &host, const Options &options) {
    WorkingCopy copy;
    const std::string path = copy.relative(options.drawing);
    OwnedCommit start = copy.commit(options.revision);
    copy.file(start.get(), path); // or throws, naming the commit
    dxf::Blame result;
    dxf::blame(copy.repository(), start.get(), path, host.notify, result);
    const dxf::Manifest &drawing = *result.newest.manifest;
    const std::vector<Look> looks = looks_of(host, copy, drawing, path);
    const std::vector<Origin> origins = origins_of(copy, result.versions);
    BlameText text(host, origins);
    for (size_t i = 0; i < drawing.objects.size(); ++i) {
        stop_on_break(host.notify);
        if (looks[i].kind != "ENDTAB") // no object, but what ends a table
            text.print(dxf::turned(drawing.objects.object(i)), result.changed[i], looks[i]);
    }
    return kDone;
}

} // namespace

extern const Verb kBlameVerb{"blame", Group::history, Nature::paged, bind<Options, declare, run>};

} // namespace host
