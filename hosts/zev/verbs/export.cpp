// export: drawings as the DXF files that they came from; a directory of the copy as one of such
// files, as it stands or as it was in a commit.

#include "bytes.hpp"
#include "dxf/drawing.hpp"
#include "keep_files.hpp"
#include "needed_rows.hpp"
#include "server_history.hpp"
#include "target.hpp"

#include <map>

namespace host {

namespace fs = std::filesystem;

namespace {

struct Options {
    Paths words;              // drawings, directories, patterns; last, where to
    std::string target;       // of the parser's alone
    std::string revision;     // empty: as it stands in the work directory
    bool with_files = false;  // of directories also what is no drawing
    bool as_imported = false; // the bytes of the last import
    bool force = false;       // what the target displaces goes to the trash without a question
};

void declare(Command &verb, Options &options) {
    verb.description("Write drawings as the DXF files that they came from");
    verb.footer(
        "Last comes the DXF file for one drawing, or a directory for all, which is made if\n"
        "it isn't there; without it each DXF file lies beside its drawing. A directory is\n"
        "taken with all the drawings in it, each in its place below the target; --files\n"
        "takes its other files, too, as they are.\n"
        "Where another program has saved a drawing, objects that it didn't change have the\n"
        "form that they had before; --as-imported gives the bytes of its file.\n"
        "Examples:\n  zev export plan.dwx\n  zev export plan.dwx - | less\n"
        "  zev export plan.dwx old.dxf --rev HEAD~1\n"
        "  zev export plan.dwx hall.dwx ../send\n"
        "  zev export . ../as-built --rev v1 --files");
    verb.add_option("drawings", options.words, "Drawings, directories, patterns")->required();
    // The one above takes it, too, and is told apart later.
    verb.add_option("target", options.target, "The DXF file, or a directory; - is stdout");
    verb.add_option("--rev", options.revision, "As it was in this commit")->type_name("REV");
    verb.add_flag("--files", options.with_files, "Of directories other files, too");
    verb.add_flag("--as-imported", options.as_imported,
                  "The very bytes of the last import that was written");
    verb.add_flag("--force", options.force,
                  "A file of that name goes to the trash, without a question");
}

OwnedDrawing read_drawing(const std::u16string &file, const std::string &name) {
    zRaiseError(0, 0, nullptr, nullptr); // a bad format raises nothing
    OwnedDrawing drawing(zDrawingRead(file.c_str()));
    if (drawing) return drawing;
    if (zErrorClass()) fail_raised(name);
    throw Failed(kOther, say("%s: is no drawing", name));
}

void tell_written(Host &host, const std::string &target, uint64_t size, const Drawing *drawing) {
    std::string text = target + ": " + bytes_text(size);
    Record record("export");
    record.set(u"path", target).set(u"bytes", size);
    if (drawing) {
        const uint64_t objects = zDrawingObjectCount(drawing);
        text += ", " + plural(objects, "object");
        record.set(u"objects", objects);
    }
    host.out.line(text);
    host.out.record(record);
}

void export_to(Host &host, const WorkingCopy &copy, Drawing *drawing, const std::string &name,
               const std::string &target, dxf::Form form) {
    auto run = [&](auto &&write) {
        dxf::export_drawing(copy.repository(), drawing, name, host.notify, write, form);
    };
    if (target == "-")
        return run([](std::string_view bytes) { fwrite(bytes.data(), 1, bytes.size(), stdout); });
    Target file(&copy, target);
    uint64_t size = 0;
    run([&](std::string_view bytes) {
        file.write(bytes);
        size += bytes.size();
    });
    file.finish();
    tell_written(host, target, size, drawing);
}

// A version of a drawing as a file: from a commit, or the work file itself.
class Version {
  public:
    Version(const Host &host, const WorkingCopy &copy, const std::string &path,
            const std::string &revision) {
        if (revision.empty()) {
            file_ = copy.absolute(path).u16string();
            if (!zPathFileExists(file_.c_str()))
                throw Failed(kNotFound, say("%s: no such file in the work directory", path));
        } else {
            temporary_ = std::make_unique<TempFile>();
            file_ = temporary_->path();
            OwnedCommit commit = commit_with(host, copy, revision, path);
            copy.save(copy.file(commit.get(), path).get(), file_);
        }
        drawing_ = read_drawing(file_, revision.empty() ? path : revision + ":" + path);
    }
    Drawing *drawing() const { return drawing_.get(); }

