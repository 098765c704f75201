// zev, the command line: reads the arguments, runs one verb, turns its outcome into an exit code.

#include "describe.hpp"
#include "session.hpp"
#include "usage.hpp"
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
    bool no_pager = false;
    std::string colour = "auto";
    std::string directory;
    Answers answers;
};

// Verbs that only show something, and much of it.
bool is_paged(const std::string &verb) {
    return verb == "log" || verb == "show" || verb == "diff" || verb == "blame" ||
           verb == "status" || verb == "conflicts" || verb == "list" || verb == "find";
}

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
        app_.get_formatter()->label("SUBCOMMAND", "VERB");
        app_.get_formatter()->label("Positionals", "Arguments");
        app_.get_formatter()->label("Excludes", "not with");
        add_globals();
        group_ = "The work directory";
        add_staging_verbs();
        group_ = "What was committed";
        add_history_verbs();
        group_ = "Drawings";
        add_drawing_verbs();
        group_ = "Conflicts and the trash";
        add_rescue_verbs();
        add_branch_verbs();
        add_generator();
    }

    // False after help or the version was shown, or when the arguments are no good; then `code` is
    // the exit code.
    bool parse(int argc, char **argv, int &code) try {
        char **mark = std::find_if(argv, argv + argc, [](const char *argument) {
            return std::string_view(argument) == "--";
        });
        if (mark != argv + argc) behind_mark_ = static_cast<size_t>(argv + argc - mark - 1);
        std::vector<const char *> words(argv, argv + argc);
        if (argc > 1 && std::string_view(words[1]) == "help") { // "help VERB" is "VERB --help"
            words.erase(words.begin() + 1);
            words.push_back("--help");
        }
        app_.parse(static_cast<int>(words.size()), words.data());
        return true;
    } catch (const CLI::Success &told) {
        code = app_.exit(told);
        return false;
    } catch (const CLI::ParseError &error) {
        code = kUsage;
        if (argc == 1)
            fputs(app_.help().c_str(), stdout);
        else
            report_usage(usage_problem(app_, error), argc, argv);
        return false;
    }

    const Globals &globals() const { return globals_; }
    int run(Host &host) const {
        if (paged_) host.out.page();
        const Session session(host, verb_);
        return chosen_(host);
    }

  private:
    void add_globals() {
        app_.set_version_flag("--version", "zev " ZEV_VERSION, "Print the version and exit");
        app_.add_option("-C", globals_.directory, "Work as if started in this directory")
            ->type_name("DIR");
        app_.add_flag("--json", globals_.json, "One JSON object a line on stdout, errors too");
        app_.add_option("--color", globals_.colour, "auto, always or never; NO_COLOR counts")
            ->check(CLI::IsMember({"auto", "always", "never"}))
            ->type_name("WHEN");
        app_.add_flag("--no-pager", globals_.no_pager,
                      "Show long output at once, not by $ZEV_PAGER, $PAGER or less");
        CLI::Option *yes =
            app_.add_flag("-y,--yes", globals_.answers.yes, "Agree to each question");
        CLI::Option *no = app_.add_flag("--no", globals_.answers.no, "Say no to each question");
        no->excludes(yes);
        app_.add_option("--answer", globals_.answers.buttons,
                        "Answer questions by a button's number or text; may be given again")
            ->type_name("BUTTON")
            ->expected(1)
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
            ->excludes(no);
    }

    CLI::App *verb(const char *name, const char *about, const char *examples, Work work) {
        return verb_of(app_, name, about, examples, std::move(work));
    }

    CLI::App *verb_of(CLI::App &parent, const char *name, const char *about, const char *examples,
                      Work work) {
        CLI::App *verb = parent.add_subcommand(name, about);
        verb->group(&parent == &app_ ? group_ : "Verbs");
        verb->footer(examples);
        verb->fallthrough();
        verb->callback([this, name, work = std::move(work), paged = is_paged(name)] {
            chosen_ = work;
            verb_ = name;
            paged_ = paged && !globals_.no_pager;
        });
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

        CLI::App *remove =
            verb("rm", "Move files to the trash and out of the next commit",
                 "Directories go with all they hold; * and ? are wild and take tracked files.\n"
                 "\"zev trash\" brings back what was taken.\n"
                 "Examples:\n  zev rm plan.dwx\n  zev rm details 'plans/*.dwx'",
                 [this](Host &host) { return host::remove(host, paths_); });
        remove->add_option("paths", paths_, "Files, directories, patterns")->required();

        CLI::App *revert =
            verb("revert", "Bring files back to the last commit",
                 "What was never committed goes to the trash; untracked files stay as they are.\n"
                 "A renamed file gets its old name back. Without paths it asks first.\n"
                 "Examples:\n  zev revert plan.dwx\n  zev revert plans 'details/*.dwx'\n"
                 "  zev revert --all",
                 [this](Host &host) { return host::revert(host, revert_); });
        revert->add_option("paths", revert_.paths, "Files, directories, patterns");
        revert->add_flag("--all", revert_.all, "Everything, without a question")->excludes("paths");

        CLI::App *changes = verb(
            "changes", "Show what a commit of these paths would take",
            "Tracked files only, with the new directories above them. A file that is gone from\n"
            "the disk, and not by \"zev rm\", is brought back first.\n"
            "Examples:\n  zev changes\n  zev changes plans",
            [this](Host &host) { return host::changes(host, paths_); });
        changes->add_option("paths", paths_, "Files, directories, patterns; else everything");

        CLI::App *list = verb(
            "ls", "List a directory with the state of each file",
            "What is tracked there. A file that is gone from the disk, and not by \"zev rm\", is\n"
            "brought back first.\n"
            "Examples:\n  zev ls\n  zev ls plans",
            [this](Host &host) { return host::list(host, text_); });
        list->add_option("directory", text_, "A directory; else the current one")->type_name("DIR");

        CLI::App *status = verb(
            "status", "Show what differs from the last commit",
            "+ marks what the next commit holds, ! what was changed again since. With --short one\n"
            "line a file: what changed between commit and index, and between index and disk, by\n"
            "the letters A added, M modified, D deleted, R renamed, T another type; ?? untracked,\n"
            "!! ignored; in a conflict UU, AA, DD, UD, DU, AU, UA for ours and theirs.\n"
            "Examples:\n  zev status\n  zev status plans --json\n  zev status --short --ignored",
            [this](Host &host) { return host::status(host, status_); });
        status->add_option("paths", status_.paths, "Only these files");
        status->add_flag("-s,--short", status_.brief, "One line a file: XY path");
        status->add_flag("--ignored", status_.ignored, "Ignored files, too");

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
        CLI::App *log =
            verb("log", "Show the commits, newest first",
                 "Words are a commit to begin with and paths; behind \"--\" all are paths. The "
                 "names that\n"
                 "they had before they were renamed are followed. An author is given as a whole, a "
                 "part\n"
                 "with wildcards; a text may stand anywhere in the message. A time is 2024-05-17,\n"
                 "\"2024-05-17 09:30\", today, yesterday, or \"3 days ago\" (minutes to years).\n"
                 "Examples:\n  zev log -n 3 HEAD~2\n  zev log --changes plans\n"
                 "  zev log --author 'ann*' --since \"2 weeks ago\" --text door -- gone.dwx\n"
                 "  zev log --object 3F plan.dwx",
                 [this](Host &host) {
                     log_.behind_mark = behind_mark_;
                     return host::log(host, log_);
                 });
        log->add_option("revision", log_.words, "Where to begin")->type_name("REV");
        // The one above takes paths, too, which only the verb can tell apart. This one is never
        // filled: while it may be, "--" ends the options of the verb and not the verb itself.
        log->add_option("paths", second_, "Only what changed these files")
            ->type_name("[--] PATH ...");
        for (const auto &[name, list, about] :
             {std::tuple("--author", &log_.authors, "Only what this author did"),
              std::tuple("--not-author", &log_.not_authors, "Not what this author did"),
              std::tuple("--text", &log_.texts, "Only with this text in the message")})
            log->add_option(name, *list, std::string(about) + "; may be given again")
                ->type_name("TEXT")
                ->allow_extra_args(false);
        log->add_option("--since", log_.since, "Not before that")->type_name("TIME");
        log->add_option("--until", log_.until, "Not after that")->type_name("TIME");
        log->add_option("-n,--limit,--max-count", log_.count, "So many commits at most")
            ->check([](const std::string &text) {
                return text.starts_with('-') ? "a count can't be negative" : "";
            });
        log->add_flag("--changes", log_.changes, "With the paths that each commit changed");
        log->add_option("--object", log_.object,
                        "What happened to this object of a drawing, by its handle")
            ->type_name("HANDLE");

        CLI::App *show = verb("show", "Show a commit and the paths that it changed",
                              "Examples:\n  zev show\n  zev show 1a2b3c4d --stat",
                              [this](Host &host) { return host::show(host, show_); });
        show->add_option("revision", show_.revision, "A commit; else the last")->type_name("REV");
        show->add_flag("--stat", show_.stat, "Count the objects that it changed in each drawing");

        CLI::App *blame = verb(
            "blame", "Show for each object of a drawing the commit that changed it last",
            "Columns: commit, author, time, handle, kind, layer; in the order of the drawing.\n"
            "Examples:\n  zev blame plan.dwx\n  zev blame plan.dwx --rev HEAD~3 --json",
            [this](Host &host) { return host::blame(host, blame_); });
        blame->add_option("drawing", blame_.drawing, "A .dwx file")->required();
        blame->add_option("--rev", blame_.revision, "As it was in this commit")->type_name("REV");

        CLI::App *cat = verb("cat", "Write a file of a commit to stdout",
                             "Example:\n  zev cat HEAD~1:plan.dwx > old.dwx",
                             [this](Host &host) { return host::cat(host, text_); });
        cat->add_option("file", text_, "A commit, a colon, and a path from the top directory")
            ->required()
            ->type_name("REV:PATH");

        CLI::App *verify = verb(
            "verify", "Read all that was ever committed and report what is damaged",
            "Objects, references, index, the drawings with every block that they name, records of\n"
            "history, locks that were left. With --quick files are looked for and not read, and\n"
            "blocks by their keys.\n"
            "Examples:\n  zev verify\n  zev verify --quick --json",
            [this](Host &host) { return host::verify(host, verify_); });
        verify->add_flag("--quick", verify_.quick, "Only that everything is there");
    }

    void add_drawing_verbs() {
        CLI::App *import =
            verb("import", "Read DXF files into drawings",
                 "A drawing that exists is changed: objects that are the same keep their keys, so\n"
                 "that only the others are stored. The work file changes; add or commit keeps it.\n"
                 "Last comes the drawing for one file, or a directory for all; without it each\n"
                 "drawing is named as its file.\n"
                 "Examples:\n  zev import ~/plan.dxf\n  zev import ~/plan.dxf plans/ground.dwx\n"
                 "  zev import ~/project/*.dxf plans",
                 [this](Host &host) { return host::import_drawing(host, import_); });
        import->add_option("files", import_.words, "ASCII DXF files")->required();
        // The one above takes it, too, and the verb tells it apart.
        import->add_option("target", second_, "A .dwx file, or a directory");

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

        CLI::App *diff =
            verb("diff", "Show which objects of a drawing changed",
                 "Without a drawing all are shown that were changed since HEAD.\n"
                 "Without a revision the work file is compared with HEAD, with one\n"
                 "with that, with two the first with the second. A modified object\n"
                 "shows the fields that changed, by group code, old and new.\n"
                 "Examples:\n  zev diff\n  zev diff plan.dwx\n  zev diff plan.dwx HEAD~1 HEAD\n"
                 "  zev diff plan.dwx --stat",
                 [this](Host &host) { return host::diff(host, diff_); });
        diff->add_option("drawing", diff_.drawing, "A .dwx file");
        diff->add_option("from", diff_.from, "Older version")->type_name("REV");
        diff->add_option("to", diff_.to, "Newer version")->type_name("REV");
        CLI::Option *full =
            diff->add_flag("--full", diff_.full, "All fields of added and removed objects, too");
        CLI::Option *brief = diff->add_flag("--brief,--no-fields", diff_.brief,
                                            "Only which objects, not what in them");
        diff->add_flag("--stat", diff_.stat, "Totals by kind and by layer in place of objects")
            ->excludes(full)
            ->excludes(brief);
        full->excludes(brief);
    }

    void add_rescue_verbs() {
        CLI::App *conflicts =
            verb("conflicts", "Show what a merge left to decide",
                 "For each conflict what either side did, and the commit, time and author of it.\n"
                 "Examples:\n  zev conflicts\n  zev conflicts plans --json",
                 [this](Host &host) { return host::conflicts(host, paths_); });
        conflicts->add_option("paths", paths_, "Only these");

        CLI::App *resolve = verb(
            "resolve", "Decide conflicts",
            "--mine keeps what stands in the work directory. --theirs takes what came in; what it\n"
            "displaces goes to the trash. --both keeps yours where it is and puts theirs beside\n"
            "it, as \"plan (theirs).dwx\". \"zev commit\" keeps the result.\n"
            "Examples:\n  zev resolve --theirs plan.dwx\n  zev resolve --both plans\n"
            "  zev resolve --mine --all",
            [this](Host &host) { return host::resolve(host, resolve_); });
        resolve->add_flag("--mine", resolve_.mine, "Keep yours");
        resolve->add_flag("--theirs", resolve_.theirs, "Take theirs");
        resolve->add_flag("--both", resolve_.both, "Keep both");
        resolve->add_flag("--all", resolve_.all, "All conflicts, in place of paths");
        resolve->add_option("paths", resolve_.paths, "Files, directories, patterns");

        add_trash_verbs();
    }

    void add_trash_verbs() {
        CLI::App *trash = app_.add_subcommand(
            "trash", "Look through what was taken out of the work directory, bring it back");
        trash->group(group_);
        trash->require_subcommand(1);
        trash->fallthrough();
        trash->footer("Examples:\n  zev trash list\n  zev trash find door\n"
                      "  zev trash restore plan.dwx\n  zev trash purge --older 90");

        CLI::App *list = verb_of(*trash, "list", "Show what was taken, when, and its id",
                                 "A pattern is a part of the path, or has * and ?.\n"
                                 "Examples:\n  zev trash list\n  zev trash list 'plans/*.dwx'",
                                 [this](Host &host) { return trash_list(host, pattern_); });
        list->add_option("pattern", pattern_, "Only paths like this");

        CLI::App *find = verb_of(*trash, "find", "Search it, inside of directories too",
                                 "A pattern is a part of the path, or has * and ?.\n"
                                 "Examples:\n  zev trash find door\n  zev trash find '*.dwx'",
                                 [this](Host &host) { return trash_find(host, pattern_); });
        find->add_option("pattern", pattern_, "Paths like this")->required();

        CLI::App *restore = verb_of(
            *trash, "restore", "Bring files back",
            "By the path that they had, or by the first digits of an id from \"zev trash list\";\n"
            "behind an id a slash and a path name what lies in a directory. What has the name by\n"
            "now stays unless you say otherwise.\n"
            "Examples:\n  zev trash restore plan.dwx\n  zev trash restore 1a2b3c4d --to old\n"
            "  zev trash restore --newest 'plans/*.dwx'",
            [this](Host &host) { return trash_restore(host, restore_); });
        restore->add_option("entries", restore_.entries, "Paths, ids, patterns")->required();
        restore->add_option("--to", restore_.target, "Into this directory")->type_name("DIR");
        restore->add_flag("--newest", restore_.newest,
                          "Of several that had the same path, the one taken last");

        CLI::App *purge = verb_of(*trash, "purge", "Delete what was taken, for good",
                                  "It asks first; --yes answers.\n"
                                  "Examples:\n  zev trash purge --older 90\n"
                                  "  zev trash purge --all --yes",
                                  [this](Host &host) { return trash_purge(host, purge_); });
        purge->add_option("--older", purge_.days, "What was taken at least so many days ago")
            ->type_name("DAYS")
            ->check(CLI::NonNegativeNumber);
        purge->add_flag("--all", purge_.all, "Everything");
    }

    void add_branch_verbs() {
        CLI::App *merge = verb(
            "merge", "Bring what another branch did into the current one",
            "The result is committed, unless both changed the same file: then \"zev conflicts\"\n"
            "shows what there is to decide, \"zev resolve\" decides, and \"zev commit\" keeps it.\n"
            "Files that the merge changes must have no changes of your own that aren't committed,\n"
            "and nothing may be staged; --force moves them to the trash, and asks first.\n"
            "Examples:\n  zev merge details\n  zev merge details --force --yes",
            [this](Host &host) { return host::merge(host, merge_); });
        merge->add_option("branch", merge_.branch, "A branch, or any commit")->required();
        merge->add_flag("--force", merge_.force, "Local changes go to the trash");

        CLI::App *change = verb(
            "switch", "Go to another branch, or to the state of a commit",
            "Changes that aren't committed come along; what both changed becomes a conflict. With\n"
            "a commit that is no branch, its state becomes the newest commit of the current\n"
            "branch: all that was committed stays in its history.\n"
            "Examples:\n  zev switch details\n  zev switch -c details\n  zev switch HEAD~2\n"
            "  zev switch details --force",
            [this](Host &host) { return host::switch_to(host, switch_); });
        change->add_option("target", switch_.target, "A branch, else a commit")->required();
        CLI::Option *create =
            change->add_flag("-c,--create", switch_.create, "Make the branch here, then go to it");
        change->add_flag("--force", switch_.force, "Local changes go to the trash; it asks first")
            ->excludes(create);

        CLI::App *branch = verb(
            "branch", "List, make and delete branches",
            "Without a name all are listed, the current one marked. Deleting asks first when no\n"
            "other branch has what is on this one.\n"
            "Examples:\n  zev branch\n  zev branch details HEAD~1\n  zev branch --delete details",
            [this](Host &host) { return host::branch(host, branch_); });
        branch->add_option("name", branch_.name, "The branch to make, or to delete");
        CLI::Option *start =
            branch->add_option("revision", branch_.revision, "Where it begins; else at HEAD");
        start->type_name("REV");
        branch->add_flag("--delete", branch_.remove, "Delete it")->excludes(start);

        CLI::App *config = verb("config", "Show or change a setting of this working copy",
                                "Examples:\n  zev config zev.author\n  zev config zev.author Ada\n"
                                "  zev config --unset zev.author",
                                [this](Host &host) { return host::config(host, config_); });
        config->add_option("key", config_.key, "As in section.name")->required();
        config->add_option("value", config_.value, "What it is to be");
        config->add_flag("--unset", config_.unset, "Take it away");

        CLI::App *cleanup = verb(
            "cleanup", "Put a working copy in order",
            "Puts right what a crash left, and moves untracked files to the trash; ignored ones\n"
            "stay. --purge deletes them for good, and all that is in the trash; it asks first.\n"
            "Examples:\n  zev cleanup\n  zev cleanup --keep-untracked\n  zev cleanup --purge",
            [this](Host &host) { return host::cleanup(host, cleanup_); });
        cleanup->add_flag("--keep-untracked", cleanup_.keep_untracked,
                          "Untracked files stay where they are");
        cleanup->add_flag("--purge", cleanup_.purge, "Delete in place of the trash, and empty it");

        verb("undo", "Bring back what the last command put into the trash",
             "The last one of rm, revert, resolve, switch, merge and cleanup that put anything\n"
             "there. What has the name by now stays unless you say otherwise.\n"
             "Example:\n  zev rm plans && zev undo",
             [](Host &host) { return host::undo(host); });
    }

    // For the build, which installs what comes out: not in any list.
    void add_generator() {
        CLI::App *generate =
            verb("generate", "Write a manual page or a shell's completion", "", [this](Host &) {
                const std::string text = describe(app_, text_, second_);
                fputs(text.c_str(), stdout);
                return text.empty() ? kUsage : kDone;
            });
        generate->group("");
        generate->add_option("kind", text_, "man, bash, zsh or fish")->required();
        generate->add_option("verb", second_, "The verb of a manual page; else the program's");
    }

    // The arguments may not have been read as far as --json.
    static void report_usage(const std::string &what, int argc, char **argv) {
        Output out;
        auto is_json = [](const char *argument) { return std::string_view(argument) == "--json"; };
        out.setup(std::any_of(argv, argv + argc, is_json), ColourMode::automatic);
        out.fail(Failed(kInvalid, what), kUsage);
    }

    CLI::App app_{kAbout, "zev"};
    Globals globals_;
    Work chosen_;
    std::string group_; // of the verbs that are declared, for the help
    bool paged_ = false;
    std::string verb_;
    std::string text_, second_; // of verbs that take one or two words
    Paths paths_;
    CommitOptions commit_;
    RevertOptions revert_;
    StatusOptions status_;
    LogOptions log_;
    ShowOptions show_;
    BlameOptions blame_;
    std::optional<size_t> behind_mark_; // so many words stand behind "--"
    ImportOptions import_;
    ExportOptions export_;
    DiffOptions diff_;
    ResolveOptions resolve_;
    RestoreOptions restore_;
    PurgeOptions purge_;
    VerifyOptions verify_;
    MergeOptions merge_;
    SwitchOptions switch_;
    BranchOptions branch_;
    ConfigOptions config_;
    CleanupOptions cleanup_;
    std::string pattern_;
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
        HostNotify notify(out, line.globals().answers);
        Host host{out, &notify};
        catch_break();
        return line.run(host);
    } catch (const Failed &failed) {
        if (out.unread()) return kDone; // left by the user, who has seen enough
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
