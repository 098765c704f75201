// admin: the server's projects, users, groups, roles and rights.

#include "admin/admin.hpp"

#include <algorithm>
#include <iterator>
#include <map>
#include <sstream>

namespace host {

namespace {

const AdminNoun *const kNouns[] = {&kProjectNoun, &kUserNoun,   &kGroupNoun,
                                   &kRoleNoun,    &kRightsNoun, &kDirectoryNoun};

struct Options {
    std::map<std::string, std::string> texts; // by "PROJECT" and "--mail"
    std::map<std::string, bool> flags;
    const AdminVerb *verb = nullptr; // the one that is given
    std::map<std::string, Argument> declared;
};

struct Meaning {
    const char *name, *about;
};

constexpr Meaning kMeanings[] = {
    {"PROJECT", "Its owner and name, as in team/plant"},
    {"NEW", "What is made, as in team/plant"},
    {"OWNER", "Whose projects"},
    {"NEWNAME", "What it is to be called"},
    {"LOGIN", "The user's login"},
    {"USER", "A user's login"},
    {"GROUP", "A group, by the names that lead to it, as in design/site"},
    {"PARENT", "The group that it goes below, / for the top"},
    {"ROLE", "A role of the project"},
    {"PATH", "A path of the project, / for all of it"},
    {"RIGHTS", "Letters of r (read), w (write) and e (export); - for none"},
    {"--if-missing", "Nothing is wrong if it is there already"},
    {"--if-exists", "Nothing is wrong if it isn't there"},
    {"--branch", "The branch to change, else the project's own"},
    {"--name", "How the user is called"},
    {"--mail", "Where mail reaches him"},
    {"--login", "A new login"},
    {"--power", "He may administer the server"},
    {"--no-power", "He may not any more"},
    {"--lock", "He can't log in"},
    {"--unlock", "He can log in again"},
    {"--off", "Take the lock off"},
    {"--password-stdin", "Read the password from stdin"},
    {"--group", "A group instead of a user"},
    {"--role", "Of this role only"},
    {"--user", "What counts for this user"},
};

const char *meaning(const std::string &name) {
    for (const Meaning &each : kMeanings)
        if (name == each.name) return each.about;
    return "";
}

std::vector<std::string> words_of(const char *text) {
    std::istringstream in(text);
    return {std::istream_iterator<std::string>(in), {}};
}

bool is_option(const std::string &word) { return word.starts_with("--"); }

// An option or argument lies under its name behind the verb's.
void declare_words(Command &command, const AdminVerb &verb, const std::string &prefix,
                   Options &options) {
    for (std::string word : words_of(verb.words)) {
        const bool optional = word.front() == '[';
        if (optional) word = word.substr(1, word.size() - 2);
        const std::string key = prefix + word;
        options.declared.emplace(key, command.add_option(word, options.texts[key], meaning(word))
                                          ->required(!optional)
                                          ->type_name(""));
    }
}

void declare_options(Command &command, const AdminVerb &verb, const std::string &prefix,
                     Options &options) {
    const std::vector<std::string> words = words_of(verb.options);
    for (size_t i = 0; i < words.size(); ++i) {
        const std::string key = prefix + words[i];
        const bool takes_text = i + 1 < words.size() && !is_option(words[i + 1]);
        const Argument argument =
            takes_text ? command.add_option(words[i], options.texts[key], meaning(words[i]))
                             ->type_name(words[i + 1])
                       : command.add_flag(words[i], options.flags[key], meaning(words[i]));
        options.declared.emplace(key, argument);
        i += takes_text;
    }
}

void declare(Command &admin, Options &options) {
    admin.description("Administer a server: projects, users, groups, roles and rights");
    admin.footer("The server is that of --server, ZEV_SERVER, the working copy, or the last\n"
                 "\"zev login\".\n"
                 "Examples:\n  zev admin project create team/plant\n"
                 "  zev admin user create anna --password-stdin < secret\n"
                 "  zev admin role create team/plant drawers\n"
                 "  zev admin role add team/plant drawers anna\n"
                 "  zev admin rights set team/plant /standards drawers rw\n"
                 "  zev admin rights explain team/plant anna standards/door.dwx");
    admin.require_command();
    options.declared.emplace(
        "--server",
        admin.add_option("--server", options.texts["--server"], "Its address")->type_name("URL"));
    for (const AdminNoun *noun : kNouns) {
        Command below = admin.add_command(noun->name, noun->about, "What is administered");
        below.footer(noun->footer);
        below.require_command();
        for (const AdminVerb &verb : noun->verbs) {
            Command command = below.add_command(verb.name, verb.about, "Verbs");
            const std::string prefix = std::string(noun->name) + " " + verb.name + " ";
            declare_words(command, verb, prefix, options);
            declare_options(command, verb, prefix, options);
            command.callback([&options, &verb] { options.verb = &verb; });
        }
    }
}

// What was given, by its own name.
std::map<std::string, std::string> given(const Options &options) {
    std::map<std::string, std::string> all;
    for (const auto &[key, option] : options.declared) {
        if (!option.is_given()) continue;
        const auto text = options.texts.find(key);
        all[key.substr(key.rfind(' ') + 1)] = text != options.texts.end() ? text->second : "";
    }
    return all;
}

int run(Host &host, const Options &options) {
    AdminCall call(host, given(options));
    options.verb->run(call);
    return kDone;
}

} // namespace

// ---- A call

AdminCall::AdminCall(Host &host, std::map<std::string, std::string> given)
    : host(host), given_(std::move(given)), server_(find_server(text("--server"))) {
    const auto account = find_account(server_);
    if (!account)
        throw Failed(kServer, 401,
                     say("not logged in to %1$s; \"zev login %1$s\" does it", server_));
    account_ = *account;
    Admin *session = nullptr;
    const int32_t status = zAdminLoginRms(wide(server_).c_str(), wide(account_.user).c_str(),
                                          account_.code.c_str(), true, false, &session);
    admin_.reset(session);
    require_status(status, say("%s at %s", account_.user, server_));
}

std::string AdminCall::text(const std::string &name) const {
    const auto found = given_.find(name);
    return found != given_.end() ? found->second : "";
}

bool AdminCall::done(int32_t status, const std::string &what) const {
    if (status == Z_AUTH_EXISTS && has("--if-missing")) return false;
    if (status == Z_AUTH_NOT_FOUND && has("--if-exists")) return false;
    return require_status(status, what), true;
}

void AdminCall::tell(const char *act, const std::string &what, const std::string &line,
                     bool changed) const {
    host.out.line(changed ? line : say("%s: nothing to do", what));
    Record record("admin");
    record.set(u"act", act).set(u"what", what).set(u"changed", changed);
    if (has("PROJECT")) record.set(u"project", text("PROJECT"));
    host.out.record(record);
}

// ---- What nouns share

ProjectName::ProjectName(const std::string &text) {
    const size_t slash = text.find('/');
    if (slash == text.npos || slash == 0 || slash + 1 == text.size())
        throw Failed(kInvalid,
                     say("%s: a project is named by its owner too, as in team/plant", text));
    owner = wide(text.substr(0, slash));
    name = wide(text.substr(slash + 1));
    if (!zSNValid(owner.c_str(), true) || !zSNValid(name.c_str(), true))
        throw Failed(kInvalid, say("%s: no name that a project can have", text));
}

std::string member(const Json *object, const zwchar *name) {
    const Json *node = zJsonObjectAt(object, name);
    return node ? narrow(zJsonGetString(node)) : "";
}

int32_t number(const Json *object, const zwchar *name) {
    const Json *node = zJsonObjectAt(object, name);
    return node ? static_cast<int32_t>(zJsonGetInt(node)) : 0;
}

bool flag(const Json *object, const zwchar *name) {
    const Json *node = zJsonObjectAt(object, name);
    return node && zJsonGetBoolean(node);
}

constexpr struct {
    char letter;
    int32_t bit;
} kLetters[] = {{'r', Z_PRIVILEGE_READ}, {'w', Z_PRIVILEGE_WRITE}, {'e', Z_PRIVILEGE_EXPORT}};

std::string letters(int32_t bits) {
    std::string text;
    for (const auto &each : kLetters)
        if (bits & each.bit) text += each.letter;
    return text.empty() ? "-" : text;
}

int32_t bits_of(const std::string &text) {
    if (text == "-") return 0;
    int32_t bits = 0;
    for (const char c : text) {
        const auto *known = std::find_if(std::begin(kLetters), std::end(kLetters),
                                         [c](const auto &each) { return each.letter == c; });
        if (known == std::end(kLetters) || bits & known->bit)
            throw Failed(kInvalid,
                         say("%s: rights are letters of r, w and e, or - for none", text));
        bits |= known->bit;
    }
    return bits;
}

extern const Verb kAdminVerb{"admin", Group::server, Nature::plain, bind<Options, declare, run>};

} // namespace host
