// zev, the command line: reads the arguments, runs one verb, turns its outcome into an exit code.

#include "help.hpp"
#include "language.hpp"
#include "plain_words.hpp"
#include "session.hpp"
#include "usage.hpp"
#include "verb.hpp"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <unistd.h>

namespace host {

// A verb is declared in the file of its name below verbs/. The help has them in this order.
extern const Verb kInitVerb, kCloneVerb, kAddVerb, kMkdirVerb, kMvVerb, kRmVerb, kRevertVerb,
    kChangesVerb, kLsVerb, kStatusVerb, kCommitVerb, kLogVerb, kShowVerb, kBlameVerb, kCatVerb,
    kVerifyVerb, kImportVerb, kExportVerb, kViewVerb, kDiffVerb, kConflictsVerb, kResolveVerb,
    kTrashVerb, kTrashListVerb, kTrashFindVerb, kTrashRestoreVerb, kTrashPurgeVerb, kMergeVerb,
    kSwitchVerb, kBranchVerb, kTagVerb, kGetVerb, kUpdateVerb, kUpdatesVerb, kResetVerb,
    kRightsVerb, kInfoVerb, kLoginVerb, kLogoutVerb, kAdminVerb, kConfigVerb, kCleanupVerb, kGcVerb,
    kUndoVerb, kGenerateVerb;

namespace {

const Verb *const kVerbs[] = {
    &kInitVerb,         &kCloneVerb,      &kAddVerb,     &kMkdirVerb,     &kMvVerb,
    &kRmVerb,           &kRevertVerb,     &kChangesVerb, &kLsVerb,        &kStatusVerb,
    &kCommitVerb,       &kLogVerb,        &kShowVerb,    &kBlameVerb,     &kCatVerb,
    &kVerifyVerb,       &kImportVerb,     &kExportVerb,  &kViewVerb,      &kDiffVerb,
    &kConflictsVerb,    &kResolveVerb,    &kTrashVerb,   &kTrashListVerb, &kTrashFindVerb,
    &kTrashRestoreVerb, &kTrashPurgeVerb, &kMergeVerb,   &kSwitchVerb,    &kBranchVerb,
    &kTagVerb,          &kGetVerb,        &kUpdateVerb,  &kUpdatesVerb,   &kResetVerb,
    &kRightsVerb,       &kInfoVerb,       &kLoginVerb,   &kLogoutVerb,    &kAdminVerb,
    &kConfigVerb,       &kCleanupVerb,    &kGcVerb,      &kUndoVerb,      &kGenerateVerb};

const char *heading(Group group) {
    switch (group) {
    case Group::work:
        return "The work directory";
    case Group::history:
        return "What was committed";
    case Group::drawings:
        return "Drawings";
    case Group::rescue:
        return "Conflicts and the trash";
    case Group::server:
        return "Servers";
    default:
        return "Branches and upkeep";
    }
}

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
    "commit before it. \"zev VERB --help\" tells about a verb. Texts are in the language of "
    "LC_ALL,\n"
    "LC_MESSAGES or LANG, English or German, unless lang.conf of the installation names one.";

struct Globals {
    bool json = false;
    bool no_pager = false;
    bool full = false;
    std::string colour = "auto";
    std::string directory;
    Answers answers;
};

ColourMode colour_mode(const std::string &word) {
    if (word == "always") return ColourMode::always;
    return word == "never" ? ColourMode::never : ColourMode::automatic;
}

// Of what a server answered, by the code of HTTP or of its rights.
int answered_code(int code, int otherwise) {
    constexpr int kUnauthorized = 401, kForbidden = 403, kNoSuch = 404;
    if (code == kUnauthorized || code == kForbidden) return kRights;
    if (code == Z_AUTH_WRONG_PASSWORD || code == Z_AUTH_POWER_NEEDED || code == Z_AUTH_LOCKED)
        return kRights;
    return code == kNoSuch ? kMissing : otherwise;
}

// Classes of the error record, and of what lies below some of them, as exit codes.
int exit_code(const Failed &failed) {
    constexpr int kAccess = 13, kPermission = 1;                          // system
    constexpr int kNotOwner = -36, kUnmerged = -10, kMergeConflict = -13; // objects
    constexpr int kUnavailable = 503;
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
    case kNetwork: // the code is that of an answer, where there was one
        if (failed.code < 400 || failed.code == kUnavailable) return kNetworkDown;
        return answered_code(failed.code, kServerRefused);
    case kSystem:
        return failed.code == kAccess || failed.code == kPermission ? kRights : kFailed;
    case kGit:
        if (failed.code == kUnmerged || failed.code == kMergeConflict) return kConflicts;
        return failed.code == kNotOwner || denied ? kRights : kFailed;
    case kServer:
        return answered_code(failed.code, kServerRefused);
    case kStore: // a table that another process has open: its lock can't be had, but be opened
        if (denied) return kRights;
        return strstr(failed.what(), strerror(EAGAIN)) || strstr(failed.what(), "already held")
                   ? kHeld
                   : kFailed;
    default:
        return kFailed;
    }
}

// The "--" behind which no word is an option, or the end.
char **find_mark(int argc, char **argv) {
    return std::find(argv, argv + argc, std::string_view("--"));
}

// The arguments may not have been read as far as --json, or not at all.
bool is_json(int argc, char **argv) {
    return std::any_of(argv, find_mark(argc, argv), [](std::string_view argument) {
        return argument == "--json" || argument.starts_with("--json=");
    });
}

// Declares the verbs; the one that is given leaves its work in `chosen`.
class CommandLine {
  public:
    CommandLine() {
        app_.require_subcommand(1);
        app_.fallthrough();
        app_.footer(kEpilogue);
        app_.get_formatter()->label("SUBCOMMAND", "VERB");
        add_globals();
        for (const Verb *row : kVerbs) add(*row);
    }

