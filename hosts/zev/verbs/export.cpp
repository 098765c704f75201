// export: drawings as the DXF files that they came from.

#include "dxf/drawing.hpp"
#include "needed_rows.hpp"
#include "permissions.hpp"
#include "server_history.hpp"
#include "verb.hpp"

#include <unistd.h>

namespace host {

namespace fs = std::filesystem;

namespace {

struct Options {
    std::string drawing;
    std::string target;   // empty: the drawing's name with .dxf; "-": stdout
    std::string revision; // empty: as it stands in the work directory
    bool force = false;   // what the target displaces goes to the trash without a question
};

void declare(CLI::App &verb, Options &options) {
    verb.description("Write a drawing as the DXF file that it came from");
    verb.footer("Examples:\n  zev export plan.dwx\n  zev export plan.dwx - | less\n"
                "  zev export plan.dwx old.dxf --rev HEAD~1");
    verb.add_option("drawing", options.drawing, "A .dwx file")->required();
    verb.add_option("file", options.target, "The DXF file; - is stdout");
    verb.add_option("--rev", options.revision, "As it was in this commit")->type_name("REV");
    verb.add_flag("--force", options.force,
                  "A file of that name goes to the trash, without a question");
}

OwnedDrawing read_drawing(const std::u16string &file, const std::string &name) {
    zRaiseError(0, 0, nullptr, nullptr); // a bad format raises nothing
    OwnedDrawing drawing(zDrawingRead(file.c_str()));
    if (drawing) return drawing;
    if (zErrorClass()) fail_raised(name);
    throw Failed(kOther, name + ": is no drawing");
}

// A file that appears under its name when it is complete; what had the name goes to the trash, the
// working copy's or the desktop's. What is no regular file, as a pipe or a terminal, is written to
// directly.
class Target {
  public:
    Target(const WorkingCopy &copy, const std::string &path) : copy_(copy), path_(path) {
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
        displace();
        check(zMove(wide(temporary_.string()).c_str(), wide(path_).c_str(), true));
        temporary_.clear();
    }

  private:
    void displace() const {
        if (!fs::exists(fs::symlink_status(path_))) return;
        if (const auto below = copy_.below(path_); below && !below->empty())
            check(zTrashMoveInto(copy_.repository(), wide(*below).c_str()), path_);
        else if (!zDrop(wide_path(fs::absolute(path_).string()).c_str()))
            throw fs::filesystem_error({}, path_, {errno, std::generic_category()});
    }
    fs::path sibling() const {
        return fs::path(path_).replace_filename(".zev-" + std::to_string(getpid()) + ".tmp");
    }
    [[noreturn]] void fail() const { throw Failed(kSystem, path_ + ": can't be written"); }

    const WorkingCopy &copy_;
    std::string path_;
    fs::path temporary_;
    OwnedFile file_;
};

void export_to(Host &host, const WorkingCopy &copy, Drawing *drawing, const Options &options,
               const std::string &target) {
    auto run = [&](auto &&write) {
        dxf::export_drawing(copy.repository(), drawing, options.drawing, host.notify, write);
    };
    if (target == "-")
        return run([](std::string_view bytes) { fwrite(bytes.data(), 1, bytes.size(), stdout); });
    Target file(copy, target);
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
    Version(const Host &host, const WorkingCopy &copy, const std::string &path,
            const std::string &revision) {
        if (revision.empty()) {
            file_ = copy.absolute(path).u16string();
            if (!zPathFileExists(file_.c_str()))
                throw Failed(kNotFound, path + ": no such file in the work directory");
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

void require_free(Host &host, const WorkingCopy &copy, const Options &options,
                  const std::string &target) {
    if (is_drawing_name(target))
        throw Failed(kInvalid, target + ": is the name of a drawing; name a DXF file");
    if (fs::is_directory(target))
        throw Failed(kInvalid, target + ": is a directory; name the file");
    if (copy.in_repository(target)) throw Failed(kInvalid, target + ": lies in the repository");
    const fs::file_status status = fs::symlink_status(target);
    if (options.force || (!fs::is_regular_file(status) && !fs::is_symlink(status))) return;
    const int32_t answer = ask(host.notify, {.id = "zev.export.replace",
                                             .title = "",
                                             .instruction = "Replace " + target + "?",
                                             .content = "The file that is there goes to the trash.",
                                             .buttons = {"Replace", "Keep"}});
    if (answer == 1) return;
    if (!host.notify->outcome().unanswered) throw Failed(kCanceled, "nothing was written");
    throw Failed(kExists, target + ": is there already; --force says that it may go to the trash");
}

// What a server's rules let out of the team.
void require_right(const WorkingCopy &copy, const std::string &path) {
    constexpr int kForbidden = 403;
    const Permission permission = Permissions(copy).of(path);
    if (permission.bits & Z_PRIVILEGE_EXPORT) return;
    throw Failed(kServer, kForbidden,
                 path + ": you may not export it" +
                     (permission.rule.empty() ? "" : ", by the rule on " + permission.rule));
}

int run(Host &host, const Options &options) {
    WorkingCopy copy;
    std::string path = copy.relative(options.drawing), target = options.target;
    if (target.empty()) target = fs::path(options.drawing).replace_extension(".dxf").string();
    if (target == "-" && host.out.json())
        throw Failed(kInvalid, "a DXF file on stdout can't go with --json");
    if (target != "-") require_free(host, copy, options, target);
    require_right(copy, path);
    Version version(host, copy, path, options.revision);
    fetch_rows(host, copy, version.drawing(), path);
    export_to(host, copy, version.drawing(), options, target);
    return kDone;
}

} // namespace

extern const Verb kExportVerb{"export", Group::drawings, Nature::plain,
                              bind<Options, declare, run>};

} // namespace host
