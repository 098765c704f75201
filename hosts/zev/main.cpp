// zev, the command line: reads the arguments, runs one verb, turns its outcome into an exit code.

#include "verbs.hpp"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>

namespace host {

namespace {

constexpr const char *kAbout =
    "Version control for drawings.\n\n"
    "A working day:\n"
    "  zev init project && cd project     a new working copy\n"
    "  zev import ~/plan.dxf              a DXF file becomes the drawing plan.dwx\n"
    "  zev add plan.dwx                   the next commit will hold it\n"
    "  zev commit -m \"First plan\"         keep this state\n"
    "  zev import ~/plan.dxf plan.dwx     read the file again after it was changed\n"
    "  zev diff plan.dwx                  which objects are not as committed\n"
    "  zev commit -m \"Moved a door\" plan.dwx\n"
    "  zev log                            what happened so far\n"
    "  zev export plan.dwx out.dxf        the DXF file back, byte for byte\n";

constexpr const char *kEpilogue =
    "Exit codes: 0 done, 1 failed, 2 usage, 3 not found, 4 conflicts remain, 5 no rights,\n"
    "6 cancelled, 7 locked by another process, 8 network, 9 refused by the server.\n"
    "A revision is HEAD, a branch, a tag, or the first digits of a commit; HEAD~2 is the second\n"
    "commit before it. \"zev VERB --help\" tells about a verb.";

struct Globals {
    bool json = false;
    std::string colour = "auto";
    std::string directory;
};

ColourMode colour_mode(const std::string &word) {
    if (word == "always") return ColourMode::always;
    return word == "never" ? ColourMode::never : ColourMode::automatic;
}

// Classes of the error record, and of what lies below some of them, as exit codes.
int exit_code(const Failed &failed) {
    constexpr int kAccess = 13, kPermission = 1;                          // system
    constexpr int kNotOwner = -36, kUnmerged = -10, kMergeConflict = -13; // objects
    constexpr int kUnauthorized = 401, kForbidden = 403, kNoSuch = 404;
    const bool denied = strstr(failed.what(), strerror(EACCES)); // below, only the text tells
    switch (failed.error_class) {
    case kInvalid:
        return kUsage;
    case kNotFound:
        return kMissing;
    case kCanceled:
        return kBroken;
    case kLocked:
        return kHeld;
    case kNetwork:
        return kNetworkDown;
    case kSystem:
        return failed.code == kAccess || failed.code == kPermission ? kRights : kFailed;
    case kGit:
        if (failed.code == kUnmerged || failed.code == kMergeConflict) return kConflicts;
        return failed.code == kNotOwner || denied ? kRights : kFailed;
    case kServer:
        if (failed.code == kUnauthorized || failed.code == kForbidden) return kRights;
        return failed.code == kNoSuch ? kMissing : kServerRefused;
    case kStore: // a table that another process has open
        if (denied) return kRights;
        return strstr(failed.what(), "/LOCK: ") ? kHeld : kFailed;
    default:
        return kFailed;
    }
}

// Declares the verbs; the one that is given leaves its work in `chosen`.
class CommandLine {
  public:
    using Work = std::function<int(Host &)>;

    CommandLine() {
        app_.require_subcommand(1);
        app_.fallthrough();
        app_.footer(kEpilogue);
        add_globals();
        add_staging_verbs();
        add_history_verbs();
        add_drawing_verbs();
    }

    // False after help was shown, or when the arguments are no good; then `code` is the exit code.
    bool parse(int argc, char **argv, int &code) try {
        app_.parse(argc, argv);
        return true;
    } catch (const CLI::CallForHelp &help) {
        code = app_.exit(help);
        return false;
    } catch (const CLI::ParseError &error) {
        report_usage(error.what(), argc, argv);
        code = kUsage;
        return false;
    }

    const Globals &globals() const { return globals_; }
    int run(Host &host) const { return chosen_(host); }

  private:
    void add_globals() {
        app_.add_option("-C", globals_.directory, "Work as if started in this directory")
            ->type_name("DIR");
        app_.add_flag("--json", globals_.json, "One JSON object a line on stdout, errors too");
        app_.add_option("--color", globals_.colour, "auto, always or never; NO_COLOR counts")
            ->check(CLI::IsMember({"auto", "always", "never"}))
            ->type_name("WHEN");
    }

