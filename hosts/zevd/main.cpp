// zevd, the server's host: reads the arguments, runs one verb, turns its outcome into an exit code.
// Without a verb it serves.
#include "manual.hpp"
#include "service.hpp"
#include "usage.hpp"
#include "verb.hpp"

#include <CLI/CLI.hpp>

#include <cerrno>
#include <cstdio>
#include <filesystem>

namespace host {

// A verb is declared in the file of its name below verbs/. The help has them in this order.
extern const Verb kInitVerb, kRunVerb, kCheckVerb, kResetPasswordVerb, kImportVerb, kVerifyVerb;

namespace {

const Verb *const kVerbs[] = {&kInitVerb,          &kRunVerb,    &kCheckVerb,
                              &kResetPasswordVerb, &kImportVerb, &kVerifyVerb};

constexpr const char *kAbout =
    "The server of drawings under version control.\n\n"
    "The first day:\n"
    "  zevd init /srv/zev                        directories, settings, the administrator\n"
    "  cd /srv/zev && zevd check                 what the settings come to\n"
    "  zevd import team/plant ~/plant            a working copy becomes a project\n"
    "  zevd                                      serve, until Ctrl-C or SIGTERM\n";

constexpr const char *kEpilogue =
    "Exit codes: 0 done, 1 failed, 2 usage or settings, 3 not found, 5 no rights, 7 another\n"
    "process serves the directory. SIGHUP has a new certificate taken; a log that was moved away "
    "is\n"
    "made anew by its next line. \"zevd VERB --help\" tells about a verb.";

int exit_code(const Failed &failed) {
    const bool denied = failed.code == EACCES || failed.code == EPERM;
    switch (failed.error_class) {
    case kInvalid:
        return kUsage;
    case kNotFound:
        return kMissing;
    case kLocked:
        return kHeld;
    case kSystem:
        return denied ? kRights : kFailed;
    default:
        return kFailed;
    }
}

int report(const std::string &what, int code) {
    fprintf(stderr, "zevd: %s\n", what.c_str());
    return code;
}

class CommandLine {
  public:
    CommandLine() {
        app_.require_subcommand(0, 1);
        app_.fallthrough();
        app_.footer(kEpilogue);
        app_.get_formatter()->label("SUBCOMMAND", "VERB");
        app_.get_formatter()->label("Positionals", "Arguments");
        app_.set_version_flag("--version", "zevd " ZEV_VERSION, "Print the version and exit");
        app_.add_option("--config", config_,
                        "The settings; else server.conf, where zevd is started")
            ->type_name("FILE");
        for (const Verb *row : kVerbs) add(*row);
        add_description();
    }

    // False after help or the version was shown, or when the arguments are no good; then `code` is
    // the exit code.
    bool parse(int argc, char **argv, int &code) try {
        app_.parse(argc, argv);
        return true;
    } catch (const CLI::Success &told) {
        code = app_.exit(told);
        return false;
    } catch (const CLI::ParseError &error) {
        code = report(usage_problem(app_, error), kUsage);
        return false;
    }

    int run() const { return chosen_ ? chosen_(config_) : serve_(config_); }

  private:
    void add(const Verb &row) {
        CLI::App *verb = app_.add_subcommand(row.name);
        verb->group("Verbs");
        verb->fallthrough();
        Command command(*verb);
        Work work = row.declare(command);
        if (&row == &kRunVerb) serve_ = work;
        verb->callback([this, work = std::move(work)] { chosen_ = work; });
    }

    // Manual pages and completion, for the build, which installs what comes out. In no list.
    void add_description() {
        CLI::App *verb = app_.add_subcommand("generate", "Write a manual page or a completion");
        verb->group("");
        verb->add_option("kind", kind_)->required();
        verb->add_option("verb", described_);
        verb->callback([this] {
            chosen_ = [this](const std::string &) {
                const std::string text = describe(app_, kind_, described_);
                fputs(text.c_str(), stdout);
                return text.empty() ? kUsage : kDone;
            };
        });
    }

    CLI::App app_{kAbout, "zevd"};
    std::string config_ = "server.conf", kind_, described_;
    Work chosen_, serve_;
};

int run(const CommandLine &line) try {
    keep_private();
    const Library library;
    return line.run();
} catch (const Failed &failed) {
    return report(failed.what(), exit_code(failed));
} catch (const std::exception &error) {
    return report(error.what(), kFailed);
}

} // namespace

} // namespace host

int main(int argc, char **argv) {
    host::CommandLine line;
    int code = host::kDone;
    return line.parse(argc, argv, code) ? host::run(line) : code;
}
