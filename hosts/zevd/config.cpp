// The settings of a service. What always holds: a setting that is no good is named with its path,
// what stands there and what may, and all of them are told, not the first one alone.
#include "config.hpp"

#include "usage.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <utility>

namespace host {

namespace fs = std::filesystem;

namespace {

constexpr int64_t kMost = int64_t{1} << 40;
constexpr const char *kHost = "localhost"; // the library's own presets
constexpr uint16_t kPort = 3001;

enum class Kind { text, number, word };

struct Setting {
    const char *path; // "http" stands for the section that the schema names
    Kind kind;
    int64_t least, most; // of a number
    const char *preset;  // what holds where it is absent
    const char *words;   // of which one must be given, between blanks
};

// In the order in which they are told. The bounds of limits are the library's own.
constexpr Setting kSettings[] = {
    {"schema", Kind::word, 0, 0, nullptr, "http"},
    {"path.pwd", Kind::text, 0, 0, "where server.conf is", nullptr},
    {"path.root", Kind::text, 0, 0, "path.pwd", nullptr},
    {"path.repos", Kind::text, 0, 0, "repos, below path.root", nullptr},
    {"path.data", Kind::text, 0, 0, "the library's own", nullptr},
    {"http.host", Kind::text, 0, 0, kHost, nullptr},
    {"http.port", Kind::number, 0, 65535, "3001", nullptr},
    {"http.maxconn", Kind::number, 1, 65535, "1024", nullptr},
    {"http.timeout", Kind::number, 0, 4'000'000, "0, which is never", nullptr},
    {"http.certificate", Kind::text, 0, 0, "no TLS", nullptr},
    {"http.key", Kind::text, 0, 0, "no TLS", nullptr},
    {"http.auth", Kind::word, 0, 0, "none", "none required"},
    {"http.log.access", Kind::text, 0, 0, "no such log", nullptr},
    {"http.log.audit", Kind::text, 0, 0, "no such log", nullptr},
    {"http.limits.head", Kind::number, 1, 81920, "32768", nullptr},
    {"http.limits.fields", Kind::number, 1, 10'000, "128", nullptr},
    {"http.limits.target", Kind::number, 1, 2047, "2047", nullptr},
    {"http.limits.body", Kind::number, 1, kMost, "2147483648", nullptr},
    {"http.limits.json", Kind::number, 1, kMost, "67108864", nullptr},
    {"http.limits.nodes", Kind::number, 1, kMost, "1000000", nullptr},
    {"http.limits.object", Kind::number, 1, UINT32_MAX, "1073741824", nullptr},
    {"http.limits.inflated", Kind::number, 1, kMost, "2147483648", nullptr},
    {"http.limits.pack", Kind::number, 1, 16'777'216, "1000000", nullptr},
    {"http.limits.rowkey", Kind::number, 16, 64, "64", nullptr},
    {"http.limits.rowvalue", Kind::number, 1, 67'108'864, "67108864", nullptr},
    {"http.limits.headtime", Kind::number, 1, 3600, "20", nullptr},
    {"http.limits.rate", Kind::number, 1, 1 << 30, "1024", nullptr},
    {"http.limits.connections", Kind::number, 1, 1'000'000, "1024", nullptr},
};

bool same_word(const std::string &a, const std::string &b) {
    return a.size() == b.size() && strcasecmp(a.c_str(), b.c_str()) == 0;
}

// The words of a list that one of them must be.
bool is_among(const std::string &word, const char *words) {
    const std::string list = words;
    for (size_t at = 0; at < list.size();) {
        const size_t end = std::min(list.find(' ', at), list.size());
        if (same_word(word, list.substr(at, end - at))) return true;
        at = end + 1;
    }
    return false;
}

const char *type_name(const Json *node) {
    switch (zJsonType(node)) {
    case Z_JSON_STRING:
        return "a text";
    case Z_JSON_INT:
    case Z_JSON_REAL:
        return "a number";
    case Z_JSON_OBJECT:
        return "an object";
    case Z_JSON_ARRAY:
        return "an array";
    case Z_JSON_BOOLEAN:
        return "true or false";
    default:
        return "null";
    }
}

// What is wrong with the value of a setting; empty for nothing.
std::string problem_of(const Setting &setting, const Json *node) {
    if (setting.kind == Kind::number) {
        const std::string range = "a whole number from " + std::to_string(setting.least) + " to " +
                                  std::to_string(setting.most);
        if (!zJsonIsInt(node)) return std::string("is ") + type_name(node) + ", not " + range;
        const int64_t value = zJsonGetInt(node);
        if (value >= setting.least && value <= setting.most) return {};
        return "is " + std::to_string(value) + ", not " + range;
    }
    if (!zJsonIsString(node)) return std::string("is ") + type_name(node) + ", not a text";
    const std::string text = narrow(zJsonGetString(node));
    if (text.empty()) return "is empty";
    if (setting.kind == Kind::text || is_among(text, setting.words)) return {};
    return "is \"" + text + "\", not one of: " + setting.words;
}

std::u16string expanded(const std::u16string &text, const std::string &base) {
    zwchar path[Z_PATH_MAX];
    if (!zPathExpandEnvStrings(path, text.c_str())) return text;
    if (zPathIsRelative(path)) zPathMakeAbsolute(path, path, wide(base).c_str());
    return path;
}

OwnedJson read_tree(const std::string &file) {
    std::error_code error;
    if (!fs::is_regular_file(file, error))
        throw Failed(kNotFound, file + ": no such file (\"zevd init\" makes one)");
    return OwnedJson(zJsonReadFile(wide(file).c_str()));
}

} // namespace

// The table's name of a setting as this file spells it: the section's name is the schema's own.
std::string Config::named(const std::string &key) const {
    return key.starts_with("http.") ? section_ + key.substr(4) : key;
}

std::string Config::path(const std::string &key) const {
    return narrow(zJsonPathGetString(tree_.get(), wide(key).c_str()));
}

std::string Config::listens_on() const {
    const std::string host = path(named("http.host"));
    return host.empty() ? kHost : host;
}

uint16_t Config::port() const {
    const Json *node = at(named("http.port"));
    return node ? static_cast<uint16_t>(zJsonGetInt(node)) : kPort;
}

Config::Config(const std::string &file) : Config(file, read_tree(file)) {}

Config::Config(const std::string &file, OwnedJson tree) : tree_(std::move(tree)) {
    if (!tree_ || !zJsonIsObject(tree_.get())) throw Failed(kInvalid, file + ": is no JSON object");
    const Json *schema = zJsonObjectAt(tree_.get(), u"schema");
    if (schema && zJsonIsString(schema) && same_word(narrow(zJsonGetString(schema)), "http"))
        section_ = narrow(zJsonGetString(schema));
    check_known(tree_.get(), "");
    check_values();
    for (std::string &problem : problems_) problem = file + ": " + problem;
    if (problems_.empty()) resolve_paths(fs::absolute(file).parent_path().string());
}

// A known setting, or a group of them that is an object; all else is told.
void Config::check_member(const std::string &path, bool dotted, const Json *node) {
    const auto begins_one = [&](const Setting &each) {
        return named(each.path).starts_with(path + ".");
    };
    if (!dotted && find(path)) return;
    if (!dotted && std::any_of(std::begin(kSettings), std::end(kSettings), begins_one)) {
        if (zJsonIsObject(node)) return check_known(node, path);
        problems_.push_back(path + ": is " + type_name(node) + ", not an object");
        return;
    }
    const std::string near = dotted ? "" : nearest(path);
    problems_.push_back(path + ": no such setting" +
                        (dotted         ? "; a dot stands for an object within an object"
                         : near.empty() ? ""
                                        : "; is it " + near + "?"));
}

void Config::check_known(const Json *object, const std::string &path) {
    HashmapIter *members = zJsonObjectNewiter(const_cast<Json *>(object)); // read only
    if (!members) return;
    for (members->first(members); !members->done(members); members->next(members)) {
        const Variant *name = members->current(members);
        const std::string key = narrow(name->value.wide);
        const auto *node = static_cast<const Json *>(name->next->value.pointer);
        check_member(path.empty() ? key : path + "." + key, key.find('.') != key.npos, node);
    }
    members->free(members);
}

const Json *Config::at(const std::string &path) const {
    const Json *node = tree_.get();
    for (size_t from = 0; node && from <= path.size();) {
        const size_t end = std::min(path.find('.', from), path.size());
        if (!zJsonIsObject(node)) return nullptr;
        node = zJsonObjectAt(node, wide(path.substr(from, end - from)).c_str());
        from = end + 1;
    }
    return node;
}

bool Config::find(const std::string &path) const {
    return std::any_of(std::begin(kSettings), std::end(kSettings),
                       [&](const Setting &each) { return named(each.path) == path; });
}

// The setting that was meant, as far as one can tell.
std::string Config::nearest(const std::string &path) const {
    std::string best;
    size_t least = path.size() / 3 + 1; // one typo in three letters at most
    for (const Setting &each : kSettings) {
        const std::string name = named(each.path);
        const size_t typos = typos_between(path, name);
        if (typos < least) least = typos, best = name;
    }
    return best;
}

void Config::check_values() {
    for (const Setting &setting : kSettings) {
        const std::string name = named(setting.path);
        const Json *node = at(name);
        const std::string problem = node ? problem_of(setting, node) : "";
        if (!problem.empty()) problems_.push_back(name + ": " + problem);
        if (!node && !setting.preset) problems_.push_back(name + ": is missing");
    }
    const std::string pair[] = {named("http.certificate"), named("http.key")};
    if (!at(pair[0]) != !at(pair[1])) // neither is of use alone
        problems_.push_back(pair[at(pair[0]) != nullptr] + ": is missing, TLS needs both");
    const Json *section = at(section_);
    if (!section) problems_.push_back(section_ + ": is missing, the section of that schema");
}

void Config::resolve_paths(const std::string &directory) {
    const auto resolve = [&](const std::string &key, const std::string &preset,
                             const std::string &base) {
        const std::string text = path(key).empty() ? preset : path(key);
        const std::u16string full = expanded(wide(text), base);
        check(zJsonPathSetString(tree_.get(), wide(key).c_str(), full.c_str()));
        return narrow(full.c_str());
    };
    const std::string pwd = resolve("path.pwd", directory, directory);
    const std::string root = resolve("path.root", pwd, pwd);
    resolve("path.repos", "repos", root);
    if (!data().empty()) resolve("path.data", "", root);
    for (const char *key : {"http.certificate", "http.key"})
        if (at(named(key))) resolve(named(key), "", root);
}

std::vector<SettingLine> Config::lines() const {
    std::vector<SettingLine> lines;
    for (const Setting &setting : kSettings) {
        const std::string name = named(setting.path);
        const Json *node = at(name);
        const std::string preset = setting.preset ? setting.preset : "";
        lines.push_back({name, node ? narrow(zJsonGetString(node)) : preset, node != nullptr});
    }
    return lines;
}

bool Config::bound_connections(uint64_t most) {
    constexpr int64_t kPreset = 1024;
    const std::string name = named("http.limits.connections");
    const Json *node = at(name);
    const int64_t wanted = node ? zJsonGetInt(node) : kPreset;
    if (static_cast<uint64_t>(wanted) <= most) return false;
    check(zJsonPathSetInt(tree_.get(), wide(name).c_str(), static_cast<int32_t>(most)));
    return true;
}

void Config::require_sound() const {
    std::string all;
    for (const std::string &problem : problems_) all += (all.empty() ? "" : "\n      ") + problem;
    if (!all.empty()) throw Failed(kInvalid, all);
}

} // namespace host
