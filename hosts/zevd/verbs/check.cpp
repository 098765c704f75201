// check: what the settings come to, line by line, and whether a service could start with them.
#include "aside.hpp"
#include "identity.hpp"
#include "listening.hpp"
#include "service.hpp"
#include "verb.hpp"

#include <cstdio>
#include <filesystem>

#include <unistd.h>

namespace host {

namespace fs = std::filesystem;

namespace {

struct Options {};

void declare(Command &verb, Options &) {
    verb.description("Tell the settings line by line, and what is wrong with them");
    verb.footer("Nothing is started or changed. Settings that are not given stand in brackets.\n"
                "Examples:\n  zevd check --config /srv/zev/server.conf");
}

// Directories that a start would need; what is missing is made by it, if the one above lets it.
std::string place_problem(const std::string &path) {
    fs::path at = path;
    while (!fs::exists(at) && at.has_relative_path()) at = at.parent_path();
    if (!fs::is_directory(at)) return at.string() + ": is no directory";
    return access(at.c_str(), W_OK | X_OK) == 0 ? "" : at.string() + ": can't be written to";
}

std::vector<std::string> place_problems(const Config &config) {
    std::vector<std::string> problems;
    if (!fs::is_directory(config.root()))
        problems.push_back(config.root() + ": path.root is no directory");
    for (const std::string &path : {config.repos(), config.data()}) {
        const std::string problem = path.empty() ? "" : place_problem(path);
        if (!problem.empty()) problems.push_back(problem);
    }
    return problems;
}

// What keeps a service with TLS from being believed; the rest is told here.
std::vector<std::string> tell_identity(const Config &config) {
    if (config.certificate().empty()) return {};
    const Identity identity = look_at_identity(config.certificate(), config.key());
    if (!identity.told.empty()) printf("certificate: %s\n", identity.told.c_str());
    for (const std::string &warning : identity.warnings) printf("warning: %s\n", warning.c_str());
    return identity.problems;
}

int run(const std::string &file, const Options &) {
    const Config config(file);
    for (const SettingLine &line : config.lines())
        printf(line.given ? "%-24s %s\n" : "%-24s (%s)\n", line.path.c_str(), line.value.c_str());
    fflush(stdout);
    config.require_sound();
    each_left_import(config.repos(), [](const std::string &path) {
        printf("left over: %s, by an import that was cut short; the next start takes it away\n",
               path.c_str());
    });
    std::vector<std::string> problems = place_problems(config);
    const std::string unheard = listening_problem(config.listens_on(), config.port());
    if (!unheard.empty()) problems.push_back(unheard);
    for (const std::string &problem : tell_identity(config)) problems.push_back(problem);
    for (const std::string &problem : problems) fprintf(stderr, "zevd: %s\n", problem.c_str());
    return problems.empty() ? kDone : kFailed;
}

} // namespace

extern const Verb kCheckVerb{"check", bind<Options, declare, run>};

} // namespace host
