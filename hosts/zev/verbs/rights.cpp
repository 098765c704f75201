// rights: what the user may do with the files of a copy, and by which rule.

#include "permissions.hpp"
#include "remote_copy.hpp"
#include "verb.hpp"

namespace host {

namespace {

struct Options {
    Paths paths; // none: all rules
};

void declare(Command &verb, Options &options) {
    verb.description("Show what you may do with files of a server's project, and by which rule");
    verb.footer(
        "By letters: r read, w write, e export, - nothing. The nearest rule counts: that of\n"
        "the file, else of the directories above it, / last. They are as the last update\n"
        "brought them; an administrator sets them by \"zev admin rights\".\n"
        "Examples:\n  zev rights\n  zev rights standards/door.dwx");
    verb.add_option("paths", options.paths, "These files; else all rules");
}

void print(Host &host, const std::string &path, const Permission &permission,
           const std::string &text) {
    const std::string letters = rights_letters(permission.bits);
    host.out.line(padded(letters, 5) + text);
    Record record("permission");
    record.set(u"path", path).set(u"rights", letters);
    if (!permission.rule.empty()) record.set(u"rule", permission.rule);
    host.out.record(record);
}

std::string reason(const Permissions &permissions, const Permission &permission) {
    if (!permissions.has_rules()) return say("no rules have come here: everything is allowed");
    if (permission.rule.empty()) return say("no rule says anything: the project's default");
    return say("by the rule on %s", permission.rule);
}

void print_all(Host &host, const Permissions &permissions) {
    for (const auto &[path, bits] : permissions.rules()) print(host, path, {bits, path}, path);
    const int32_t rest = permissions.of("").bits;
    if (!permissions.has_rules())
        print(host, "/", {rest, {}}, reason(permissions, {}));
    else
        print(host, "", {permissions.fallback(), {}}, say("where no rule says anything"));
}

int run(Host &host, const Options &options) {
    const WorkingCopy copy;
    const Permissions permissions(copy);
    if (options.paths.empty()) print_all(host, permissions);
    for (const std::string &given : options.paths) {
        const std::string path = copy.relative(given);
        const Permission permission = permissions.of(path);
        const std::string shown = path.empty() ? "/" : path;
        print(host, shown, permission, shown + "  " + reason(permissions, permission));
    }
    return kDone;
}

} // namespace

extern const Verb kRightsVerb{"rights", Group::server, Nature::paged, bind<Options, declare, run>};

} // namespace host
