// import, export, diff: drawings and their DXF files.

#include "verbs.hpp"

#include "dxf/drawing.hpp"
#include "dxf/reader.hpp"
#include "dxf/rows.hpp"

#include <algorithm>
#include <map>
#include <unistd.h>

namespace host {

namespace fs = std::filesystem;

namespace {

// Beside the file if that lies in the working copy, else here.
std::string drawing_of(const WorkingCopy &copy, const std::string &source) {
    fs::path name = fs::path(source).filename().replace_extension(".dwx");
    try {
        copy.relative(source);
        return (fs::path(source).parent_path() / name).string();
    } catch (const Failed &) {
        return name.string();
    }
}

OwnedDrawing read_drawing(const std::u16string &file, const std::string &name) {
    zRaiseError(0, 0, nullptr, nullptr); // a bad format raises nothing
    OwnedDrawing drawing(zDrawingRead(file.c_str()));
    if (drawing) return drawing;
    if (zErrorClass()) fail_raised(name);
    throw Failed(kOther, name + ": is no drawing");
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
    auto number = [](uint64_t value) { return std::to_string(value); };
    std::string text = path + ": " + number(result.objects) + " objects";
    if (!result.written) return host.out.line(text + ", nothing has changed");
    host.out.line(text + ", " + number(result.added) + " added, " + number(result.modified) +
                  " modified, " + number(result.removed) + " removed, " + number(result.unchanged) +
                  " unchanged; " + number(result.rows) + " blocks stored, " +
                  narrow(zNumToHumanBytes(result.bytes)));
}

// A file that appears under its name when it is complete. What is no regular file, as a pipe or
// a terminal, is written to directly.
class Target {
  public:
    explicit Target(const std::string &path) : path_(path) {
        bool direct = fs::exists(path) && !fs::is_regular_file(path);
        if (!direct) temporary_ = sibling();
        std::u16string name = wide_path(direct ? path : temporary_.string());
        file_.reset(zFileOpen(name.c_str(), direct ? u"wb" : u"wbx"));
        if (!file_) throw Failed(zErrorClass(), zErrorCode(), path + ": " + narrow(zErrorReason()));
    }
    ~Target() {
        std::error_code ignored;
        if (!temporary_.empty()) fs::remove(temporary_, ignored);
    }

    void write(std::string_view bytes) {
        if (fwrite(bytes.data(), 1, bytes.size(), file_.get()) != bytes.size()) fail();
    }

    void finish() {
        if (!zFileClose(file_.release())) fail();
        if (temporary_.empty()) return;
        check(zMove(wide(temporary_.string()).c_str(), wide(path_).c_str(), true));
        temporary_.clear();
    }

  private:
    fs::path sibling() const {
        return fs::path(path_).replace_filename(".zev-" + std::to_string(getpid()) + ".tmp");
    }
    [[noreturn]] void fail() const { throw Failed(kSystem, path_ + ": can't be written"); }

    std::string path_;
    fs::path temporary_;
    OwnedFile file_;
};

void export_to(Host &host, const WorkingCopy &copy, Drawing *drawing, const ExportOptions &options,
               const std::string &target) {
    auto run = [&](auto &&write) {
        dxf::export_drawing(copy.repository(), drawing, options.drawing, host.notify, write);
    };
    if (target == "-")
        return run([](std::string_view bytes) { fwrite(bytes.data(), 1, bytes.size(), stdout); });
    Target file(target);
    uint64_t size = 0;
    run([&](std::string_view bytes) {
        file.write(bytes);
        size += bytes.size();
    });
    file.finish();
    host.out.line(target + ": " + narrow(zNumToHumanBytes(size)) + ", " +
                  std::to_string(zDrawingObjectCount(drawing)) + " objects");
    host.out.record(Record("export")
                        .set(u"path", target)
                        .set(u"bytes", size)
                        .set(u"objects", zDrawingObjectCount(drawing)));
}

// A version of a drawing as a file: from a commit, or the work file itself.
class Version {
  public:
    Version(const WorkingCopy &copy, const std::string &path, const std::string &revision) {
        if (revision.empty()) {
            file_ = copy.absolute(path).u16string();
            if (!zPathFileExists(file_.c_str()))
                throw Failed(kNotFound, path + ": no such file in the work directory");
        } else {
            temporary_ = std::make_unique<TempFile>();
            file_ = temporary_->path();
            OwnedCommit commit = copy.commit(revision);
            copy.save(copy.file(commit.get(), path).get(), file_);
        }
        drawing_ = read_drawing(file_, revision.empty() ? path : revision + ":" + path);
    }
    const std::u16string &file() const { return file_; }
    Drawing *drawing() const { return drawing_.get(); }

