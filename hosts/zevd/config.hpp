// Config: server.conf, the settings of one service, a JSON object. Every key is known by the one
// table of config.cpp, which says what may stand there and what holds where it is absent.
#pragma once

#include "host.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace host {

// One line of what the settings come to, for an administrator.
struct SettingLine {
    std::string path; // "http.port"
    std::string value;
    bool given; // else it is the default. Paths are as they were made absolute.
};

class Config {
  public:
    // Reads the file and makes its paths absolute; nothing is made on the disk. Throws for a file
    // that isn't there or holds no JSON object; settings that can't be used are `problems`.
    explicit Config(const std::string &file);
    // The same of what was read from the file; null is no JSON.
    Config(const std::string &file, OwnedJson tree);

    const std::vector<std::string> &problems() const { return problems_; }
    std::vector<SettingLine> lines() const;
    // All problems as one failure, if there are any.
    void require_sound() const;

    // Takes no more connections than that, whatever is set; true if that is fewer.
    bool bound_connections(uint64_t most);

    const Json *tree() const { return tree_.get(); }
    std::string root() const { return path("path.root"); }
    std::string repos() const { return path("path.repos"); }
    std::string listens_on() const;
    uint16_t port() const;
    // Of a service with TLS; else both are empty.
    std::string certificate() const { return path(named("http.certificate")); }
    std::string key() const { return path(named("http.key")); }
    std::string data() const { return path("path.data"); } // with conf and logs; may be empty

  private:
    void check_known(const Json *object, const std::string &path);
    void check_member(const std::string &path, bool dotted, const Json *node);
    void check_values();
    void resolve_paths(const std::string &directory);
    const Json *at(const std::string &path) const;
    bool find(const std::string &path) const;
    std::string nearest(const std::string &path) const;
    std::string path(const std::string &key) const;
    std::string named(const std::string &key) const;

    std::string section_ = "http"; // as the schema spells it
    OwnedJson tree_;
    std::vector<std::string> problems_;
};

} // namespace host