  private:
    std::unique_ptr<TempFile> temporary_;
    std::u16string file_;
    OwnedDrawing drawing_;
};

// One file of the copy and what it is to become.
struct Item {
    std::string path, target;
    bool in_directory; // which is made if it isn't there
};

void export_drawing(Host &host, const WorkingCopy &copy, const Options &options, const Item &item) {
    require_export_right(copy, item.path);
    Version version(host, copy, item.path, options.revision);
    fetch_rows(host, copy, version.drawing(), item.path);
    export_to(host, copy, version.drawing(), item.path, item.target,
              options.as_imported ? dxf::Form::imported : dxf::Form::version);
}

// The bytes of a file that is no drawing.
void copy_file(Host &host, const WorkingCopy &copy, const Options &options, const Item &item) {
    require_export_right(copy, item.path);
    Target file(&copy, item.target);
    uint64_t size = 0;
    const auto put = [&](std::string_view bytes) {
        file.write(bytes);
        size += bytes.size();
    };
    if (options.revision.empty()) {
        const OwnedFile in(check(zFileOpen(copy.absolute(item.path).u16string().c_str(), u"rb")));
        char block[1 << 16];
        while (const size_t count = fread(block, 1, sizeof block, in.get())) put({block, count});
        if (ferror(in.get())) throw Failed(kSystem, say("%s: can't be read", item.path));
    } else {
        const OwnedCommit commit = commit_with(host, copy, options.revision, item.path);
        const OwnedOdb odb(check(zOdbOpen(copy.repository())));
        Bytes bytes;
        read_object(odb.get(), zTreeEntryId(copy.file(commit.get(), item.path).get()), bytes,
                    item.path);
        put(bytes.data);
    }
    file.finish();
    tell_written(host, item.target, size, nullptr);
}

void export_one(Host &host, const WorkingCopy &copy, const Options &options, const Item &item) {
    if (is_drawing_name(item.target))
        throw Failed(kInvalid, say("%s: is the name of a drawing; name a DXF file", item.target));
    if (item.target != "-") require_free(host.notify, &copy, item.target, options.force);
    if (item.in_directory) fs::create_directories(fs::path(item.target).parent_path());
    is_drawing_name(item.path) ? export_drawing(host, copy, options, item)
                               : copy_file(host, copy, options, item);
}

// One of several that fails, or is declined, holds the others up no more than it must. Gives the
// exit code.
int export_next(Host &host, const WorkingCopy &copy, const Options &options, const Item &item) try {
    export_one(host, copy, options, item);
    return kDone;
} catch (const Failed &failed) {
    if (broken()) throw;
    const int code = failed.error_class == kCanceled ? kBroken : kFailed;
    host.out.fail(failed, code);
    return code;
} catch (const fs::filesystem_error &error) {
    host.out.fail(failed_at(error), kFailed);
    return kFailed;
}

// ---- What the words stand for

// The files of a commit, or of the work directory: what is tracked there, and drawings that aren't.
std::vector<std::string> all_files(Host &host, const WorkingCopy &copy,
                                   const std::string &revision) {
    std::vector<std::string> files;
    if (!revision.empty()) {
        const OwnedCommit commit = commit_with(host, copy, revision, "");
        const OwnedTree tree(check(zCommitTree(commit.get())));
        const OwnedSpec all(check(zPathSpecNew(nullptr, 0)));
        const Owned<Vector, zPathListFree> list(check(zTreeMatch(tree.get(), all.get())));
        for (uint64_t i = 0; i < zPathListLength(list.get()); ++i)
            files.push_back(narrow(zPathListEntry(list.get(), i)));
        return files;
    }
    const OwnedIndex index(check(zIndexHead(copy.repository(), false)));
    const OwnedSpec spec(check(zPathSpecNew(nullptr, Z_SPEC_NO_IGNORED | Z_SPEC_NO_RENAMED)));
    const OwnedStatus list(check(zStatusListBuild(index.get(), spec.get())));
    for (uint64_t i = 0; i < zStatusListLength(list.get()); ++i) {
        const StatusEntry *entry = zStatusListEntry(list.get(), i);
        std::string path = narrow(zStatusEntryPath(entry));
        if (zStatusEntryStatus(entry) == Z_KIND_UNTRACKED && !is_drawing_name(path)) continue;
        if (fs::is_regular_file(fs::symlink_status(copy.absolute(path))))
            files.push_back(std::move(path));
    }
    return files;
}

bool is_directory(const Host &host, const WorkingCopy &copy, const std::string &revision,
                  const std::string &path) {
    if (revision.empty()) return fs::is_directory(copy.absolute(path));
    if (path.empty()) return true;
    const OwnedCommit commit = commit_with(host, copy, revision, path);
    const OwnedTreeEntry entry = copy.entry(commit.get(), path);
    return entry && zTreeEntryType(entry.get()) == Z_OBJECT_TREE;
}

class Plan {
  public:
    Plan(Host &host, const WorkingCopy &copy, const Options &options)
        : host_(host), copy_(copy), options_(options), sources_(options.words) {
        find_target();
        for (const std::string &source : sources_) add(source);
        if (items_.size() > 1 && (target_ == "-" || (!target_.empty() && !is_directory_)))
            throw Failed(kInvalid, say("%s: more than one drawing goes into a directory", target_));
    }
    const std::vector<Item> &items() const { return items_; }
    bool is_single() const { return is_single_; }