    CLI::App *verb(const char *name, const char *about, const char *examples, Work work) {
        CLI::App *verb = app_.add_subcommand(name, about);
        verb->footer(examples);
        verb->fallthrough();
        verb->callback([this, work = std::move(work)] { chosen_ = work; });
        return verb;
    }

    void add_staging_verbs() {
        CLI::App *init = verb("init", "Make a new working copy",
                              "Examples:\n  zev init project\n  zev init        in this directory",
                              [this](Host &host) { return host::init(host, text_); });
        text_ = ".";
        init->add_option("directory", text_, "A new or an empty directory")->type_name("DIR");

        CLI::App *add = verb("add", "Mark files for the next commit",
                             "Directories are taken with all they hold; * and ? are wild.\n"
                             "Examples:\n  zev add plan.dwx\n  zev add details 'plans/*.dwx'",
                             [this](Host &host) { return host::add(host, paths_); });
        add->add_option("paths", paths_, "Files, directories, patterns")->required();

        CLI::App *mkdir = verb("mkdir", "Make directories that the next commit will hold",
                               "Example:\n  zev mkdir plans/ground-floor",
                               [this](Host &host) { return host::make_directories(host, paths_); });
        mkdir->add_option("directories", paths_, "New directories")->required();

        CLI::App *move = verb("mv", "Move or rename a file or a directory",
                              "Examples:\n  zev mv plan.dwx ground.dwx\n  zev mv plan.dwx plans",
                              [this](Host &host) { return host::move(host, text_, second_); });
        move->add_option("from", text_, "What to move")->required();
        move->add_option("to", second_, "New name, or a directory to move into")->required();

        CLI::App *commit = verb(
            "commit", "Keep a state of the files for good",
            "Without paths the commit holds what was added; with paths it holds these as they\n"
            "stand, whatever else was added.\n"
            "Examples:\n  zev commit -m \"First plan\"\n"
            "  zev commit -m \"Moved a door\" --author Ada plan.dwx",
            [this](Host &host) { return host::commit(host, commit_); });
        commit->add_option("-m,--message", commit_.message, "What was done")->required();
        commit->add_option("--author", commit_.author, "Who did it; else $ZEV_AUTHOR, else you");
        commit->add_option("paths", commit_.paths, "Only these files");
    }

    void add_history_verbs() {
        CLI::App *status =
            verb("status", "Show what differs from the last commit",
                 "+ marks what the next commit holds, ! what was changed again since.\n"
                 "Examples:\n  zev status\n  zev status plans --json",
                 [this](Host &host) { return host::status(host, paths_); });
        status->add_option("paths", paths_, "Only these files");

        CLI::App *log = verb("log", "Show the commits, newest first",
                             "Examples:\n  zev log\n  zev log -n 3 HEAD~2",
                             [this](Host &host) { return host::log(host, log_); });
        log->add_option("revision", log_.revision, "Where to begin")->type_name("REV");
        log->add_option("-n,--max-count", log_.count, "So many commits at most")
            ->check([](const std::string &text) {
                return text.starts_with('-') ? "a count can't be negative" : "";
            });

        CLI::App *show = verb("show", "Show a commit and the paths that it changed",
                              "Examples:\n  zev show HEAD\n  zev show 1a2b3c4d",
                              [this](Host &host) { return host::show(host, text_); });
        show->add_option("revision", text_, "A commit")->required()->type_name("REV");

        CLI::App *cat = verb("cat", "Write a file of a commit to stdout",
                             "Example:\n  zev cat HEAD~1:plan.dwx > old.dwx",
                             [this](Host &host) { return host::cat(host, text_); });
        cat->add_option("file", text_, "A commit, a colon, and a path from the top directory")
            ->required()
            ->type_name("REV:PATH");

        verb("verify", "Read all that was ever committed and report what is damaged",
             "Example:\n  zev verify", [](Host &host) { return host::verify(host); });
    }

