// Terminal: a dialogue with the user, where there is one.
#pragma once

#include <optional>
#include <string>

namespace host {

// The terminal of this process, or where that can't be opened stdin and stderr, if they are one.
class Terminal {
  public:
    Terminal();
    ~Terminal();
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    explicit operator bool() const { return input_ >= 0; }
    void write(const std::string &text) const;
    // A line without its end; nothing at the end of input and after Ctrl-C.
    std::optional<std::string> read_line() const;
    // The same behind a question, without an echo.
    std::optional<std::string> read_secret(const std::string &question) const;

  private:
    int input_ = -1, output_ = -1;
    bool own_ = false;
};

} // namespace host
