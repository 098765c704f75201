// config: the settings that count in a working copy. A key that nobody reads is refused: it would
// be kept and do nothing.

#include "author.hpp"
#include "usage.hpp"
#include "walks.hpp"

#include <algorithm>

namespace host {

namespace {

struct Options {
    std::string key; // empty: list them
    std::optional<std::string> value;
    bool unset = false;
};

struct Key {
    std::string_view name; // "*" stands for the name of a branch
    const char *about;
};

constexpr Key kKeys[] = {
    {"zev.author", "who commits are by"},
    {"user.name", "the same for git; counts without zev.author and $ZEV_AUTHOR"},
    {"core.excludesFile", "a file of patterns that are ignored everywhere"},
    {"core.attributesFile", "a file of attributes that hold everywhere"},
    {"core.bigFileThreshold", "files of so many bytes are packed as they are"},
    {"pack.deltaCacheSize", "bytes that packing keeps in memory"},
    {"zev.thumbnails", "whether imports and merges keep a small picture: auto or off"},
    {"remote.origin.url", "the server's project that this is a copy of"},
    {"branch.*.remote", "the server that a branch follows"},
    {"branch.*.merge", "the branch there that it follows"},
};

void declare(Command &verb, Options &options) {
    verb.description("Show or change the settings of this working copy");
    verb.footer(
        "Without a key all are listed that count. Those of git's own files for the user and\n"
        "the machine hold where the copy has none.\n"
        "Examples:\n  zev config\n  zev config zev.author\n  zev config zev.author Ada\n"
        "  zev config --unset zev.author");
    verb.add_option("key", options.key, "As in section.name");
    const Argument value = verb.add_option("value", options.value, "What it is to be");
    verb.add_flag("--unset", options.unset, "Take it away")->excludes(value);
}

std::string lower(std::string text) {
    for (char &c : text)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
    return text;
}

// Case counts in the middle of a key only, which is the name of a branch.
bool is_known(const std::string &given) {
    const std::string key = lower(given);
    return std::any_of(std::begin(kKeys), std::end(kKeys), [&](const Key &known) {
        const std::string name = lower(std::string(known.name));
        const size_t star = name.find('*');
        if (star == name.npos) return key == name;
        const std::string head = name.substr(0, star), tail = name.substr(star + 1);
        return key.size() >= name.size() && key.starts_with(head) && key.ends_with(tail);
    });
}

[[noreturn]] void fail_unknown(const std::string &key) {
    std::string nearest;
    size_t least = key.size() / 3 + 1;
    for (const Key &known : kKeys) {
        const size_t typos = typos_between(lower(key), lower(std::string(known.name)));
        if (typos < least) least = typos, nearest = known.name;
    }
    throw Failed(kInvalid,
                 say(nearest.empty()
                         ? "%s: nobody reads such a setting; \"zev config\" lists those that count"
                         : "%s: nobody reads such a setting; is it %s?",
                     key, nearest));
}

using OwnedConfig = Owned<Config, zConfigFree>;

void print(Host &host, const Config *settings, const std::string &key, const char *about) {
    Record record("config");
    record.set(u"key", key).set(u"about", about);
    std::string value = say("(not set)");
    if (zConfigExists(settings, wide(key).c_str())) {
        value = narrow(zConfigGetString(settings, wide(key).c_str()));
        record.set(u"value", value);
    }
    host.out.line(padded(key, 24) + padded(value, 24) + host.out.paint(Colour::dim, say(about)));
    host.out.record(record);
}

// Those of branches only as far as they are set, for the branches that there are.
int list(Host &host, const WorkingCopy &copy, const Config *settings) {
    std::vector<std::string> branches;
    const auto visit = [&](Reference *reference) {
        if (zReferenceIsBranch(reference))
            branches.push_back(narrow(zReferenceShorthand(reference)));
        return true;
    };
    check(each_reference(copy.repository(), visit), say("references"));
    for (const Key &known : kKeys) {
        const std::string name(known.name);
        const size_t star = name.find('*');
        if (star == name.npos) {
            print(host, settings, name, known.about);
            continue;
        }
        for (const std::string &branch : branches) {
            const std::string key = name.substr(0, star) + branch + name.substr(star + 1);
            if (zConfigExists(settings, wide(key).c_str())) print(host, settings, key, known.about);
        }
    }
    return kDone;
}

// What git keeps for itself may be looked at and taken away.
void require_known(const Config *settings, const Options &options) {
    if (is_known(options.key)) return;
    if (options.value || !zConfigExists(settings, wide(options.key).c_str()))
        fail_unknown(options.key);
}

int run(Host &host, const Options &options) {
    WorkingCopy copy;
    const OwnedConfig settings(check(zConfigRepo(copy.repository())));
    const std::u16string key = wide(options.key);
    if (options.key.empty() && options.unset) throw Failed(kInvalid, "which one is to go?");
    if (options.key.empty()) return list(host, copy, settings.get());
    require_known(settings.get(), options);
    if (options.unset) {
        check(zConfigRemove(settings.get(), key.c_str()), options.key);
    } else if (options.value) {
        check(zConfigSetString(settings.get(), key.c_str(), wide(*options.value).c_str()),
              options.key);
    } else if (!zConfigExists(settings.get(), key.c_str())) {
        throw Failed(kNotFound, say("%s: is not set", options.key));
    }
    Record record("config");
    record.set(u"key", options.key);
    if (!options.unset) {
        const std::string value = narrow(zConfigGetString(settings.get(), key.c_str()));
        if (!options.value) host.out.line(value);
        record.set(u"value", value);
    }
    host.out.record(record);
    return kDone;
}

} // namespace

extern const Verb kConfigVerb{"config", Group::upkeep, Nature::plain, bind<Options, declare, run>};

} // namespace host
