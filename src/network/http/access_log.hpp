// What a server writes down of its work: one line for each answer, in the common log format with
// the milliseconds behind it, and one line of JSON for each act of an administrator and each
// refusal. Both are off until they have a path.
#pragma once

#include "zev/http_request.h"
#include "zev/http_server.h"

#include <cstdint>
#include <string>
#include <string_view>

#include <sys/stat.h>

namespace zev {

// A file that lines are appended to, each by one write. One that was moved away, as those do who
// keep old logs, is made anew by the next line. Where that can't be, as while its directory is
// away, lines go on into the one that is open; and a file whose lines must not be lost has those
// that find none written to standard error, which is the system's journal under its manager of
// services. What can't be written is logged, once until it can.
class LineFile {
  public:
    LineFile() = default;
    explicit LineFile(bool must_last) : must_last_(must_last) {}
    LineFile(const LineFile &) = delete;
    LineFile &operator=(const LineFile &) = delete;
    ~LineFile();

    void set_path(std::u16string path) { path_ = std::move(path); }
    bool is_on() const { return !path_.empty(); }
    void write(std::string line); // which has its line feed

  private:
    bool is_in_place() const;
    bool open_anew();
    bool append(std::string_view line);

    const bool must_last_ = false;
    std::u16string path_;
    int fd_ = -1;
    struct stat open_ {}; // of it
    bool failing_ = false;
};

struct HttpLogs {
    LineFile access, audit{true};
};

// Of one answer. Its texts are the peer's own: they are escaped here.
struct AnswerLine {
    std::string_view peer;    // its address
    std::string_view request; // the first line of its head
    const zwchar *login;      // as it was given, proven or not; may be null
    int32_t status;
    uint64_t bytes; // of the body
    int64_t began;  // by os::calls.steady: when the request's first byte came
};
void log_answer(LineFile &file, const AnswerLine &answer);

// What somebody did, or wanted to. Nothing here may be a password: arguments other than names are
// left out.
struct AuditAct {
    std::u16string_view target = {}; // "user", "group", "role", "project", ...
    std::u16string_view act = {};    // "create", "rename", ...; "refused"
    std::u16string_view name = {};   // of whom or of what
    std::u16string_view owner = {}, project = {};
    int32_t status = 0; // of the answer, or of the module
};
// For the request that the server is answering.
void audit(HttpServer *server, const AuditAct &act);

} // namespace zev
