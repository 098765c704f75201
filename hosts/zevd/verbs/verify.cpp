// verify: everything that the projects keep can be read, and is what it was.
#include "findings.hpp"
#include "projects.hpp"
#include "service.hpp"
#include "verb.hpp"

#include <cstdio>

namespace host {

namespace {

struct Options {
    std::string project;
    bool quick = false;
};

void declare(Command &verb, Options &options) {
    verb.description("Read all that the projects keep and report what is damaged");
    verb.footer("A server may run meanwhile. With --quick files are looked for and not read.\n"
                "Examples:\n  zevd verify\n  zevd verify --quick team/plant");
    verb.add_option("project", options.project, "One project; else all")->type_name("OWNER/NAME");
    verb.add_flag("--quick", options.quick, "Only that everything is there");
}

bool is_sound(const Config &config, const std::string &name, bool quick) {
    const OwnedRepository repository = open_project(config, name);
    const VerifyCounts counts = verify_project(repository.get(), name, quick);
    const auto number = [](uint64_t value) { return static_cast<unsigned long long>(value); };
    printf("%s: %llu commits, %llu files, %llu versions of drawings, %llu rows: ", name.c_str(),
           number(counts.commits), number(counts.files), number(counts.drawings),
           number(counts.rows));
    if (counts.damages)
        printf("%llu problems\n", number(counts.damages));
    else
        puts("all well");
    return !counts.damages;
}

int run(const std::string &file, const Options &options) {
    const Config config(file);
    config.require_sound();
    use_data(config);
    const std::vector<std::string> names =
        options.project.empty() ? project_names(config) : std::vector{options.project};
    int code = kDone;
    for (const std::string &name : names) {
        try {
            if (!is_sound(config, name, options.quick)) code = kFailed;
        } catch (const Failed &failed) { // the others are looked at all the same
            if (names.size() == 1) throw;
            fprintf(stderr, "zevd: %s\n", failed.what());
            code = kFailed;
        }
    }
    return code;
}

} // namespace

extern const Verb kVerifyVerb{"verify", bind<Options, declare, run>};

} // namespace host
