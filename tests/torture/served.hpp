// A zevd on the loopback with a project a point, so that what strikes one copy is seen by no other.
#pragma once

#include "judge.hpp"

namespace torture {

class Server {
  public:
    // Throws where it can't be had.
    Server(const Programs &programs, const fs::path &root);
    ~Server();
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

    // A play with an empty project, of which its copy is to be made.
    Play begin(const fs::path &root) const;

  private:
    const Programs &programs_;
    const fs::path root_;
    int child_ = 0;
    std::string url_;
};

// What a project's branch holds and how many commits it has. Throws where that can't be read.
std::string served(const Play &play);

// Of a copy that is only just made there is nothing to lose; the next try has to come to its end.
std::string judge_get(const Play &play, const Expected &expected, const Strike &strike,
                      const Words &words);

} // namespace torture