    void add_drawing_verbs() {
        CLI::App *import =
            verb("import", "Read a DXF file into a drawing",
                 "A drawing that exists is changed: objects that are the same keep their keys, so\n"
                 "that only the others are stored. The work file changes; add or commit keeps it.\n"
                 "Examples:\n  zev import ~/plan.dxf\n  zev import ~/plan.dxf plans/ground.dwx",
                 [this](Host &host) { return host::import_drawing(host, import_); });
        import->add_option("file", import_.source, "An ASCII DXF file")->required();
        import->add_option("drawing", import_.drawing, "The .dwx file; else named as the DXF file");

        CLI::App *exporting =
            verb("export", "Write a drawing as the DXF file that it came from",
                 "Examples:\n  zev export plan.dwx\n  zev export plan.dwx - | less\n"
                 "  zev export plan.dwx old.dxf --rev HEAD~1",
                 [this](Host &host) { return host::export_drawing(host, export_); });
        exporting->add_option("drawing", export_.drawing, "A .dwx file")->required();
        exporting->add_option("file", export_.target, "The DXF file; - is stdout");
        exporting->add_option("--rev", export_.revision, "As it was in this commit")
            ->type_name("REV");
        exporting->add_flag("--force", export_.force, "Replace a file that was not named");

        CLI::App *diff = verb("diff", "Show which objects of a drawing changed",
                              "Without a revision the work file is compared with HEAD, with one\n"
                              "with that, with two the first with the second.\n"
                              "Examples:\n  zev diff plan.dwx\n  zev diff plan.dwx HEAD~1 HEAD",
                              [this](Host &host) { return host::diff(host, diff_); });
        diff->add_option("drawing", diff_.drawing, "A .dwx file")->required();
        diff->add_option("from", diff_.from, "Older version")->type_name("REV");
        diff->add_option("to", diff_.to, "Newer version")->type_name("REV");
    }

    // The arguments may not have been read as far as --json.
    static void report_usage(const std::string &what, int argc, char **argv) {
        Output out;
        auto is_json = [](const char *argument) { return std::string_view(argument) == "--json"; };
        out.setup(std::any_of(argv, argv + argc, is_json), ColourMode::automatic);
        out.fail(Failed(kInvalid, what + " (\"zev --help\" tells more)"), kUsage);
    }

    CLI::App app_{kAbout, "zev"};
    Globals globals_;
    Work chosen_;
    std::string text_, second_; // of verbs that take one or two words
    Paths paths_;
    CommitOptions commit_;
    LogOptions log_;
    ImportOptions import_;
    ExportOptions export_;
    DiffOptions diff_;
};

// The library for the length of the run.
struct Library {
    Library() { check(zGlobalInit(nullptr, nullptr), "zev can't start"); }
    ~Library() { zGlobalCleanup(); }
};

void enter(const std::string &directory) {
    std::error_code error;
    if (!directory.empty()) std::filesystem::current_path(directory, error);
    if (error) throw std::filesystem::filesystem_error({}, directory, error);
}

// What the system says of a path, in the form of the library's own messages.
Failed failed_at(const std::filesystem::filesystem_error &error) {
    const bool missing = error.code() == std::errc::no_such_file_or_directory;
    const std::string path = error.path1().string();
    return Failed(missing ? kNotFound : kSystem, error.code().value(),
                  (path.empty() ? "" : path + ": ") + error.code().message());
}

int run(const CommandLine &line, Output &out) try {
    Library library;
    try {
        enter(line.globals().directory);
        HostNotify notify(out);
        Host host{out, &notify};
        catch_break();
        return line.run(host);
    } catch (const Failed &failed) {
        const int code = exit_code(failed);
        const char *help = code == kHeld ? "; another process is at work there" : "";
        out.fail(Failed(failed.error_class, failed.code, failed.what() + std::string(help)), code);
        return code;
    } catch (const std::filesystem::filesystem_error &error) {
        const Failed failed = failed_at(error);
        out.fail(failed, exit_code(failed));
        return exit_code(failed);
    } catch (const std::exception &error) {
        out.fail(Failed(kOther, error.what()), kFailed);
        return kFailed;
    }
} catch (const Failed &failed) {
    out.fail(failed, kFailed);
    return kFailed;
}

} // namespace

} // namespace host

int main(int argc, char **argv) {
    using namespace host;
    CommandLine line;
    int code = kDone;
    if (!line.parse(argc, argv, code)) return code;
    Output out;
    out.setup(line.globals().json, colour_mode(line.globals().colour));
    code = run(line, out);
    if (out.finish() || code != kDone) return code;
    fputs("zev: stdout: can't be written\n", stderr);
    return kFailed;
}