    // False after help or the version was shown, or when the arguments are no good; then `code` is
    // the exit code.
    bool parse(int argc, char **argv, int &code) try {
        char **mark = find_mark(argc, argv);
        std::vector<std::string> words(argv + 1, mark);
        if (mark != argv + argc) {
            behind_mark_ = static_cast<size_t>(argv + argc - mark - 1);
            for (char **word = mark + 1; word != argv + argc; ++word)
                words.push_back(kBehindMark + std::string(*word));
        }
        if (!words.empty() && words[0] == "help") { // "help VERB" is "VERB --help"
            words.erase(words.begin());
            words.push_back("--help");
        }
        std::reverse(words.begin(), words.end()); // as the parser has them
        app_.parse(std::move(words));
        return true;
    } catch (const CLI::Success &told) {
        translate_help(app_);
        std::ostringstream text;
        code = app_.exit(told, text, text);
        if (is_json(argc, argv))
            tell_json(told.get_name() == "CallForVersion" ? "version" : "help", text.str());
        else
            fputs(text.str().c_str(), stdout);
        return false;
    } catch (const CLI::ParseError &error) {
        code = kUsage;
        if (argc == 1) {
            translate_help(app_);
            fputs(app_.help().c_str(), stdout);
        } else
            report_usage(usage_problem(app_, error), argc, argv);
        return false;
    }

