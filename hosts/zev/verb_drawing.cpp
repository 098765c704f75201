// import, export: drawings and their DXF files.

#include "verbs.hpp"

#include "dxf/drawing.hpp"

#include <unistd.h>

namespace host {

namespace fs = std::filesystem;

namespace {

// In the directory if one is given, else beside the file if that lies in the working copy, else
// here.
std::string drawing_of(const WorkingCopy &copy, const std::string &source,
                       const std::string &directory) {
    fs::path name = fs::path(source).filename().replace_extension(".dwx");
    if (!directory.empty()) return (fs::path(directory) / name).string();
    try {
        copy.relative(source);
        return (fs::path(source).parent_path() / name).string();
    } catch (const Failed &) {
        return name.string();
    }
}

bool is_dxf_name(const std::string &path) {
    return zStrcasesameA(fs::path(path).extension().c_str(), ".dxf");
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
    Drawing *drawing() const { return drawing_.get(); }

  private:
    std::unique_ptr<TempFile> temporary_;
    std::u16string file_;
    OwnedDrawing drawing_;
};

} // namespace

namespace {

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
                        .notify = host.notify};
    report_import(host, path, dxf::import_drawing(request));
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

} // namespace

int import_drawing(Host &host, const ImportOptions &options) {
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
    uint64_t failed = 0;
    for (const std::string &source : sources) {
        stop_on_break(host.notify);
        failed += !import_next(host, copy, source, drawing_of(copy, source, directory));
    }
    return failed ? kFailed : kDone;
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

} // namespace host