  private:
    // Where nothing of the name is, it is a directory if it has to be one.
    void find_target() {
        if (sources_.size() > 1 && !is_drawing_name(sources_.back())) {
            target_ = sources_.back();
            sources_.pop_back();
        }
        const std::string &first = sources_.front();
        is_single_ = sources_.size() == 1 && is_drawing_name(first) && !is_pattern(first);
        is_directory_ = !target_.empty() && target_ != "-" &&
                        (!is_single_ || fs::is_directory(target_) || target_.ends_with('/'));
        if (is_directory_ && fs::exists(target_) && !fs::is_directory(target_))
            throw Failed(kInvalid, say("%s: is no directory", target_));
    }

    bool is_pattern(const std::string &word) const {
        return is_wild(word) && !copy_.is_on_disk(copy_.relative(word));
    }

    void add(const std::string &source) {
        const std::string below = copy_.relative(source);
        const size_t before = items_.size();
        if (is_pattern(source)) {
            const OwnedSpec spec = copy_.spec({source}, 0, nullptr);
            for (const std::string &path : files())
                if (is_drawing_name(path) && zPathSpecMatched(spec.get(), wide(path).c_str()))
                    add(path, fs::path(path).filename(), beside(path));
        } else if (is_directory(host_, copy_, options_.revision, below)) {
            for (const std::string &path : files())
                if (same_or_below(path, below) && path != below && is_wanted(path))
                    add(path, below.empty() ? path : path.substr(below.size() + 1), beside(path));
        } else {
            require_file(source, below);
            return add(below, fs::path(below).filename(), source);
        }
        if (items_.size() == before) throw Failed(kNotFound, say("%s: holds no drawing", source));
    }

    // Before anything is written.
    void require_file(const std::string &source, const std::string &path) const {
        if (!is_drawing_name(path) && (!options_.with_files || target_.empty()))
            throw Failed(kInvalid, say("%s: is no drawing", source));
        if (!options_.revision.empty())
            copy_.file(commit_with(host_, copy_, options_.revision, path).get(), path);
        else if (!fs::is_regular_file(copy_.absolute(path)))
            throw Failed(kNotFound, say("%s: no such file in the work directory", source));
    }

    bool is_wanted(const std::string &path) const {
        return is_drawing_name(path) || (options_.with_files && !is_keep(path) && !target_.empty());
    }
    std::string beside(const std::string &path) const {
        return copy_.absolute(path).lexically_proximate(fs::current_path()).string();
    }

    // `place` is below a target directory, `own` beside the drawing.
    void add(const std::string &path, const fs::path &place, const std::string &own) {
        fs::path to = target_;
        if (is_directory_) to /= place;
        if (target_.empty()) to = own;
        if ((is_directory_ || target_.empty()) && is_drawing_name(path))
            to.replace_extension(".dxf");
        std::u16string name = wide_path(fs::absolute(to).lexically_normal().string());
        zStrlwrW(name.data());
        const auto [other, is_new] = targets_.try_emplace(std::move(name), path);
        if (!is_new && to != "-")
            throw Failed(kInvalid, say("%s and %s would both become %s; export one after the other",
                                       other->second, path, to.string()));
        items_.push_back({path, to.string(), is_directory_});
    }

    const std::vector<std::string> &files() {
        if (!files_) files_ = all_files(host_, copy_, options_.revision);
        return *files_;
    }

    Host &host_;
    const WorkingCopy &copy_;
    const Options &options_;
    Paths sources_;
    std::string target_;
    bool is_single_ = false, is_directory_ = false;
    std::optional<std::vector<std::string>> files_;
    std::vector<Item> items_;
    std::map<std::u16string, std::string> targets_; // names that differ in case only are one
};

int run(Host &host, const Options &options) {
    WorkingCopy copy;
    const Plan plan(host, copy, options);
    if (host.out.json() && plan.items().front().target == "-")
        throw Failed(kInvalid, "a DXF file on stdout can't go with --json");
    if (plan.is_single()) return export_one(host, copy, options, plan.items().front()), kDone;
    int code = kDone;
    for (const Item &item : plan.items()) {
        stop_on_break(host.notify);
        const int came = export_next(host, copy, options, item);
        if (came != kDone && code != kFailed) code = came;
    }
    return code;
}

} // namespace

extern const Verb kExportVerb{"export", Group::drawings, Nature::plain,
                              bind<Options, declare, run>};

} // namespace host
