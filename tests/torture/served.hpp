// Servers for copies that follow one: a zevd on the loopback with a project a point, so that what
// strikes one copy is seen by no other; and for what strikes a zevd, one of its own for each point.
#pragma once

#include "judge.hpp"

namespace torture {

// A server's directory, and the zevd that runs over it.
class Service {
  public:
    Service(const Programs &programs, const fs::path &place) : programs_(programs), place_(place) {}
    ~Service();
    Service(const Service &) = delete;
    Service &operator=(const Service &) = delete;

    // Throws where it doesn't serve. Each start after the first is at the same address.
    void start(const Settings &more = {});
    // Its exit code, 128 and the signal's number if one ended it, be it this one or an earlier one.
    int end(int signal);
    // Throws unless all is sound. It must have ended.
    void must_be_sound() const;

    const fs::path &place() const { return place_; }
    const std::string &url() const { return url_; }

  private:
    void keep_port(int port);

    const Programs &programs_;
    const fs::path place_;
    std::string url_;
    int child_ = 0, told_ = -1; // where it tells what it does
};

class Server {
  public:
    // Throws where it can't be had.
    Server(const Programs &programs, const fs::path &root);

    // A play with an empty project, of which its copy is to be made.
    Play begin(const fs::path &root) const;

    const Service &service() const { return service_; }

  private:
    const Programs &programs_;
    const fs::path root_;
    Service service_;
};

// A play and a server that has its project alone. It is to be started, and then told to the play.
struct Apart {
    Play play;
    Service service;

    Apart(const Server &from, const Play &ready, const fs::path &root);
    void start(const Settings &more = {});
};

// What a project's branch holds and how many commits it has. Throws where that can't be read.
std::string served(const Play &play);

// The first name of a file in a project that nobody needs any more, or an empty text.
std::string left_about(const Play &play);

// Of a copy that is only just made there is nothing to lose; the next try has to come to its end.
std::string judge_get(const Play &play, const Expected &expected, const Strike &strike,
                      const Words &words);

} // namespace torture