    const Globals &globals() const { return globals_; }
    int run(Host &host) const {
        if (globals_.no_pager) host.out.leave_pager_off();
        if (verb_->nature == Nature::paged) host.out.page();
        if (globals_.full) show_full_paths();
        const Session session(host, *verb_);
        host.behind_mark = behind_mark_;
        return work_(host);
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
        app_.add_flag("--full", globals_.full, "Show paths from the top of the working copy");
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

    // The options of "trash list" go below "trash", which stands before it in the table.
    void add(const Verb &row) {
        const std::string_view name = row.name;
        const size_t blank = name.find(' ');
        CLI::App *parent = &app_;
        if (blank != name.npos) parent = app_.get_subcommand(std::string(name.substr(0, blank)));
        CLI::App *verb = parent->add_subcommand(std::string(name.substr(name.rfind(' ') + 1)));
        verb->group(parent == &app_ ? heading(row.group) : "Verbs");
        verb->fallthrough();
        Command command(*verb);
        Work work = row.declare(command);
        if (!work) return;
        verb->callback([this, &row, work = std::move(work)] {
            work_ = work;
            verb_ = &row;
        });
    }

    static void tell_json(const char *type, const std::string &text) {
        Output out;
        out.setup(true, ColourMode::never);
        out.record(Record(type).set(u"text", text));
    }

    static void report_usage(const std::string &what, int argc, char **argv) {
        Output out;
        out.setup(is_json(argc, argv), ColourMode::automatic);
        out.fail(Failed(kInvalid, what), kUsage);
    }

    CLI::App app_{kAbout, "zev"};
    Globals globals_;
    const Verb *verb_ = nullptr; // the one that is given
    Work work_;
    std::optional<size_t> behind_mark_;
};

// What programs get where a verb ended badly and has told people only.
void tell_end(Output &out, int code) {
    if (code == kDone || !out.json() || out.told_failure()) return;
    out.fail(Failed(kOther, code == kConflicts ? "conflicts remain; \"zev conflicts\" lists them"
                                               : "not all was done"),
             code);
}

// The library for as long as the program runs; help has its language from there, too. Programs get
// English.
class Library {
  public:
    explicit Library(bool for_programs) {
        zLogConsole(false); // what happens is told by what each verb says
        if (!zGlobalInit(for_programs ? zLangGlobal() : u"", nullptr))
            failure_ = raised(say("zev can't start"));
        else if (!for_programs)
            follow_language();
    }
    ~Library() {
        if (!failure_) zGlobalCleanup();
    }
    Library(const Library &) = delete;
    Library &operator=(const Library &) = delete;

    void require() const {
        if (failure_) throw *failure_;
    }

  private:
    std::optional<Failed> failure_;
};

void enter(const std::string &directory) {
    std::error_code error;
    if (!directory.empty()) std::filesystem::current_path(directory, error);
    if (error) throw std::filesystem::filesystem_error({}, directory, error);
}

// The file that a refusal is about stands in front, or in quotes.
std::string refused_path(const std::string &text) {
    constexpr std::string_view kBegin = "failed open - '", kEnd = "' is locked";
    const size_t end = text.find(kEnd);
    if (!text.starts_with(kBegin) || end == text.npos) return text.substr(0, text.find(": "));
    return text.substr(kBegin.size(), end - kBegin.size());
}

// The library takes a refusal by rights for a lock that another process holds.
Failed told_better(const Failed &failed) {
    const std::string path = refused_path(failed.what());
    if (failed.error_class != kLocked || !path.starts_with('/')) return failed;
    const std::string above = std::filesystem::path(path).parent_path();
    const char *refused = nullptr;
    if (!access(path.c_str(), F_OK) && access(path.c_str(), R_OK))
        refused = "%s: can't be read: %s";
    else if (access(above.c_str(), W_OK))
        refused = "%s: can't be written: %s";
    if (!refused) return failed;
    const int number = errno;
    return Failed(kSystem, number, say(refused, path, strerror(number)));
}

int run(const Library &library, const CommandLine &line, Output &out) try {
    library.require();
    try {
        enter(line.globals().directory);
        HostNotify notify(out, line.globals().answers);
        Host host{out, &notify, {}};
        catch_break();
        const int code = line.run(host);
        tell_end(out, code);
        return code;
    } catch (const Failed &thrown) {
        if (out.unread()) return kDone; // left by the user, who has seen enough
        const Failed failed = in_plain_words(told_better(thrown), out);
        const int code = exit_code(failed);
        std::string text = failed.what();
        if (code == kHeld) text = say("%s; another process is at work there", text);
        out.fail(Failed(failed.error_class, failed.code, text), code);
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
    signal(SIGCHLD, SIG_DFL); // programs that are started here are waited for
    const Library library(is_json(argc, argv));
    CommandLine line;
    int code = kDone;
    Output out;
    if (line.parse(argc, argv, code)) {
        out.setup(line.globals().json, colour_mode(line.globals().colour));
        code = run(library, line, out);
    }
    if (out.finish() || code != kDone) return code;
    fputs((say("zev: stdout: can't be written") + "\n").c_str(), stderr);
    return kFailed;
}