  private:
    std::unique_ptr<TempFile> temporary_;
    std::u16string file_;
    OwnedDrawing drawing_;
};

struct Change {
    const char *name;
    Colour colour;
    uint64_t number;
    DrawingKey key; // of the version that has the object
    std::string kind;
};

class Difference {
  public:
    Difference(const WorkingCopy &copy, const Version &from, const Version &to)
        : copy_(copy), from_(from), to_(to) {}

    void run(Host &host, const std::string &name) {
        Vector *added = nullptr, *modified = nullptr, *removed = nullptr;
        bool same = zDrawingGetDifference(from_.file().c_str(), to_.file().c_str(), &added,
                                          &modified, &removed);
        OwnedVector owned[] = {OwnedVector(added), OwnedVector(modified), OwnedVector(removed)};
        if (!same) throw Failed(kOther, name + ": the two versions are kept in different tables");
        collect(added, "added", Colour::green);
        collect(modified, "modified", Colour::yellow);
        uint64_t newer = changes_.size();
        collect(removed, "removed", Colour::red);
        find_keys(to_.drawing(), 0, newer);
        find_keys(from_.drawing(), newer, changes_.size());
        read_kinds(host, name);
        print(host, zVectorSize(added), zVectorSize(modified), zVectorSize(removed));
    }

  private:
    void collect(const Vector *numbers, const char *name, Colour colour) {
        for (uint64_t i = 0; i < zVectorSize(numbers); ++i) {
            uint64_t number = 0;
            check(zVectorAt(numbers, i, &number));
            changes_.push_back({name, colour, number, {}, {}});
        }
    }

    // Keys of the changes in a range, from the manifest that lists them.
    void find_keys(Drawing *drawing, uint64_t begin, uint64_t end) {
        std::map<uint64_t, Change *> wanted;
        for (uint64_t i = begin; i < end; ++i) wanted[changes_[i].number] = &changes_[i];
        if (wanted.empty()) return;
        for (uint64_t i = 0, n = zDrawingObjectCount(drawing); i < n; ++i) {
            DrawingKey key = *zDrawingObjectGetAt(drawing, i);
            auto at = wanted.find(key.object);
            if (at != wanted.end()) at->second->key = key;
        }
    }

    void read_kinds(Host &host, const std::string &name) {
        if (changes_.empty()) return;
        std::vector<Change *> order;
        for (Change &change : changes_) order.push_back(&change);
        std::sort(order.begin(), order.end(),
                  [](Change *a, Change *b) { return dxf::before(a->key, b->key); });
        std::vector<DrawingKey> keys;
        for (Change *change : order) keys.push_back(change->key);
        OwnedTable table =
            dxf::open_table(copy_.repository(), zDrawingTableId(to_.drawing()), name);
        dxf::read_rows(table.get(), keys, host.notify, [&](size_t place, std::string_view value) {
            order[place]->kind = dxf::record_type(value);
        });
    }

    void print(Host &host, uint64_t added, uint64_t modified, uint64_t removed) {
        for (const Change &change : changes_) print_change(host, change);
        print_blocks(host);
        host.out.line(std::to_string(added) + " added, " + std::to_string(modified) +
                      " modified, " + std::to_string(removed) + " removed");
        host.out.record(Record("summary")
                            .set(u"added", added)
                            .set(u"modified", modified)
                            .set(u"removed", removed));
    }

