// import: DXF files into drawings.

#include "dxf/drawing.hpp"
#include "needed_rows.hpp"
#include "reception.hpp"
#include "verb.hpp"

#include <map>
#include <unistd.h>

namespace host {

namespace fs = std::filesystem;

namespace {

struct Options {
    Paths words; // DXF files; a .dwx file or a directory may come last
    std::string target;
};

void declare(CLI::App &verb, Options &options) {
    verb.description("Read DXF files into drawings");
    verb.footer("A drawing that exists is changed: objects that are the same keep their keys, so\n"
                "that only the others are stored. The work file changes; add or commit keeps it.\n"
                "Last comes the drawing for one file, or a directory for all; without it each\n"
                "drawing is named as its file.\n"
                "Examples:\n  zev import ~/plan.dxf\n  zev import ~/plan.dxf plans/ground.dwx\n"
                "  zev import ~/project/*.dxf plans");
    verb.add_option("files", options.words, "ASCII DXF files")->required();
    // The one above takes it, too, and is told apart later.
    verb.add_option("target", options.target, "A .dwx file, or a directory");
}

// In the directory if one is given, else beside the file if that lies in the working copy, else
// here.
std::string drawing_of(const WorkingCopy &copy, const std::string &source,
                       const std::string &directory) {
    fs::path name = fs::path(source).filename().replace_extension(".dwx");
    if (!directory.empty()) return (fs::path(directory) / name).string();
    if (copy.below(source)) return (fs::path(source).parent_path() / name).string();
    return name.string();
}

bool is_dxf_name(const std::string &path) {
    return zStrcasesameA(fs::path(path).extension().c_str(), ".dxf");
}

// The drawing as HEAD holds it, or nothing.
OwnedDrawing committed(const WorkingCopy &copy, const std::string &path) {
    if (!copy.born()) return {};
    OwnedTreeEntry entry = copy.entry(copy.head().get(), path);
    if (!entry || zTreeEntryType(entry.get()) != Z_OBJECT_BLOB) return {};
    TempFile file;
    copy.save(entry.get(), file.path());
    return OwnedDrawing(zDrawingRead(file.path().c_str()));
}

// "3 of 4,147 objects modified, 1 removed".
std::string changes_text(const dxf::ImportResult &result) {
    const std::string all = counted(result.objects, "object");
    if (result.added == result.objects && !result.removed) return all + " added";
    const struct {
        uint64_t count;
        const char *word;
    } kinds[] = {
        {result.added, "added"}, {result.modified, "modified"}, {result.removed, "removed"}};
    std::string text;
    for (const auto &[count, word] : kinds)
        if (count)
            text +=
                (text.empty() ? grouped(count) + " of " + all + " " : ", " + grouped(count) + " ") +
                word;
    return text.empty() ? all + ", all as before" : text;
}

void report_import(Host &host, const std::string &path, const dxf::ImportResult &result) {
    if (host.out.json())
        return host.out.record(Record("import")
                                   .set(u"path", path)
                                   .set(u"objects", result.objects)
                                   .set(u"added", result.added)
                                   .set(u"modified", result.modified)
                                   .set(u"removed", result.removed)
                                   .set(u"unchanged", result.unchanged)
                                   .set(u"rows", result.rows)
                                   .set(u"bytes", result.bytes)
                                   .set(u"written", result.written));
    const std::string name = typed_path(path) + ": ";
    if (!result.written)
        return host.out.line(name + counted(result.objects, "object") + ", nothing has changed");
    host.out.line(name + changes_text(result) + "; " + counted(result.rows, "row") + " stored, " +
                  narrow(zNumToHumanBytes(result.bytes)));
}

// The work file as it was, if no commit of the branch has it; it goes to the trash once the new one
// stands in its place.
class Displaced {
  public:
    Displaced(const WorkingCopy &copy, const std::string &path)
        : copy_(copy), path_(path), file_(copy.absolute(path)),
          aside_(file_.string() + ".zev-" + std::to_string(getpid()) + ".tmp") {
        if (!fs::is_regular_file(fs::symlink_status(file_)) || is_committed()) return;
        fs::copy_file(file_, aside_, fs::copy_options::overwrite_existing);
        is_kept_ = true;
    }
    ~Displaced() {
        std::error_code ignored;
        if (is_kept_) fs::remove(aside_, ignored);
    }
    Displaced(const Displaced &) = delete;
    Displaced &operator=(const Displaced &) = delete;

    // The trash takes files by the names that they have.
    void trash() {
        if (!is_kept_) return;
        const fs::path fresh = aside_.string() + "2";
        fs::rename(file_, fresh);
        fs::rename(aside_, file_);
        is_kept_ = false;
        const bool done = zTrashMoveInto(copy_.repository(), wide(path_).c_str());
        fs::rename(fresh, file_);
        check(done, path_);
    }

