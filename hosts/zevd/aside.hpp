// Where an import builds its project: a directory beside the owners', with a name that none of them
// can have.
#pragma once

#include <functional>
#include <string>

namespace host {

// Held for its life by a lock on the directory, and gone afterwards.
class Aside {
  public:
    explicit Aside(const std::string &repos);
    ~Aside();
    Aside(const Aside &) = delete;
    Aside &operator=(const Aside &) = delete;

    std::string project() const { return path_ + "/project"; }

  private:
    bool make();

    std::string pattern_, path_;
    int fd_ = -1;
};

// What imports that were killed left behind, each while it is held so that it can go.
void each_left_import(const std::string &repos,
                      const std::function<void(const std::string &)> &work);
void sweep_imports(const std::string &repos);

} // namespace host