    // An object without handle shows its number among those.
    static void print_change(Host &host, const Change &change) {
        char handle[24];
        bool named = change.number < dxf::kFirstNumber;
        snprintf(handle, sizeof handle, named ? "%llX" : "#%llu",
                 static_cast<unsigned long long>(named ? change.number
                                                       : change.number - dxf::kFirstNumber));
        if (host.out.json())
            return host.out.record(Record("object")
                                       .set(u"change", change.name)
                                       .set(u"handle", handle)
                                       .set(u"kind", change.kind));
        host.out.line(host.out.paint(change.colour, padded(change.name, 10)) + padded(handle, 10) +
                      change.kind);
    }

    void print_blocks(Host &host) {
        Drawing *from = from_.drawing(), *to = to_.drawing();
        print_block(host, "header", *zDrawingHeader(from), *zDrawingHeader(to));
        uint64_t old_count = zDrawingClassCount(from), count = zDrawingClassCount(to);
        bool same = old_count == count;
        for (uint64_t i = 0; same && i < count; ++i)
            same = zDrawingKeyEqual(zDrawingClassGetAt(from, i), zDrawingClassGetAt(to, i));
        print_block(host, "classes", {same, 0}, {true, 0});
        print_block(host, "layout", *zDrawingDS(from), *zDrawingDS(to));
    }

    static void print_block(Host &host, const char *name, DrawingKey from, DrawingKey to) {
        if (zDrawingKeyEqual(&from, &to)) return;
        host.out.line(host.out.paint(Colour::yellow, padded("modified", 10)) + "the " + name);
        host.out.record(Record("block").set(u"change", "modified").set(u"block", name));
    }

    const WorkingCopy &copy_;
    const Version &from_, &to_;
    std::vector<Change> changes_;
};

} // namespace

int import_drawing(Host &host, const ImportOptions &options) {
    WorkingCopy copy;
    std::string target =
        options.drawing.empty() ? drawing_of(copy, options.source) : options.drawing;
    if (!is_drawing_name(target))
        throw Failed(kInvalid, target + ": a drawing's name ends in .dwx");
    std::string path = copy.relative(target);
    fs::path file = copy.absolute(path);
    if (!fs::is_directory(file.parent_path()))
        throw Failed(kNotFound, target + ": there is no such directory; \"zev mkdir\" makes one");
    if (fs::exists(options.source) && !fs::is_regular_file(options.source))
        throw Failed(kInvalid, options.source + ": is no regular file");
    OwnedDrawing head = committed(copy, path);
    dxf::Import request{.repository = copy.repository(),
                        .source = wide_path(options.source),
                        .name = options.source,
                        .drawing = file.u16string(),
                        .path = path,
                        .committed = head.get(),
                        .notify = host.notify};
    report_import(host, path, dxf::import_drawing(request));
    return kDone;
}

int export_drawing(Host &host, const ExportOptions &options) {
    WorkingCopy copy;
    std::string path = copy.relative(options.drawing), target = options.target;
    if (target.empty()) {
        target = fs::path(options.drawing).replace_extension(".dxf").string();
        if (!options.force && fs::exists(target))
            throw Failed(kExists, target + ": is there already; name it, or give --force");
    }
    if (target == "-" && host.out.json())
        throw Failed(kInvalid, "a DXF file on stdout can't go with --json");
    if (target != "-" && fs::is_directory(target))
        throw Failed(kInvalid, target + ": is a directory; name the file");
    if (target != "-" && copy.in_repository(target))
        throw Failed(kInvalid, target + ": lies in the repository");
    Version version(copy, path, options.revision);
    export_to(host, copy, version.drawing(), options, target);
    return kDone;
}

int diff(Host &host, const DiffOptions &options) {
    WorkingCopy copy;
    std::string path = copy.relative(options.drawing);
    Version from(copy, path, options.from.empty() ? "HEAD" : options.from);
    Version to(copy, path, options.to);
    Difference(copy, from, to).run(host, path);
    return kDone;
}

} // namespace host