  private:
    bool is_committed() const {
        Oid id;
        check(zOidFromFile(&id, file_.u16string().c_str()), path_);
        const OwnedTreeEntry entry =
            copy_.born() ? copy_.entry(copy_.head().get(), path_) : OwnedTreeEntry();
        return entry && zOidIsEqual(zTreeEntryId(entry.get()), &id);
    }

    const WorkingCopy &copy_;
    std::string path_;
    fs::path file_, aside_;
    bool is_kept_ = false;
};

// Without the rows of a committed version every object would count as a new one. A drawing of
// another project, whose rows nobody has here, is replaced as a whole.
void fetch_former(Host &host, const WorkingCopy &copy, Drawing *committed, Drawing *former,
                  const std::string &path) {
    if (fetch_rows(host, copy, former, path) || !committed) return;
    if (zOidIsEqual(zDrawingTableId(committed), zDrawingTableId(former)))
        throw Failed(kNotFound, path + ": the rows of its last version are not here, and the "
                                       "server has none; \"zev info\" tells which project it is");
}

void import_one(Host &host, const WorkingCopy &copy, const std::string &source,
                const std::string &target) {
    if (!is_drawing_name(target))
        throw Failed(kInvalid, target + ": a drawing's name ends in .dwx");
    std::string path = copy.relative(target);
    fs::path file = copy.absolute(path);
    if (!fs::is_directory(file.parent_path()))
        throw Failed(kNotFound, target + ": there is no such directory; \"zev mkdir\" makes one");
    if (fs::exists(source) && !fs::is_regular_file(source))
        throw Failed(kInvalid, source + ": is no regular file");
    OwnedDrawing head = committed(copy, path);
    dxf::Import request{.repository = copy.repository(),
                        .source = wide_path(source),
                        .name = source,
                        .drawing = file.u16string(),
                        .path = path,
                        .committed = head.get(),
                        .notify = host.notify,
                        .fetch_rows = {},
                        .ask_tag = {}};
    if (!origin_of(copy).empty()) {
        request.fetch_rows = [&](Drawing *drawing) {
            fetch_former(host, copy, head.get(), drawing, path);
        };
        request.ask_tag = [&](Table *table) { return ask_tag(host, copy, table, path); };
    }
    Displaced before(copy, path);
    const dxf::ImportResult result = dxf::import_drawing(request);
    if (result.written) before.trash();
    report_import(host, path, result);
}

// One of several that fails holds the others up no more than it must.
bool import_next(Host &host, const WorkingCopy &copy, const std::string &source,
                 const std::string &target) try {
    import_one(host, copy, source, target);
    return true;
} catch (const Failed &failed) {
    if (failed.error_class == kCanceled) throw;
    host.out.fail(failed, kFailed);
    return false;
}

// One drawing for each, or none is begun.
Paths targets_of(const WorkingCopy &copy, const Paths &sources, const std::string &directory) {
    Paths targets;
    std::map<std::u16string, std::string> known; // names that differ in case only are one
    for (const std::string &source : sources) {
        targets.push_back(drawing_of(copy, source, directory));
        std::u16string name = wide_path(targets.back());
        zStrlwrW(name.data());
        const auto [other, is_new] = known.try_emplace(std::move(name), source);
        if (!is_new)
            throw Failed(kInvalid, other->second + " and " + source + " would both become " +
                                       targets.back() + "; import one after the other");
    }
    return targets;
}

int run(Host &host, const Options &options) {
    WorkingCopy copy;
    Paths sources = options.words;
    std::string target, directory;
    if (const std::string last = sources.back(); sources.size() > 1) {
        if (fs::is_directory(last))
            directory = last;
        else if (is_drawing_name(last) || (sources.size() == 2 && !is_dxf_name(last)))
            target = last;
        if (!directory.empty() || !target.empty()) sources.pop_back();
    }
    if (sources.size() > 1 && !target.empty())
        throw Failed(kInvalid, target + ": more than one file goes into a directory");
    if (sources.size() == 1) {
        if (target.empty()) target = drawing_of(copy, sources[0], directory);
        import_one(host, copy, sources[0], target);
        return kDone;
    }
    const auto targets = targets_of(copy, sources, directory);
    uint64_t failed = 0;
    for (size_t i = 0; i < sources.size(); ++i) {
        stop_on_break(host.notify);
        failed += !import_next(host, copy, sources[i], targets[i]);
    }
    return failed ? kFailed : kDone;
}

} // namespace

extern const Verb kImportVerb{"import", Group::drawings, Nature::displaces,
                              bind<Options, declare, run>};

} // namespace host
