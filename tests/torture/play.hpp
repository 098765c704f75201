// Where a point is played: a directory with a working copy, a home, room for temporary files and
// for what the preloaded library keeps aside. Points are copies of one that was made ready.
#pragma once

#include <filesystem>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace torture {

namespace fs = std::filesystem;
using Words = std::vector<std::string>;
using Settings = std::map<std::string, std::string>;

struct Programs {
    fs::path zev, preload, data; // `data` holds the drawings
};

// What came of a program: its exit code, 128 and the signal's number if one ended it, 124 if it
// was ended after half a minute.
struct Outcome {
    int code;
    std::string text; // stdout and stderr
};

// Lets another thread end a program that runs.
class Target {
  public:
    bool kill();
    void set(int child);

  private:
    std::mutex mutex_;
    int child_ = 0;
};

struct Play {
    const Programs *programs;
    fs::path root;
    fs::path project{}; // of a copy that follows a server: where that keeps it, and its address
    std::string url{};

    fs::path copy() const { return root / "copy"; }
    // Runs a program in the working copy, "zev" being the one under test, "URL" its project.
    Outcome run(Words words, const Settings &more = {}, Target *target = nullptr) const;
    Outcome shell(const std::string &script) const;
};

Play fresh(const Programs &programs, const fs::path &root);
// Modes and times of files are kept. A copy that follows a server gets a project of its own, or
// stays with another play's.
Play duplicate(const Play &from, const fs::path &root);
Play duplicate(const Play &from, const fs::path &root, const Play &host);
// Away with a play, and its project.
void drop(const Play &play);

// Throws unless the program gave that code.
void must(const std::string &what, const Outcome &outcome, int code = 0);

// What a drawing of the copy comes out as is the text, if it does.
Outcome exported(const Play &play, const std::string &path);

std::string read(const fs::path &path);
void write(const fs::path &path, const std::string &bytes);

} // namespace torture
