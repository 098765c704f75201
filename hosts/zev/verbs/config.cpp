// config: settings of a working copy.

#include "verb.hpp"

namespace host {

namespace {

struct Options {
    std::string key;
    std::optional<std::string> value;
    bool unset = false;
};

void declare(CLI::App &verb, Options &options) {
    verb.description("Show or change a setting of this working copy");
    verb.footer("Examples:\n  zev config zev.author\n  zev config zev.author Ada\n"
                "  zev config --unset zev.author");
    verb.add_option("key", options.key, "As in section.name")->required();
    verb.add_option("value", options.value, "What it is to be");
    verb.add_flag("--unset", options.unset, "Take it away");
}

int run(Host &host, const Options &options) {
    WorkingCopy copy;
    Owned<Config, zConfigFree> settings(check(zConfigRepo(copy.repository())));
    const std::u16string key = wide(options.key);
    if (options.unset && options.value) throw Failed(kInvalid, "--unset goes without a value");
    if (options.unset) {
        check(zConfigRemove(settings.get(), key.c_str()), options.key);
    } else if (options.value) {
        check(zConfigSetString(settings.get(), key.c_str(), wide(*options.value).c_str()),
              options.key);
    } else if (!zConfigExists(settings.get(), key.c_str())) {
        throw Failed(kNotFound, options.key + ": is not set");
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
