// import: DXF files into drawings.

#include "dxf/drawing.hpp"
#include "needed_rows.hpp"
#include "thumbnail.hpp"
#include "verb.hpp"

#include <algorithm>
#include <map>

namespace host {

namespace fs = std::filesystem;

namespace {

struct Options {
    Paths words; // DXF files, directories; a .dwx file or a directory may come last
    std::string target;
    std::string match = "auto"; // how objects of a drawing that exists are found
};

constexpr struct {
    const char *name;
    dxf::Match match;
} kPolicies[] = {{"auto", dxf::Match::automatic},
                 {"handle", dxf::Match::handle},
                 {"normal", dxf::Match::normal},
                 {"content", dxf::Match::content},
                 {"exact", dxf::Match::exact}};

void declare(Command &verb, Options &options) {
    verb.description("Read DXF files into drawings");
    verb.footer(
        "A directory is taken with all DXF files in it, each in its place below the target,\n"
        "where directories are made as they are needed.\n"
        "A drawing that exists is changed: objects that are the same keep their keys, so\n"
        "that only the others are stored. The work file changes; add or commit keeps it.\n"
        "Last comes the drawing for one file, or a directory for all; without it each\n"
        "drawing is named as its file.\n"
        "Objects are the same by --match: by handle and byte for byte (handle); by handle and\n"
        "what they say, if a program wrote them in a form of its own (normal); by content, if\n"
        "one gave all handles anew (content); auto finds out which. What is the same keeps its\n"
        "former bytes; \"zev export --as-imported\" has those of the file. With exact the drawing\n"
        "gets the bytes of the file, the header's and the classes' too.\n"
        "Examples:\n  zev import ~/plan.dxf\n  zev import ~/plan.dxf plans/ground.dwx\n"
        "  zev import ~/project/*.dxf plans\n  zev import ~/project plans");
    verb.add_option("files", options.words, "ASCII DXF files, directories")->required();
    // The one above takes it, too, and is told apart later.
    verb.add_option("target", options.target, "A .dwx file, or a directory");
    verb.add_option("--match", options.match, "auto, handle, normal, content or exact")
        ->type_name("POLICY");
}

// A DXF file, and the drawing that it is to become.
struct Item {
    std::string source, target;
    bool makes_directories = false;
};

// `place` is the drawing's below a directory that is given. Without one it lies beside the file if
// that lies in the working copy, else below here.
std::string drawing_of(const WorkingCopy &copy, const std::string &source, fs::path place,
                       const std::string &directory) {
    place.replace_extension(".dwx");
    if (!directory.empty()) return (fs::path(directory) / place).string();
    if (copy.below(source)) return fs::path(source).replace_extension(".dwx").string();
    return place.string();
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

dxf::Match policy_of(const std::string &name) {
    for (const auto &policy : kPolicies)
        if (name == policy.name) return policy.match;
    throw Failed(kInvalid,
                 say("--match takes auto, handle, normal, content or exact, not %s", name));
}

const char *name_of(dxf::Match match) {
    for (const auto &policy : kPolicies)
        if (match == policy.match) return policy.name;
    return "";
}

using Changes = dxf::ImportResult::Changes;

// "3 of 4,147 objects modified, 1 removed"; without the objects "3 modified, 1 removed". What was
// removed alone is a part of those that there were.
std::string changes_text(const Changes &changes, const std::string &all,
                         const std::string &former) {
    const struct {
        uint64_t count;
        const char *first, *next;
        const std::string &of;
    } kinds[] = {{changes.added, "%s of %s added", "%s added", all},
                 {changes.modified, "%s of %s modified", "%s modified", all},
                 {changes.removed, "%s of %s removed", "%s removed", former}};
    std::string text;
    for (const auto &[count, first, next, of] : kinds) {
        if (!count) continue;
        const bool begins = text.empty() && !of.empty();
        if (!text.empty()) text += ", ";
        text += begins ? say(first, grouped(count), of) : say(next, grouped(count));
    }
    return text;
}

// Where objects were found by what they say, what a program did to tables and dictionaries on its
// own is told apart from what was drawn.
std::string changes_text(const dxf::ImportResult &result) {
    const std::string all = count_of(result.objects, "object"),
                      former = count_of(result.objects - result.added + result.removed, "object");
    if (result.added == result.objects && !result.removed) return say("%s added", all);
    const bool is_plain = result.match != dxf::Match::normal && result.match != dxf::Match::content;
    const Changes every{result.added, result.modified, result.removed}, &drawn = result.drawn;
    std::string text = changes_text(is_plain ? every : drawn, all, former);
    if (text.empty()) text = say("%s, all as before", all);
    if (result.match == dxf::Match::exact) return say("byte for byte; %s", text);
    if (is_plain) return text; // by handle, as ever
    text = say(result.match == dxf::Match::normal ? "in normal form; %s" : "by content; %s", text);
    const Changes others{every.added - drawn.added, every.modified - drawn.modified,
                         every.removed - drawn.removed};
    const std::string besides = changes_text(others, {}, {});
    return besides.empty() ? text : say("%s; in tables and dictionaries %s", text, besides);
}

void report_import(Host &host, const std::string &path, const dxf::ImportResult &result) {
    if (host.out.json())
        return host.out.record(Record("import")
                                   .set(u"path", path)
                                   .set(u"match", name_of(result.match))
                                   .set(u"objects", result.objects)
                                   .set(u"added", result.added)
                                   .set(u"modified", result.modified)
                                   .set(u"removed", result.removed)
                                   .set(u"unchanged", result.unchanged)
                                   .set(u"kept", result.kept)
                                   .set(u"drawn_added", result.drawn.added)
                                   .set(u"drawn_modified", result.drawn.modified)
                                   .set(u"drawn_removed", result.drawn.removed)
                                   .set(u"rows", result.rows)
                                   .set(u"bytes", result.bytes)
                                   .set(u"written", result.written));
    const std::string name = typed_path(path) + ": ";
    if (!result.written)
        return host.out.line(name +
                             say("%s, nothing has changed", count_of(result.objects, "object")));
    host.out.line(name + say("%s; %s stored, %s", changes_text(result),
                             count_of(result.rows, "row"), bytes_text(result.bytes)));
}

bool is_committed(const WorkingCopy &copy, const std::string &path) {
    Oid id;
    check(zOidFromFile(&id, copy.absolute(path).u16string().c_str()), path);
    const OwnedTreeEntry entry =
        copy.born() ? copy.entry(copy.head().get(), path) : OwnedTreeEntry();
    return entry && zOidIsEqual(zTreeEntryId(entry.get()), &id);
}

// What no commit of the branch has goes to the trash.
void keep_former(const WorkingCopy &copy, const std::string &path) {
    if (!is_committed(copy, path)) check(zTrashKeep(copy.repository(), wide(path).c_str()), path);
}

// The directory above a path that is another repository, or the place of one; empty if none is.
std::string repository_above(const WorkingCopy &copy, const std::string &path) {
    constexpr uint32_t kCommit = 0160000;
    const OwnedIndex index(check(zIndexHead(copy.repository(), false)));
    for (size_t slash = path.find('/'); slash != path.npos; slash = path.find('/', slash + 1)) {
        const std::string directory = path.substr(0, slash);
        const IndexEntry *entry = zIndexEntryBypath(index.get(), wide(directory).c_str());
        if (copy.is_on_disk(directory + "/.git") || (entry && zIndexEntryMode(entry) == kCommit))
            return directory;
    }
    return {};
}

// No drawing is written by way of a link, nor one whose rows would lie here and whose file in
// another repository.
void require_own_place(const WorkingCopy &copy, const std::string &path,
                       const std::string &target) {
    if (fs::is_symlink(fs::symlink_status(copy.absolute(path))))
        throw Failed(kInvalid, say("%s: is a symbolic link; name the drawing itself", target));
    if (const std::string other = repository_above(copy, path); !other.empty())
        throw Failed(kInvalid, say("%s: lies in %s, a repository of its own; import it there",
                                   target, other));
}

// Without the rows of a committed version every object would count as a new one. A drawing of
// another project, whose rows nobody has here, is replaced as a whole.
void fetch_former(Host &host, const WorkingCopy &copy, Drawing *committed, Drawing *former,
                  const std::string &path) {
    if (fetch_rows(host, copy, former, path) || !committed) return;
    if (zOidIsEqual(zDrawingTableId(committed), zDrawingTableId(former)))
        throw Failed(kNotFound,
                     say("%s: the rows of its last version are not here, and the server has none; "
                         "\"zev info\" tells which project it is",
                         path));
}

// What holds for all files of a run.
struct Run {
    dxf::Match match;
    Thumbnails *thumbnails; // null where none are wanted
};

void import_one(Host &host, const WorkingCopy &copy, const Item &item, const Run &run) {
    const auto &[source, target, makes_directories] = item;
    if (!is_drawing_name(target))
        throw Failed(kInvalid, say("%s: a drawing's name ends in .dwx", target));
    std::string path = copy.relative(target);
    fs::path file = copy.absolute(path);
    require_own_place(copy, path, target);
    if (makes_directories) fs::create_directories(file.parent_path());
    if (!fs::is_directory(file.parent_path()))
        throw Failed(kNotFound,
                     say("%s: there is no such directory; \"zev mkdir\" makes one", target));
    if (fs::exists(source) && !fs::is_regular_file(source))
        throw Failed(kInvalid, say("%s: is no regular file", source));
    OwnedDrawing head = committed(copy, path);
    dxf::Import request{.repository = copy.repository(),
                        .source = wide_path(source),
                        .name = source,
                        .drawing = file.u16string(),
                        .path = path,
                        .committed = head.get(),
                        .notify = host.notify,
                        .fetch_rows = {},
                        .ask_tag = {},
                        .keep_former = [&] { keep_former(copy, path); },
                        .match = run.match};
    request.thumbnail = [&](const dxf::Document &document) { // an earlier one goes without them
        return run.thumbnails ? run.thumbnails->of(item.source, document) : std::string();
    };
    if (!origin_of(copy).empty()) {
        request.fetch_rows = [&](Drawing *drawing) {
            fetch_former(host, copy, head.get(), drawing, path);
        };
        request.ask_tag = [&](Table *table) { return ask_tag(host, copy, table, path); };
    }
    report_import(host, path, dxf::import_drawing(request));
}

// One of several that fails holds the others up no more than it must.
bool import_next(Host &host, const WorkingCopy &copy, const Item &item, const Run &run) try {
    import_one(host, copy, item, run);
    return true;
} catch (const Failed &failed) {
    if (failed.error_class == kCanceled) throw;
    host.out.fail(failed, kFailed);
    return false;
} catch (const fs::filesystem_error &error) {
    host.out.fail(failed_at(error), kFailed);
    return false;
}

// ---- What the words stand for

// The DXF files below a directory, in the order of their names. Links to directories are not
// followed, nor is a repository looked into.
class Folder {
  public:
    Folder(Host &host, const std::string &root) : host_(host), root_(root) { walk(root_); }

    const std::vector<fs::path> &files() const { return files_; }
    uint64_t others() const { return others_; }
    fs::path place(const fs::path &file) const { return file.lexically_relative(root_); }

  private:
    void walk(const fs::path &directory) {
        stop_on_break(host_.notify);
        std::error_code error;
        std::vector<fs::directory_entry> entries;
        for (fs::directory_iterator at(directory, error), end; !error && at != end;
             at.increment(error))
            entries.push_back(*at);
        if (error)
            host_.out.warn(say("%s: %s; left out", directory.string(), said(error.message())));
        std::sort(entries.begin(), entries.end());
        for (const fs::directory_entry &entry : entries) {
            std::error_code ignored;
            if (entry.is_directory(ignored) && !entry.is_symlink(ignored)) {
                if (entry.path().filename() != ".git") walk(entry.path());
            } else if (is_dxf_name(entry.path().string())) {
                files_.push_back(entry.path());
            } else {
                ++others_;
            }
        }
    }

    Host &host_;
    const fs::path root_;
    std::vector<fs::path> files_;
    uint64_t others_ = 0;
};

void add_folder(Host &host, const WorkingCopy &copy, const std::string &root,
                const std::string &directory, std::vector<Item> &items) {
    const Folder folder(host, root);
    if (folder.files().empty()) throw Failed(kNotFound, say("%s: holds no DXF file", root));
    for (const fs::path &file : folder.files())
        items.push_back(
            {file.string(), drawing_of(copy, file.string(), folder.place(file), directory), true});
    if (folder.others()) {
        const std::string text = say(folder.others() == 1 ? "%s: %s file is no DXF and left out"
                                                          : "%s: %s files are no DXF and left out",
                                     root, folder.others());
        host.out.line(text);
        host.out.record(Record("info").set(u"message", text));
    }
}

// One drawing for each, or none is begun.
void require_different(const std::vector<Item> &items) {
    std::map<std::u16string, std::string> known; // names that differ in case only are one
    for (const Item &item : items) {
        std::u16string name = wide_path(fs::path(item.target).lexically_normal().string());
        zStrlwrW(name.data());
        const auto [other, is_new] = known.try_emplace(std::move(name), item.source);
        if (!is_new)
            throw Failed(kInvalid, say("%s and %s would both become %s; import one after the other",
                                       other->second, item.source, item.target));
    }
}

// Where they are to go: a drawing, or a directory, which for a directory need not be there.
struct Place {
    std::string target, directory;
};

Place take_place(Paths &sources) {
    Place place;
    if (sources.size() < 2) return place;
    const std::string last = sources.back();
    const bool mirrors =
        std::any_of(sources.begin(), sources.end() - 1,
                    [](const std::string &source) { return fs::is_directory(source); });
    if (fs::is_directory(last) ||
        (mirrors && !fs::exists(last) && !is_drawing_name(last) && !is_dxf_name(last)))
        place.directory = last;
    else if (is_drawing_name(last) || (sources.size() == 2 && !is_dxf_name(last)))
        place.target = last;
    if (!place.directory.empty() || !place.target.empty()) sources.pop_back();
    if (!place.target.empty() && (sources.size() > 1 || mirrors))
        throw Failed(kInvalid, say("%s: more than one file goes into a directory", last));
    return place;
}

// Small files that become new drawings, of several; a large one's picture is made while its rows
// are written.
std::vector<std::string> pictured_ahead(const std::vector<Item> &items) {
    constexpr uintmax_t kSmall = 1 << 20;
    std::vector<std::string> files;
    std::error_code ignored;
    for (const Item &item : items)
        if (items.size() > 1 && fs::is_regular_file(item.source, ignored) &&
            fs::file_size(item.source, ignored) <= kSmall && !fs::exists(item.target, ignored))
            files.push_back(item.source);
    return files;
}

int run(Host &host, const Options &options) {
    WorkingCopy copy;
    const dxf::Match match = policy_of(options.match);
    Paths sources = options.words;
    const Place place = take_place(sources);
    std::vector<Item> items;
    for (const std::string &source : sources) {
        if (!place.target.empty())
            items.push_back({source, place.target});
        else if (fs::is_directory(source))
            add_folder(host, copy, source, place.directory, items);
        else
            items.push_back(
                {source, drawing_of(copy, source, fs::path(source).filename(), place.directory)});
    }
    require_different(items);
    std::optional<Thumbnails> thumbnails;
    if (wants_thumbnails(copy)) thumbnails.emplace(pictured_ahead(items));
    const Run how{match, thumbnails ? &*thumbnails : nullptr};
    if (options.words.size() <= 2 && items.size() == 1)
        return import_one(host, copy, items.front(), how), kDone;
    uint64_t failed = 0;
    for (const Item &item : items) {
        stop_on_break(host.notify);
        failed += !import_next(host, copy, item, how);
    }
    return failed ? kFailed : kDone;
}

} // namespace

extern const Verb kImportVerb{"import", Group::drawings, Nature::displaces,
                              bind<Options, declare, run>};

} // namespace host
